#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "graph/dot_writer.h"
#include "model_builder.h"

namespace {

TEST(DotWriterTest, ShowsNodesAttributesAndEveryKindOfEdge) {
  testkit::ModelBuilder model;
  model.Data("in\"put");
  model.ConstInt32("w", {1, 2, 3, 4, 5, 6, 7, 8, 9});
  model.Op("conv", "Conv2D")
      .Input("in\"put")
      .Input("w")
      .Output()
      .Output()
      .Attr("strides", std::vector<int64_t>{1, 1, 2, 2})
      .Attr("_opt_input", "hidden");
  model.Unary("relu", "Relu", "conv:1");
  model.Op("sink", "NoOp").Control("relu");
  const std::string dot = tov::ToDot(*model.LoadGraph());
  EXPECT_NE(dot.find("in\\\"put\\nData"), std::string::npos) << dot;
  EXPECT_NE(dot.find("strides = [1, 1, 2, 2]"), std::string::npos);
  EXPECT_NE(dot.find("value = INT32[9]"), std::string::npos);
  EXPECT_EQ(dot.find("_opt_input"), std::string::npos) << "bookkeeping attributes stay hidden";
  EXPECT_NE(dot.find("n2 -> n3 [label=\"1:0\"]"), std::string::npos);
  EXPECT_NE(dot.find("n3 -> n4 [style=dashed]"), std::string::npos);

  // Where graphviz is installed, it accepts the text.
  if (std::system("command -v dot >/dev/null 2>&1") != 0) return;
  const std::string path = testing::TempDir() + "/graph.dot";
  std::ofstream(path) << dot;
  EXPECT_EQ(std::system(("dot -Tsvg " + path + " -o /dev/null").c_str()), 0) << dot;
}

}  // namespace
