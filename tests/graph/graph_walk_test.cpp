#include <gtest/gtest.h>

#include "graph/compute_graph.h"
#include "model_builder.h"

namespace {

using Names = std::vector<std::string>;

// n0 -> n1 -> ... -> n(length-1)
std::shared_ptr<tov::ComputeGraph> Chain(int length) {
  testkit::ModelBuilder model;
  model.Data("n0");
  for (int i = 1; i < length; ++i) {
    model.Unary("n" + std::to_string(i), "Relu", "n" + std::to_string(i - 1));
  }
  return model.LoadGraph();
}

TEST(GraphWalkTest, ReturnsTheFirstNonZeroStatusAndStops) {
  auto graph = Chain(4);
  Names seen;
  auto status = graph->ROLE(GraphListWalker).WalkAllNodes([&](tov::Node& node) -> uint32_t {
    seen.push_back(node.GetName());
    return node.GetName() == "n1" ? 5 : node.GetName() == "n2" ? 7 : 0;
  });
  EXPECT_EQ(status, 5u);
  EXPECT_EQ(seen, (Names{"n0", "n1"}));
}

// The action may remove its own node or a later one; filtered-out nodes get no action.
TEST(GraphWalkTest, ActionMayRemoveItsOwnNodeOrALaterOne) {
  auto graph = Chain(6);
  Names seen;
  const auto status =
      graph->ROLE(GraphListWalker)
          .WalkAllNodesModifiable([](tov::Node& node) { return node.GetName() != "n5"; },
                                  [&](tov::Node& node) -> uint32_t {
                                    seen.push_back(node.GetName());
                                    if (node.GetName() == "n1") return graph->RemoveNode(node);
                                    if (node.GetName() != "n2") return 0;
                                    return graph->RemoveNode(*graph->FindNode("n3"));
                                  });
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(seen, (Names{"n0", "n1", "n2", "n4"}));
  EXPECT_EQ(testkit::NodeNames(*graph), (Names{"n0", "n2", "n4", "n5"}));
  EXPECT_EQ(graph->GetNodesSize(), 4u);
}

TEST(GraphWalkTest, NodesAddedDuringTheWalkAreNotVisited) {
  auto graph = Chain(3);
  Names seen;
  graph->ROLE(GraphListWalker)
      .WalkAllNodesModifiable(
          [](tov::Node&) { return true; },
          [&](tov::Node& node) -> uint32_t {
            seen.push_back(node.GetName());
            graph->AddNode(std::make_shared<tov::OpDesc>(node.GetName() + "_new", "Relu"));
            graph->AddNode(std::make_shared<tov::OpDesc>(node.GetName(), "Twin"));
            return 0;
          });
  EXPECT_EQ(seen, (Names{"n0", "n1", "n2"}));
  EXPECT_EQ(graph->GetNodesSize(), 9u);
}

}  // namespace
