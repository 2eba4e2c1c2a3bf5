// ReduceMeanD and BatchToSpace turn attributes into INT32 constant inputs.
#include <gtest/gtest.h>

#include <functional>

#include "parse.h"

namespace {

using namespace testkit;
using Int32s = std::vector<int32_t>;
using Edit = std::function<void(OpBuilder&)>;

// x, k -> n (of `type`, then changed by `edit`): the constant k is an existing weight, which
// stays in front of the constants a converter adds.
std::shared_ptr<tov::ComputeGraph> OneNodeGraph(const std::string& type, const Ints& inputShape,
                                                const Edit& edit) {
  ModelBuilder model;
  model.Data("x", inputShape);
  model.ConstInt32("k", {7}, {1});
  OpBuilder op = model.Unary("n", type, "x", inputShape);
  op.Input("k").InputConst({false, true});
  edit(op);
  return Load(model);
}

// The node's weights: k, then `added` new ones, each marked constant.
std::vector<tov::TensorPtr> WeightsAfterK(const tov::ComputeGraph& graph, size_t added) {
  const auto weights = WeightsOf(graph, "n");
  EXPECT_EQ(weights.size(), 1 + added);
  EXPECT_EQ(Int32Data(*weights.at(0)), Int32s{7});
  std::vector<bool> flags(2 + added, true);
  flags[0] = false;
  EXPECT_EQ(Desc(graph, "n").GetIsInputConst(), flags);
  return weights;
}

void ExpectInt32Constant(const tov::Tensor& tensor, const Int32s& data, const Ints& shape) {
  EXPECT_EQ(Int32Data(tensor), data);
  EXPECT_EQ(tensor.GetTensorDesc().GetShape().GetDims(), shape);
  EXPECT_EQ(tensor.GetTensorDesc().GetDataType(), tov::DT_INT32);
  EXPECT_EQ(tensor.GetTensorDesc().GetFormat(), tov::FORMAT_NCHW);
}

// Values keep their low 32 bits; without axes, every axis of the input is reduced.
TEST(ReduceMeanDConverter, AxesBecomeTheLastConstantInput) {
  const std::pair<Ints, Int32s> rows[] = {
      {{1, 2}, {1, 2}}, {{4294967298, -4294967295}, {2, 1}}, {{}, {0, 1, 2, 3}}};
  for (const auto& [axes, constant] : rows) {
    SCOPED_TRACE(::testing::PrintToString(axes));
    // A structured binding is captured through an initialiser: clang 14 refuses to capture one.
    auto graph = OneNodeGraph("ReduceMeanD", {1, 3, 8, 8}, [&axes = axes](OpBuilder& op) {
      op.Attr("keep_dims", true);
      if (!axes.empty()) op.Attr("axes", axes);
    });
    ASSERT_EQ(Convert(*graph, "n"), 0u);
    EXPECT_EQ(Desc(*graph, "n").GetType(), "ReduceMean");
    EXPECT_EQ(AttrsText(Desc(*graph, "n")), "keep_dims=true");
    const auto weights = WeightsAfterK(*graph, 1);
    ASSERT_EQ(weights.size(), 2u);
    ExpectInt32Constant(*weights[1], constant, {static_cast<int64_t>(constant.size())});
  }
}

// A scalar input has no axis to reduce; the node is already retyped and loses its axes.
TEST(ReduceMeanDConverter, ScalarInputIsRefusedAfterTheRetype) {
  auto graph = OneNodeGraph("ReduceMeanD", {}, [](auto& op) { op.Attr("axes", Ints{0}); });
  ExpectConvertRefused(*graph, 1, "OrvaneReduceMeanDParserFunc", 294, Quoted("dim num is invaild"));
  EXPECT_EQ(AttrsText(Desc(*graph, "n")), "");
  WeightsAfterK(*graph, 0);
}

// BatchToSpaceD reads block_size (a square block), BatchToSpaceNDD block_shape; crops become a
// [n/2, 2] constant, without data when empty.
TEST(BatchToSpaceConverter, BlockAndCropsBecomeTwoConstantInputs) {
  struct Row {
    Ints blockShape;  // empty: BatchToSpaceD with block_size 4294967298
    Ints crops;
    Int32s block;
    Ints cropsShape;
  };
  const Row rows[] = {
      {{}, {0, 0, 0, 0}, {2, 2}, {2, 2}},
      {{4}, {1, 1}, {4}, {1, 2}},
      {{2, 3}, {}, {2, 3}, {0, 2}},
      {{2}, {1, 2, 3}, {2}, {1, 2}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.crops));
    const bool nd = !row.blockShape.empty();
    auto graph =
        OneNodeGraph(nd ? "BatchToSpaceNDD" : "BatchToSpaceD", {4, 3, 8, 8}, [&](OpBuilder& op) {
          if (!nd) op.Attr("block_size", int64_t{4294967298});
          if (nd) op.Attr("block_shape", row.blockShape);
          if (row.crops.empty()) op.EmptyListAttr("crops");
          if (!row.crops.empty()) op.Attr("crops", row.crops);
        });
    ASSERT_EQ(Convert(*graph, "n"), 0u);
    EXPECT_EQ(Desc(*graph, "n").GetType(), "BatchToSpaceND");
    EXPECT_EQ(AttrsText(Desc(*graph, "n")), "");
    const auto weights = WeightsAfterK(*graph, 2);
    ASSERT_EQ(weights.size(), 3u);
    ExpectInt32Constant(*weights[1], row.block, {static_cast<int64_t>(row.block.size())});
    ExpectInt32Constant(*weights[2], Int32s(row.crops.begin(), row.crops.end()), row.cropsShape);
    EXPECT_EQ(weights[2]->GetData().GetData() == nullptr, row.crops.empty());
  }
}

TEST(BatchToSpaceConverter, MissingAttributeLeavesTheNodeUnchanged) {
  struct Row {
    const char* type;
    Edit edit;
    int line;
    const char* message;
  };
  const Edit withSize = [](auto& op) { op.Attr("block_size", 2).Attr("crops", Ints{0, 0}); };
  const Edit withShape = [](auto& op) {
    op.Attr("block_shape", Ints{2, 2}).Attr("crops", Ints{0});
  };
  const Row rows[] = {
      {"BatchToSpaceNDD", withSize, 444, "get blockShape fail."},
      {"BatchToSpaceD", withShape, 448, "get blockSize fail."},
      {"BatchToSpaceD", [](auto& op) { op.Attr("block_size", 2); }, 453, "get crops fail."},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.line);
    auto graph = OneNodeGraph(row.type, {4, 3, 8, 8}, row.edit);
    const auto attrsBefore = Desc(*graph, "n").GetAllAttrs();
    ExpectConvertRefused(*graph, 1, "BatchToSpaceParserFunc", row.line, Quoted(row.message));
    EXPECT_EQ(Desc(*graph, "n").GetType(), row.type);
    EXPECT_EQ(Desc(*graph, "n").GetAllAttrs(), attrsBefore);
    WeightsAfterK(*graph, 0);
  }
}

}  // namespace
