// How a graph keeps its nodes, edges and attributes: the name index under heavy churn, edges of
// outputs with many consumers, objects held past the graph, shape copies and moves, forward
// references and distant producers in a loaded model, names interned from several threads, and
// the compact lists that nodes and descriptions keep.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include <algorithm>

#include "graph/attr_utils.h"
#include "graph/graph.h"
#include "graph/graph_arena.h"
#include "graph/op_desc_utils.h"
#include "model_builder.h"

namespace {

using testkit::ConsumersOf;
using testkit::ModelBuilder;
using testkit::NodeNames;
using testkit::ProducersOf;
using Names = std::vector<std::string>;

TEST(GraphStorageTest, NamesStayFindableWhileMostNodesLeave) {
  auto graph = testkit::ReluChain(3000);
  for (size_t i = 0; i < 3000; i += 3) {
    ASSERT_EQ(graph->RemoveNode(*graph->FindNode("n" + std::to_string(i))), tov::GRAPH_SUCCESS);
  }
  for (size_t i = 0; i < 3000; ++i) {
    const tov::NodePtr found = graph->FindNode("n" + std::to_string(i));
    ASSERT_EQ(found == nullptr, i % 3 == 0) << i;
    if (found != nullptr) {
      EXPECT_EQ(found->GetName(), "n" + std::to_string(i));
    }
  }
  EXPECT_EQ(graph->GetNodesSize(), 2000u);
}

TEST(GraphStorageTest, EdgesOfAWideOutputKeepTheirOrderAndLeaveWithTheirNode) {
  ModelBuilder model;
  model.Data("x");
  Names consumers;
  for (int i = 0; i < 500; ++i) {
    consumers.push_back("c" + std::to_string(i));
    model.Unary(consumers.back(), "Relu", "x");
  }
  auto graph = model.LoadGraph();
  auto x = graph->FindNode("x");
  EXPECT_EQ(ConsumersOf(*x), consumers);

  // Removing edges in the middle, at the front and at the back keeps the rest in order.
  for (const char* name : {"c250", "c0", "c499"}) {
    auto consumer = graph->FindNode(name);
    ASSERT_EQ(tov::GraphUtils::RemoveEdge(x->GetOutDataAnchor(0), consumer->GetInDataAnchor(0)),
              tov::GRAPH_SUCCESS);
    consumers.erase(std::find(consumers.begin(), consumers.end(), name));
  }
  EXPECT_EQ(ConsumersOf(*x), consumers);
  EXPECT_EQ(x->RoleNodeWalker().OutDataNode(0, 0)->GetName(), "c1");

  ASSERT_EQ(graph->RemoveNode(*x), tov::GRAPH_SUCCESS);
  EXPECT_EQ(ProducersOf(*graph->FindNode("c7")), Names{""});
  EXPECT_EQ(x->ROLE(NodeSpec).OutDataEdgeSize(), 0u);
}

TEST(GraphStorageTest, NodesAnchorsAndTensorsHeldPastTheGraphStayValidAndUnlinked) {
  tov::NodePtr held;
  tov::NodePtr heldLater;  // a second survivor, listed after the first
  tov::InDataAnchorPtr heldInput;
  std::shared_ptr<tov::TensorDesc> heldDesc;
  tov::TensorPtr weight;
  {
    ModelBuilder model;
    model.Data("x");
    model.ConstFloat("w", {1.0f, 2.0f});
    model.Op("mid", "Add").Input("x").Input("w").InputDesc({1}).InputDesc({2}).Output();
    model.Unary("out", "Relu", "mid");
    model.Unary("tail", "Relu", "out");
    auto graph = model.LoadGraph();
    held = graph->FindNode("mid");
    heldLater = graph->FindNode("tail");
    heldInput = graph->FindNode("out")->GetInDataAnchor(0);
    heldDesc = held->GetOpDesc()->MutableInputDesc(1);
    weight = tov::OpDescUtils::MutableWeights(*held)[0];
  }
  EXPECT_EQ(held->GetName(), "mid");
  EXPECT_EQ(held->GetOwnerComputeGraph(), nullptr);
  EXPECT_EQ(held->ROLE(NodeSpec).InDataEdgeSize(), 0u);
  EXPECT_EQ(held->ROLE(NodeSpec).OutDataEdgeSize(), 0u);
  EXPECT_EQ(heldLater->GetOwnerComputeGraph(), nullptr);
  EXPECT_EQ(heldLater->ROLE(NodeSpec).InDataEdgeSize(), 0u);
  // An anchor's handle holds its node: the node outlives the graph, detached like the others.
  EXPECT_EQ(heldInput->GetPeerOutAnchor(), nullptr);
  ASSERT_NE(heldInput->GetOwnerNode(), nullptr);
  EXPECT_EQ(heldInput->GetOwnerNode()->GetName(), "out");
  EXPECT_EQ(heldInput->GetOwnerNode()->GetOwnerComputeGraph(), nullptr);
  EXPECT_EQ(heldDesc->GetShape(), tov::Shape({2}));
  ASSERT_EQ(weight->GetData().GetSize(), 8u);
  EXPECT_EQ(reinterpret_cast<const float*>(weight->GetData().GetData())[1], 2.0f);
}

// Every way of copying or moving a shape between inline and heap storage keeps the values and
// leaves a moved-from shape empty but usable.
TEST(GraphStorageTest, ShapesCopyAndMoveAcrossInlineAndHeapStorage) {
  const auto dims = [](size_t count) {
    std::vector<int64_t> values(count);
    for (size_t i = 0; i < count; ++i) values[i] = static_cast<int64_t>(i * 7 + 1);
    return values;
  };
  const size_t sizes[] = {0, 3, 8, 9, 20};
  for (size_t from : sizes) {
    for (size_t to : sizes) {
      SCOPED_TRACE(std::to_string(from) + " dimensions over " + std::to_string(to));
      const tov::Shape source(dims(from));
      tov::Shape copied(dims(to));
      copied = source;
      tov::Shape& alias = copied;
      copied = alias;
      copied = std::move(alias);
      EXPECT_EQ(copied.GetDims(), dims(from));  // also after assigning it to itself
      if (from > 0) {
        ASSERT_EQ(copied.SetDim(from - 1, -5), tov::GRAPH_SUCCESS);
      }
      EXPECT_EQ(source.GetDims(), dims(from));  // a copy is edited on its own
      tov::Shape moved(dims(to));
      tov::Shape donor = source;
      moved = std::move(donor);
      EXPECT_EQ(moved.GetDims(), dims(from));
      EXPECT_EQ(donor.GetDimNum(), 0u);  // NOLINT: moved-from state is specified
      donor = tov::Shape(dims(to));
      EXPECT_EQ(donor.GetDims(), dims(to));
      tov::Shape constructed(std::move(moved));
      EXPECT_EQ(constructed.GetDims(), dims(from));
    }
  }
}

// Growing past the capacity, inserting in the middle and erasing keep every other element in
// order; on the heap, Release gives all storage back (the sanitizer build checks it).
TEST(GraphStorageTest, CompactListsKeepTheirOrderAcrossGrowthInsertAndErase) {
  std::pmr::memory_resource* heap = std::pmr::new_delete_resource();
  tov::ArenaVector<int> list;
  std::vector<int> expected;
  for (int i = 0; i < 9; ++i) {
    list.push_back(i, heap);
    expected.push_back(i);
  }
  list.insert(3, 100, heap);
  expected.insert(expected.begin() + 3, 100);
  list.insert(0, -1, heap);
  expected.insert(expected.begin(), -1);
  list.erase(5);
  expected.erase(expected.begin() + 5);
  list.erase(list.size() - 1);
  expected.pop_back();
  EXPECT_EQ(std::vector<int>(list.begin(), list.end()), expected);
  list.reserve(64, heap);
  EXPECT_EQ(std::vector<int>(list.begin(), list.end()), expected);
  const std::vector<bool> flags{true, false, true};
  tov::ArenaVector<uint8_t> bytes;
  bytes.assign(flags.begin(), flags.end(), heap);
  EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.end()), (std::vector<uint8_t>{1, 0, 1}));
  list.Release(heap);
  bytes.Release(heap);
  EXPECT_TRUE(list.empty() && bytes.empty());
}

