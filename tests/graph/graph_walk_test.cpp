#include <gtest/gtest.h>

#include "graph/compute_graph.h"
#include "model_builder.h"

namespace {

using testkit::ModelBuilder;
using testkit::NodeNames;

std::shared_ptr<tov::ComputeGraph> Chain(int length) {
  ModelBuilder model;
  model.Data("n0");
  for (int i = 1; i < length; ++i) {
    model.Unary("n" + std::to_string(i), "Relu", "n" + std::to_string(i - 1));
  }
  return model.LoadGraph();
}

TEST(GraphWalkTest, EmptyGraphCallsNothing) {
  tov::ComputeGraph graph;
  int calls = 0;
  auto count = [&](tov::Node&) -> tov::graphStatus { return ++calls, 0; };
  EXPECT_EQ(graph.ROLE(GraphListWalker).WalkAllNodes(count), 0u);
  EXPECT_EQ(
      graph.ROLE(GraphListWalker).WalkAllNodesModifiable([](tov::Node&) { return true; }, count),
      0u);
  EXPECT_EQ(calls, 0);
}

TEST(GraphWalkTest, ReturnsFirstNonZeroStatusAndStops) {
  auto graph = Chain(4);
  std::vector<std::string> seen;
  auto status = graph->ROLE(GraphListWalker).WalkAllNodes([&](tov::Node& node) -> uint32_t {
    seen.push_back(node.GetName());
    return node.GetName() == "n1" ? 5 : node.GetName() == "n2" ? 7 : 0;
  });
  EXPECT_EQ(status, 5u);
  EXPECT_EQ(seen, (std::vector<std::string>{"n0", "n1"}));
}

TEST(GraphWalkTest, ActionMayRemoveItsOwnNodeOrALaterOne) {
  auto graph = Chain(5);
  std::vector<std::string> seen;
  auto status = graph->ROLE(GraphListWalker)
                    .WalkAllNodesModifiable([](tov::Node&) { return true; },
                                            [&](tov::Node& node) -> uint32_t {
                                              seen.push_back(node.GetName());
                                              if (node.GetName() == "n1") {
                                                return graph->RemoveNode(node);
                                              }
                                              if (node.GetName() == "n2") {
                                                return graph->RemoveNode(*graph->FindNode("n3"));
                                              }
                                              return 0;
                                            });
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(seen, (std::vector<std::string>{"n0", "n1", "n2", "n4"}));
  EXPECT_EQ(NodeNames(*graph), (std::vector<std::string>{"n0", "n2", "n4"}));
  EXPECT_EQ(graph->GetNodesSize(), 3u);
}

TEST(GraphWalkTest, NodesAddedDuringTheWalkAreNotVisited) {
  auto graph = Chain(3);
  std::vector<std::string> seen;
  graph->ROLE(GraphListWalker)
      .WalkAllNodesModifiable(
          [](tov::Node&) { return true; },
          [&](tov::Node& node) -> uint32_t {
            seen.push_back(node.GetName());
            graph->AddNode(std::make_shared<tov::OpDesc>(node.GetName() + "_new", "Relu"));
            graph->AddNode(std::make_shared<tov::OpDesc>(node.GetName(), "Twin"));
            return 0;
          });
  EXPECT_EQ(seen, (std::vector<std::string>{"n0", "n1", "n2"}));
  EXPECT_EQ(graph->GetNodesSize(), 9u);
}

TEST(GraphWalkTest, FilterSelectsWhichNodesGetTheAction) {
  auto graph = Chain(4);
  std::vector<std::string> acted;
  graph->ROLE(GraphListWalker)
      .WalkAllNodesModifiable([](tov::Node& node) { return node.GetName() != "n2"; },
                              [&](tov::Node& node) -> uint32_t {
                                acted.push_back(node.GetName());
                                return 0;
                              });
  EXPECT_EQ(acted, (std::vector<std::string>{"n0", "n1", "n3"}));
}

TEST(GraphWalkTest, DeepChainLoadsWalksAndRemovesWithoutRecursion) {
  auto graph = Chain(100000);
  size_t visited = 0;
  graph->ROLE(GraphListWalker)
      .WalkAllNodesModifiable([](tov::Node&) { return true; },
                              [&](tov::Node& node) -> uint32_t {
                                ++visited;
                                return visited % 2 == 0 ? graph->RemoveNode(node) : 0;
                              });
  EXPECT_EQ(visited, 100000u);
  EXPECT_EQ(graph->GetNodesSize(), 50000u);
}

}  // namespace
