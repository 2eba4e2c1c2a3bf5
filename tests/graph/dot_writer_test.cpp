#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "graph/dot_writer.h"
#include "model_builder.h"

namespace {

using testkit::ModelBuilder;

std::shared_ptr<tov::ComputeGraph> Sample() {
  ModelBuilder model;
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
  return model.LoadGraph();
}

TEST(DotWriterTest, ShowsNodesAttributesAndEveryKindOfEdge) {
  const std::string dot = tov::ToDot(*Sample());
  EXPECT_NE(dot.find("in\\\"put\\nData"), std::string::npos) << dot;
  EXPECT_NE(dot.find("strides = [1, 1, 2, 2]"), std::string::npos);
  EXPECT_NE(dot.find("value = INT32[9]"), std::string::npos);
  EXPECT_EQ(dot.find("_opt_input"), std::string::npos) << "bookkeeping attributes stay hidden";
  EXPECT_NE(dot.find("n2 -> n3 [label=\"1:0\"]"), std::string::npos) << dot;
  EXPECT_NE(dot.find("n3 -> n4 [style=dashed]"), std::string::npos);
}

TEST(DotWriterTest, GraphvizRendersTheOutputWhereInstalled) {
  if (std::system("command -v dot >/dev/null 2>&1") != 0) GTEST_SKIP() << "graphviz not installed";
  const std::string path = testing::TempDir() + "/graph.dot";
  std::ofstream(path) << tov::ToDot(*Sample());
  const std::string svg = path + ".svg";
  ASSERT_EQ(std::system(("dot -Tsvg " + path + " -o " + svg).c_str()), 0);
  std::ifstream rendered(svg);
  std::string text((std::istreambuf_iterator<char>(rendered)), std::istreambuf_iterator<char>());
  EXPECT_NE(text.find("<svg"), std::string::npos);
  std::remove(path.c_str());
  std::remove(svg.c_str());
}

}  // namespace