// Producers are found wherever they stand: listed after their consumer (such inputs connect once
// every op is in, keeping their input positions and the graph its order), or added long before
// it among thousands of others.
TEST(GraphStorageTest, ProducersListedLaterOrFarBackAreFound) {
  ModelBuilder model;
  model.Op("sum", "Add").Input("d0").Input("d1").InputDesc({1}).InputDesc({1}).Output();
  model.Op("ctl", "NoOp").Control("d1");
  const int count = 3000;
  for (int i = 0; i < count; ++i) model.Data("d" + std::to_string(i));
  const int firsts[] = {0, 1, 1499, 2998};
  for (int first : firsts) {
    const std::string a = "d" + std::to_string(first);
    const std::string b = "d" + std::to_string(count - 1 - first);
    model.Op("sum" + a, "Add").Input(a).Input(b).InputDesc({1}).InputDesc({1}).Output();
  }
  auto graph = model.LoadGraph();
  ASSERT_NE(graph, nullptr);
  EXPECT_EQ(NodeNames(*graph)[2], "d0");
  EXPECT_EQ(ProducersOf(*graph->FindNode("sum")), (Names{"d0", "d1"}));
  EXPECT_EQ(graph->FindNode("ctl")->RoleNodeWalker().InControlNodes().size(), 1u);
  for (int first : firsts) {
    const std::string a = "d" + std::to_string(first);
    EXPECT_EQ(ProducersOf(*graph->FindNode("sum" + a)),
              (Names{a, "d" + std::to_string(count - 1 - first)}));
  }
}

TEST(GraphStorageTest, AttributeNamesInternedFromSeveralThreadsAreOneName) {
  std::vector<const std::string*> seen(8);
  std::vector<std::thread> threads;
  for (size_t t = 0; t < seen.size(); ++t) {
    threads.emplace_back([&seen, t] {
      for (int i = 0; i < 200; ++i) tov::AttrName::Intern("name_" + std::to_string(i));
      seen[t] = &tov::AttrName::Intern("name_7").str();
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const std::string* name : seen) EXPECT_EQ(name, seen[0]);
  EXPECT_EQ(*seen[0], "name_7");
}

}  // namespace
