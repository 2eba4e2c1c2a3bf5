#include <gtest/gtest.h>

#include "graph/op_desc_utils.h"
#include "model_builder.h"

namespace {

using testkit::Int32Data;
using testkit::NodeNames;
using testkit::ProducersOf;
using tov::OpDescUtils;
using Names = std::vector<std::string>;

tov::TensorPtr Int32Tensor(std::vector<int32_t> values) {
  tov::TensorDesc desc(tov::Shape({static_cast<int64_t>(values.size())}), tov::FORMAT_NCHW,
                       tov::DT_INT32);
  return std::make_shared<tov::Tensor>(desc, reinterpret_cast<const uint8_t*>(values.data()),
                                       values.size() * sizeof(int32_t));
}

// x, w0, w1 -> op -> next
std::shared_ptr<tov::ComputeGraph> WithWeights() {
  testkit::ModelBuilder model;
  model.Data("x");
  model.ConstInt32("w0", {1});
  model.ConstInt32("w1", {2});
  model.Op("op", "Conv2D").Input("x").Input("w0").Input("w1").Output();
  model.Unary("next", "Relu", "op");
  return model.LoadGraph();
}

TEST(WeightsTest, SetWeightsAppendsNewConstantsBeforeTheirConsumerOrRemovesSurplusOnes) {
  auto graph = WithWeights();
  auto op = graph->FindNode("op");
  auto weights = OpDescUtils::MutableWeights(*op);
  ASSERT_EQ(weights.size(), 2u);
  EXPECT_EQ(Int32Data(*weights[0]), std::vector<int32_t>{1});
  EXPECT_EQ(OpDescUtils::GetNonConstInputsSize(*op), 1u);
  weights.push_back(Int32Tensor({7, 8}));
  ASSERT_EQ(OpDescUtils::SetWeights(*op, weights), tov::GRAPH_SUCCESS);
  EXPECT_EQ(ProducersOf(*op), (Names{"x", "w0", "w1", "op_weight_3"}));
  EXPECT_EQ(op->GetOpDesc()->GetInputDesc(3).GetDataType(), tov::DT_INT32);
  EXPECT_EQ(Int32Data(*OpDescUtils::MutableWeights(*op)[2]), (std::vector<int32_t>{7, 8}));
  EXPECT_EQ(NodeNames(*graph), (Names{"x", "w0", "w1", "op_weight_3", "op", "next"}));

  // A taken name gets a numbered suffix; a node outside any graph takes no weights.
  weights.push_back(Int32Tensor({9}));
  ASSERT_EQ(OpDescUtils::SetWeights(*op, weights), tov::GRAPH_SUCCESS);
  EXPECT_EQ(ProducersOf(*op).back(), "op_weight_4");
  graph->AddNode(std::make_shared<tov::OpDesc>("op_weight_5", "NoOp"));
  weights.push_back(Int32Tensor({10}));
  ASSERT_EQ(OpDescUtils::SetWeights(*op, weights), tov::GRAPH_SUCCESS);
  EXPECT_EQ(ProducersOf(*op).back(), "op_weight_5_1");
  ASSERT_EQ(graph->RemoveNode(*op), tov::GRAPH_SUCCESS);
  EXPECT_EQ(OpDescUtils::SetWeights(*op, weights), tov::GRAPH_PARAM_INVALID);

  // Fewer tensors than constant inputs: the surplus inputs and the constants only they fed go.
  graph = WithWeights();
  op = graph->FindNode("op");
  ASSERT_EQ(OpDescUtils::SetWeights(*op, {OpDescUtils::MutableWeights(*op)[1]}),
            tov::GRAPH_SUCCESS);
  EXPECT_EQ(ProducersOf(*op), (Names{"x", "w1"}));
  EXPECT_EQ(graph->FindNode("w0"), nullptr);
  EXPECT_EQ(OpDescUtils::SetWeights(*op, {nullptr}), tov::GRAPH_PARAM_INVALID);
}

}  // namespace
