#include <gtest/gtest.h>

#include "graph/graph.h"
#include "graph/model.h"
#include "graph/op_desc_utils.h"
#include "log_capture.h"
#include "model_builder.h"

namespace {

using testkit::ConsumersOf;
using testkit::ModelBuilder;
using testkit::NodeNames;
using testkit::ProducersOf;
using Names = std::vector<std::string>;

// x -> mid -> {a, b, c}; w (Const) feeds mid's second input; x also has a control successor.
std::shared_ptr<tov::ComputeGraph> Fan() {
  ModelBuilder model;
  model.Data("x");
  model.ConstFloat("w", {1.0f, 2.0f});
  model.Op("mid", "Add").Input("x").Input("w").InputDesc({1}).InputDesc({2}).Output();
  for (const char* name : {"a", "b", "c"}) model.Unary(name, "Relu", "mid");
  model.Op("ctl", "NoOp").Control("x");
  return model.LoadGraph();
}

TEST(GraphEditTest, RemoveNodeDropsItsEdgesAndTheConstsOnlyItFed) {
  auto graph = Fan();
  auto mid = graph->FindNode("mid");
  ASSERT_EQ(graph->RemoveNode(*mid), tov::GRAPH_SUCCESS);
  EXPECT_EQ(NodeNames(*graph), (Names{"x", "a", "b", "c", "ctl"}));
  EXPECT_EQ(graph->GetNodesSize(), 5u);
  EXPECT_EQ(graph->FindNode("x")->ROLE(NodeSpec).OutDataEdgeSize(), 0u);
  EXPECT_EQ(ProducersOf(*graph->FindNode("a")), Names{""});
  EXPECT_EQ(graph->RemoveNode(*mid), tov::GRAPH_NOT_FOUND);
}

// A Const that still has a control successor is not orphaned; one whose only edge was a control
// edge into the removed node is.
TEST(GraphEditTest, RemoveNodeCountsControlEdgesWhenDroppingConsts) {
  ModelBuilder model;
  model.Data("x");
  model.ConstFloat("kept", {1.0f});
  model.ConstFloat("gate", {1.0f});
  model.Op("mid", "Add").Input("x").Input("kept").Control("gate").Output();
  model.Op("after", "NoOp").Control("kept");
  auto graph = model.LoadGraph();
  ASSERT_EQ(graph->RemoveNode(*graph->FindNode("mid")), tov::GRAPH_SUCCESS);
  EXPECT_EQ(NodeNames(*graph), (Names{"x", "kept", "after"}));
  EXPECT_EQ(graph->FindNode("kept")->ROLE(NodeSpec).OutControlEdgeSize(), 1u);
}

// A graph with namesakes cannot be saved, since inputs name their producers.
TEST(GraphEditTest, AddNodeAcceptsANameInUseAndPlacesTheNewNodeAfterIt) {
  auto graph = Fan();
  EXPECT_FALSE(graph->HasNamesakes());
  auto twin = graph->AddNode(std::make_shared<tov::OpDesc>("mid", "Sub"));
  ASSERT_NE(twin, nullptr);
  EXPECT_EQ(NodeNames(*graph), (Names{"x", "w", "mid", "mid", "a", "b", "c", "ctl"}));
  EXPECT_EQ(graph->FindNode("mid")->GetType(), "Add");
  std::string saved;
  testkit::LogCapture log;
  EXPECT_EQ(tov::Model("m", tov::GraphUtils::CreateGraphFromComputeGraph(graph)).Save(saved),
            tov::GRAPH_FAILED);
  EXPECT_TRUE(log.Contains("two nodes are named \"mid\"")) << ::testing::PrintToString(log.Texts());
  graph->RemoveNode(*graph->FindNode("mid"));
  EXPECT_FALSE(graph->HasNamesakes());
  EXPECT_EQ(graph->FindNode("mid"), twin);
  EXPECT_EQ(graph->AddNode(nullptr), nullptr);
}

TEST(GraphEditTest, EdgeCountsAndRefusedEdges) {
  auto graph = Fan();
  auto x = graph->FindNode("x");
  auto a = graph->FindNode("a");
  EXPECT_EQ(x->ROLE(NodeSpec).OutDataEdgeSize(), 1u);
  EXPECT_EQ(x->ROLE(NodeSpec).OutEdgeSize(), 2u);
  EXPECT_EQ(x->ROLE(NodeWalker).OutDataNode(0, 0)->GetName(), "mid");
  EXPECT_EQ(x->ROLE(NodeWalker).OutDataNode(0, 1), nullptr);
  EXPECT_NE(tov::GraphUtils::AddEdge(x->GetOutDataAnchor(0), a->GetInDataAnchor(0)),
            tov::GRAPH_SUCCESS)
      << "a second producer";
  EXPECT_NE(tov::GraphUtils::AddEdge(nullptr, a->GetInDataAnchor(0)), tov::GRAPH_SUCCESS);
  // a has one input and one output: index 1 is the first beyond each.
  EXPECT_TRUE(a->GetInDataAnchor(0) != nullptr && a->GetOutDataAnchor(0) != nullptr);
  EXPECT_TRUE(a->GetInDataAnchor(1) == nullptr && a->GetInDataAnchor(-1) == nullptr &&
              a->GetOutDataAnchor(1) == nullptr && a->GetOutDataAnchor(-1) == nullptr);
  EXPECT_TRUE(a->ROLE(NodeWalker).OutDataNode(1, 0) == nullptr &&
              a->ROLE(NodeWalker).InDataNode(1) == nullptr);
  // Removing an edge that is gone fails.
  auto out = graph->FindNode("mid")->GetOutDataAnchor(0);
  EXPECT_EQ(tov::GraphUtils::RemoveEdge(out, a->GetInDataAnchor(0)), tov::GRAPH_SUCCESS);
  EXPECT_EQ(tov::GraphUtils::RemoveEdge(out, a->GetInDataAnchor(0)), tov::GRAPH_NOT_FOUND);
  EXPECT_EQ(tov::GraphUtils::RemoveEdge(out, nullptr), tov::GRAPH_PARAM_INVALID);
}

TEST(GraphEditTest, ByPassNodeFeedsConsumersFromTheProducerAndJoinsControlEdges) {
  ModelBuilder model;
  model.Data("x");
  model.Op("pre", "NoOp");
  model.Unary("r", "Reshape", "x").Control("pre");
  model.Unary("a", "Relu", "r");
  model.Unary("b", "Relu", "r");
  model.Op("ctl", "NoOp").Control("r");
  auto graph = model.LoadGraph();
  auto& bypasser = graph->ROLE(GraphBypasser);
  ASSERT_EQ(bypasser.ByPassNode(*graph->FindNode("r")), tov::GRAPH_SUCCESS);
  EXPECT_EQ(graph->FindNode("r"), nullptr);
  EXPECT_EQ(ConsumersOf(*graph->FindNode("x")), (Names{"a", "b"}));
  const auto successors = graph->FindNode("pre")->ROLE(NodeWalker).OutControlNodes();
  ASSERT_EQ(successors.size(), 1u);
  EXPECT_EQ(successors[0]->ROLE(NodeSpec).InControlEdgeSize(), 1u);
  EXPECT_EQ(successors[0]->GetName(), "ctl");
  // A node without exactly one connected input cannot be bypassed.
  EXPECT_NE(bypasser.ByPassNode(*graph->FindNode("x")), tov::GRAPH_SUCCESS);
}

TEST(GraphEditTest, RemoveSpecificInputShiftsLaterInputsAndDropsTheOrphanedConst) {
  ModelBuilder model;
  model.Data("x");
  model.Data("y");
  model.ConstInt32("shape", {1, 3});
  testkit::OpBuilder op = model.Op("r", "Reshape").Input("x").Input("shape").Input("y");
  op.InputDesc({1}).InputDesc({2}, 3).InputDesc({3}).InputConst({false, true, false}).Output();
  auto graph = model.LoadGraph();
  auto r = graph->FindNode("r");
  // Handles to the removed input's anchor and description stay usable after the removal.
  const tov::InDataAnchorPtr removedAnchor = r->GetInDataAnchor(1);
  const std::shared_ptr<tov::TensorDesc> removedDesc = r->GetOpDesc()->MutableInputDesc(1);
  ASSERT_EQ(r->ROLE(NodeCompatibler).RemoveSpecificInput(1), tov::GRAPH_SUCCESS);
  EXPECT_EQ(removedAnchor->GetOwnerNode(), nullptr);
  EXPECT_EQ(removedDesc->GetShape(), tov::Shape({2}));
  r->GetOpDesc()->AddInputDesc(tov::TensorDesc(tov::Shape({4})));
  EXPECT_EQ(r->GetOpDesc()->GetInputDesc(2).GetShape(), tov::Shape({4}));
  ASSERT_EQ(r->GetOpDesc()->RemoveInputDesc(2), tov::GRAPH_SUCCESS);
  EXPECT_EQ(ProducersOf(*r), (Names{"x", "y"}));
  EXPECT_EQ(r->GetInDataAnchor(1)->GetIdx(), 1);
  // y's anchor moved down: its old index is beyond the inputs now.
  EXPECT_TRUE(r->GetInDataAnchor(2) == nullptr && r->ROLE(NodeWalker).InDataNode(2) == nullptr);
  EXPECT_EQ(r->GetOpDesc()->GetInputsSize(), 2u);
  EXPECT_EQ(r->GetOpDesc()->GetInputDesc(1).GetShape(), tov::Shape({3}));
  // The removed descriptions are held behind the inputs, out of reach.
  EXPECT_EQ(r->GetOpDesc()->GetInputDesc(2), tov::TensorDesc());
  EXPECT_EQ(r->GetOpDesc()->MutableInputDesc(2), nullptr);
  EXPECT_EQ(r->GetOpDesc()->RemoveInputDesc(2), tov::GRAPH_PARAM_INVALID);
  EXPECT_EQ(r->GetOpDesc()->GetIsInputConst(), (std::vector<bool>{false, false}));
  EXPECT_EQ(graph->FindNode("shape"), nullptr);
  EXPECT_EQ(r->ROLE(NodeCompatibler).RemoveSpecificInput(2), tov::GRAPH_PARAM_INVALID);
}

// Edits that name a node of another graph, a node already removed, or an edge that exists or
// not: each is refused (or is a no-op) and leaves both graphs as they were.
TEST(GraphEditTest, EditsAcrossGraphsOrOfRemovedNodesAreRefused) {
  auto graph = Fan();
  auto other = testkit::ReluChain(2);
  tov::Node& x = testkit::NodeOf(*graph, "x");
  tov::Node& a = testkit::NodeOf(*graph, "a");
  tov::Node& stranger = testkit::NodeOf(*other, "n1");
  const tov::NodePtr removed = graph->FindNode("b");
  ASSERT_EQ(graph->RemoveNode(*removed), tov::GRAPH_SUCCESS);
  auto& bypasser = graph->ROLE(GraphBypasser);
  const struct {
    const char* what;
    tov::graphStatus status;
    tov::graphStatus expected;
  } cases[] = {
      {"data edge into another graph",
       tov::GraphUtils::AddEdge(x.GetOutDataAnchor(0), other->FindNode("n0")->GetInDataAnchor(0)),
       tov::GRAPH_PARAM_INVALID},
      {"data edge from a removed node",
       tov::GraphUtils::AddEdge(removed->GetOutDataAnchor(0), x.GetInDataAnchor(0)),
       tov::GRAPH_PARAM_INVALID},
      {"control edge into another graph", tov::GraphUtils::AddControlEdge(x, stranger),
       tov::GRAPH_PARAM_INVALID},
      {"control edge that exists", tov::GraphUtils::AddControlEdge(x, *graph->FindNode("ctl")),
       tov::GRAPH_SUCCESS},
      {"missing control edge", tov::GraphUtils::RemoveControlEdge(a, x), tov::GRAPH_NOT_FOUND},
      {"remove a stranger", graph->RemoveNode(stranger), tov::GRAPH_NOT_FOUND},
      {"bypass a stranger", bypasser.ByPassNode(stranger), tov::GRAPH_NOT_FOUND},
      {"remove a removed node", graph->RemoveNode(*removed), tov::GRAPH_NOT_FOUND},
  };
  for (const auto& c : cases) EXPECT_EQ(c.status, c.expected) << c.what;
  EXPECT_EQ(graph->InsertNodeBefore(nullptr, x), nullptr);
  EXPECT_EQ(tov::ComputeGraph("empty").FindNode("x"), nullptr);
  EXPECT_EQ(graph->InsertNodeBefore(std::make_shared<tov::OpDesc>("y", "Relu"), *removed), nullptr);
  EXPECT_EQ(graph->InsertNodeBefore(std::make_shared<tov::OpDesc>("y", "Relu"), stranger), nullptr);
  EXPECT_EQ(NodeNames(*graph), (Names{"x", "w", "mid", "a", "c", "ctl"}));
  EXPECT_EQ(x.ROLE(NodeSpec).OutControlEdgeSize(), 1u);
  EXPECT_EQ(ConsumersOf(stranger), Names{});
  EXPECT_EQ(ProducersOf(stranger), Names{"n0"});
}

// A walk inside a walk: a node removed by either stays in the list, unvisited, until the outer
// walk ends; a node added during a walk is visited only by walks that start after it.
TEST(GraphEditTest, NestedWalksMayRemoveNodes) {
  auto graph = testkit::ReluChain(5);
  auto& walker = graph->ROLE(GraphListWalker);
  Names outer;
  Names inner;
  ASSERT_EQ(walker.WalkAllNodes([&](tov::Node& node) -> uint32_t {
    outer.push_back(node.GetName());
    if (node.GetName() != "n1") return 0;
    graph->AddNode(std::make_shared<tov::OpDesc>("late", "Relu"));
    return walker.WalkAllNodes([&](tov::Node& later) -> uint32_t {
      inner.push_back(later.GetName());
      return later.GetName() == "n2" ? graph->RemoveNode(*graph->FindNode("n3")) : 0;
    });
  }),
            tov::GRAPH_SUCCESS);
  EXPECT_EQ(outer, (Names{"n0", "n1", "n2", "n4"}));
  EXPECT_EQ(inner, (Names{"n0", "n1", "n2", "n4", "late"}));
  EXPECT_EQ(NodeNames(*graph), (Names{"n0", "n1", "n2", "n4", "late"}));
}

// The action may remove its own node or a later one; filtered-out nodes get no action; the first
// non-zero status ends a walk.
TEST(GraphEditTest, WalkActionMayRemoveItsOwnNodeOrALaterOneOrStopTheWalk) {
  auto graph = testkit::ReluChain(6);
  auto& walker = graph->ROLE(GraphListWalker);
  Names seen;
  const auto notN5 = [](tov::Node& node) { return node.GetName() != "n5"; };
  const auto removing = [&](tov::Node& node) -> uint32_t {
    seen.push_back(node.GetName());
    if (node.GetName() == "n1") return graph->RemoveNode(node);
    return node.GetName() == "n2" ? graph->RemoveNode(*graph->FindNode("n3")) : 0;
  };
  EXPECT_EQ(walker.WalkAllNodesModifiable(notN5, removing), 0u);
  EXPECT_EQ(seen, (Names{"n0", "n1", "n2", "n4"}));
  EXPECT_EQ(testkit::NodeNames(*graph), (Names{"n0", "n2", "n4", "n5"}));
  EXPECT_EQ(graph->GetNodesSize(), 4u);
  seen.clear();
  const auto stopping = [&](tov::Node& node) -> uint32_t {
    seen.push_back(node.GetName());
    return node.GetName() == "n2" ? 5 : node.GetName() == "n4" ? 7 : 0;
  };
  EXPECT_EQ(walker.WalkAllNodes(stopping), 5u);
  EXPECT_EQ(seen, (Names{"n0", "n2"}));
}

}  // namespace
