#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "graph/dot_writer.h"
#include "model_builder.h"

namespace {

bool Has(const std::string& dot, const std::string& text) {
  return dot.find(text) != std::string::npos;
}

TEST(DotWriterTest, ShowsNodesAttributesAndEveryKindOfEdge) {
  testkit::ModelBuilder model;
  model.Data("in\"put\\");
  model.ConstInt32("w", {1, 2, 3, 4, 5, 6, 7, 8, 9});
  testkit::OpBuilder conv =
      model.Op("conv", "Conv2D").Input("in\"put\\").Input("w").Output().Output();
  conv.Attr("strides", std::vector<int64_t>{1, 1, 2, 2}).Attr("_opt_input", "hidden");
  conv.Attr("pads", std::vector<int64_t>(9, 0)).Attr("alpha", 0.5f).Attr("flag", true);
  conv.Attr("mode", "a\nb").Attr("scales", std::vector<float>{0.25f});
  conv.Attr("names", std::vector<std::string>{"x"}).EmptyListAttr("empty");
  (*conv.Def().mutable_attr())["bits"].mutable_list()->add_b(true);
  (*conv.Def().mutable_attr())[""];  // no name and no value: neither is shown
  (*conv.Def().mutable_attr())["unset"];
  model.Unary("relu", "Relu", "conv:1");
  model.Op("sink", "NoOp").Control("relu");
  const auto graph = model.LoadGraph();
  graph->FindNode("conv")->GetOpDesc()->SetAttr("none",
                                                tov::AttrValue::CreateFrom(tov::TensorPtr()));
  const std::string dot = tov::ToDot(*graph);

  const char* const shown[] = {"in\\\"put\\\\\\nData",
                               "strides = [1, 1, 2, 2]",
                               "value = INT32[9]",
                               "pads = [9 values]",
                               "alpha = 0.5",
                               "flag = true",
                               "mode = \\\"a\\nb\\\"",
                               "scales = [0.25]",
                               "names = [x]",
                               "bits = [1]",
                               "empty = []",
                               "n2 -> n3 [label=\"1:0\"]",
                               "n3 -> n4 [style=dashed]",
                               "fillcolor"};
  for (const char* text : shown) EXPECT_TRUE(Has(dot, text)) << text << "\n" << dot;
  for (const char* hidden : {"_opt_input", "unset", "none"}) {
    EXPECT_FALSE(Has(dot, hidden)) << hidden << "\n" << dot;
  }

  // Graphviz accepts the text (graphviz is a build dependency: scripts/install-deps.sh).
  ASSERT_EQ(std::system("command -v dot >/dev/null 2>&1"), 0) << "graphviz's dot is missing";
  const std::string path = testing::TempDir() + "/graph.dot";
  std::ofstream(path) << dot;
  EXPECT_EQ(std::system(("dot -Tsvg " + path + " -o /dev/null").c_str()), 0) << dot;
}

}  // namespace
