#include <gtest/gtest.h>

#include "graph/compute_graph.h"
#include "model_builder.h"

namespace {

using Names = std::vector<std::string>;

TEST(GraphWalkTest, ReturnsTheFirstNonZeroStatusAndStops) {
  auto graph = testkit::ReluChain(4);
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
  auto graph = testkit::ReluChain(6);
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
  auto graph = testkit::ReluChain(3);
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
