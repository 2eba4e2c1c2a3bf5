#include <gtest/gtest.h>

#include "graph/op_desc_utils.h"
#include "model_builder.h"

namespace {

using testkit::Int32Data;
using testkit::ModelBuilder;
using testkit::NodeNames;
using testkit::ProducersOf;
using tov::OpDescUtils;

tov::TensorPtr Int32Tensor(std::vector<int32_t> values) {
  tov::TensorDesc desc(tov::Shape({static_cast<int64_t>(values.size())}), tov::FORMAT_NCHW,
                       tov::DT_INT32);
  return std::make_shared<tov::Tensor>(desc, reinterpret_cast<const uint8_t*>(values.data()),
                                       values.size() * sizeof(int32_t));
}

ModelBuilder WithWeights() {
  ModelBuilder model;
  model.Data("x");
  model.ConstInt32("w0", {1});
  model.ConstInt32("w1", {2});
  model.Op("op", "Conv2D").Input("x").Input("w0").Input("w1").Output();
  model.Unary("next", "Relu", "op");
  return model;
}

TEST(WeightsTest, MutableWeightsAreTheConstTensorsInInputOrderAndChangesStick) {
  auto graph = WithWeights().LoadGraph();
  auto op = graph->FindNode("op");
  auto weights = OpDescUtils::MutableWeights(*op);
  ASSERT_EQ(weights.size(), 2u);
  EXPECT_EQ(Int32Data(*weights[0]), std::vector<int32_t>{1});
  weights[1]->MutableTensorDesc().SetShape(tov::Shape({1, 1}));
  EXPECT_EQ(OpDescUtils::MutableWeights(*op)[1]->GetTensorDesc().GetShape(), tov::Shape({1, 1}));
  EXPECT_EQ(OpDescUtils::GetConstInputs(*op).size(), 2u);
  EXPECT_EQ(OpDescUtils::GetNonConstInputsSize(*op), 1u);
}

TEST(WeightsTest, SetWeightsAppendsNewConstantsAfterExistingWeights) {
  auto graph = WithWeights().LoadGraph();
  auto op = graph->FindNode("op");
  auto weights = OpDescUtils::MutableWeights(*op);
  weights.push_back(Int32Tensor({7, 8}));
  ASSERT_EQ(OpDescUtils::SetWeights(*op, weights), tov::GRAPH_SUCCESS);
  EXPECT_EQ(ProducersOf(*op), (std::vector<std::string>{"x", "w0", "w1", "op_weight_3"}));
  EXPECT_EQ(op->GetOpDesc()->GetInputsSize(), 4u);
  EXPECT_EQ(op->GetOpDesc()->GetInputDesc(3).GetDataType(), tov::DT_INT32);
  EXPECT_EQ(Int32Data(*OpDescUtils::MutableWeights(*op)[2]), (std::vector<int32_t>{7, 8}));
  // The new Const precedes its consumer in node order.
  EXPECT_EQ(NodeNames(*graph),
            (std::vector<std::string>{"x", "w0", "w1", "op_weight_3", "op", "next"}));
}

TEST(WeightsTest, SetWeightsOnANodeWithoutConstInputs) {
  ModelBuilder model;
  model.Data("x");
  model.Unary("op", "ReduceMeanD", "x");
  auto graph = model.LoadGraph();
  auto op = graph->FindNode("op");
  ASSERT_EQ(OpDescUtils::SetWeights(*op, {Int32Tensor({1, 2})}), tov::GRAPH_SUCCESS);
  EXPECT_EQ(OpDescUtils::MutableWeights(*op).size(), 1u);
  EXPECT_EQ(OpDescUtils::GetNonConstInputsSize(*op), 1u);
  EXPECT_EQ(op->GetOpDesc()->GetIsInputConst(), std::vector<bool>{});
}

TEST(WeightsTest, SetWeightsReusesTheConstNodeAlreadyHoldingATensor) {
  auto graph = WithWeights().LoadGraph();
  auto op = graph->FindNode("op");
  auto desc = std::make_shared<tov::OpDesc>("op", "Replacement");
  desc->AddInputDesc({});
  desc->AddOutputDesc({});
  auto replacement = graph->AddNode(desc);
  ASSERT_EQ(OpDescUtils::SetWeights(*replacement, OpDescUtils::MutableWeights(*op)),
            tov::GRAPH_SUCCESS);
  EXPECT_EQ(ProducersOf(*replacement), (std::vector<std::string>{"", "w0", "w1"}));
  graph->RemoveNode(*op);
  // The Consts still feed the replacement, so they stay.
  EXPECT_EQ(NodeNames(*graph), (std::vector<std::string>{"x", "w0", "w1", "op", "next"}));
}

TEST(WeightsTest, SetWeightsWithFewerTensorsRemovesSurplusConstInputs) {
  auto graph = WithWeights().LoadGraph();
  auto op = graph->FindNode("op");
  auto weights = OpDescUtils::MutableWeights(*op);
  ASSERT_EQ(OpDescUtils::SetWeights(*op, {weights[1]}), tov::GRAPH_SUCCESS);
  EXPECT_EQ(ProducersOf(*op), (std::vector<std::string>{"x", "w1"}));
  EXPECT_EQ(graph->FindNode("w0"), nullptr);
  EXPECT_EQ(OpDescUtils::SetWeights(*op, {nullptr}), tov::GRAPH_PARAM_INVALID);
}

}  // namespace
