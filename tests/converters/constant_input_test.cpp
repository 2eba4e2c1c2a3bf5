// ReduceMeanD and BatchToSpace turn attributes into INT32 constant inputs.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "converter_test_support.h"

namespace {

using convtest::AttrOf;
using convtest::Convert;
using convtest::Ints;
using convtest::Line;
using convtest::Quoted;
using Int32s = std::vector<int32_t>;
using Edit = std::function<void(testkit::OpBuilder&)>;

// A single-input node fed by x; with `withWeight`, a constant "k" feeds its second input.
std::shared_ptr<tov::ComputeGraph> OneNodeGraph(const std::string& type, const Ints& inputShape,
                                                bool withWeight, const Edit& edit) {
  testkit::ModelBuilder model;
  model.Data("x", inputShape);
  if (withWeight) model.ConstInt32("k", {7}, {1});
  testkit::OpBuilder op = model.Unary("n", type, "x", inputShape);
  if (withWeight) op.Input("k").InputConst({false, true});
  edit(op);
  return convtest::Load(model);
}

void ExpectInt32Constant(const tov::Tensor& tensor, const Int32s& data, const Ints& shape) {
  EXPECT_EQ(testkit::Int32Data(tensor), data);
  EXPECT_EQ(tensor.GetTensorDesc().GetShape().GetDims(), shape);
  EXPECT_EQ(tensor.GetTensorDesc().GetDataType(), tov::DT_INT32);
  EXPECT_EQ(tensor.GetTensorDesc().GetFormat(), 0);
}

TEST(ReduceMeanDConverter, AxesBecomeTheLastConstantInput) {
  struct Row {
    const char* name;
    Edit edit;
    Int32s axes;
  };
  const Row rows[] = {
      {"listed",
       [](auto& op) {
         op.Attr("axes", Ints{1, 2});
       },
       {1, 2}},
      {"negative", [](auto& op) { op.Attr("axes", Ints{-1}); }, {-1}},
      {"truncated",
       [](auto& op) {
         op.Attr("axes", Ints{4294967298, -4294967295});
       },
       {2, 1}},
      {"absent", [](auto&) {}, {0, 1, 2, 3}},
      {"empty", [](auto& op) { op.EmptyListAttr("axes"); }, {0, 1, 2, 3}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    auto graph = OneNodeGraph("ReduceMeanD", {1, 3, 8, 8}, /*withWeight=*/false, [&](auto& op) {
      op.Attr("keep_dims", true);
      row.edit(op);
    });
    ASSERT_EQ(Convert(*graph, "n"), 0u);
    EXPECT_EQ(convtest::TypeOf(*graph, "n"), "ReduceMean");
    EXPECT_FALSE(AttrOf<Ints>(*graph, "n", "axes").has_value());
    EXPECT_EQ(AttrOf<bool>(*graph, "n", "keep_dims"), true);
    const auto weights = convtest::WeightsOf(*graph, "n");
    ASSERT_EQ(weights.size(), 1u);
    ExpectInt32Constant(*weights[0], row.axes, {static_cast<int64_t>(row.axes.size())});
  }
}

TEST(ReduceMeanDConverter, ScalarInputIsRefusedAfterTheRetype) {
  auto graph = OneNodeGraph("ReduceMeanD", {}, false, [](auto& op) { op.Attr("axes", Ints{0}); });
  testkit::LogCapture log;
  EXPECT_EQ(Convert(*graph, "n"), 1u);
  convtest::ExpectSingleLine(
      log, Line("OrvaneReduceMeanDParserFunc", 294, Quoted("dim num is invaild")));
  EXPECT_EQ(convtest::TypeOf(*graph, "n"), "ReduceMean");
  EXPECT_FALSE(AttrOf<Ints>(*graph, "n", "axes").has_value());
  EXPECT_TRUE(convtest::WeightsOf(*graph, "n").empty());
}

TEST(BatchToSpaceConverter, BlockShapeAndCropsBecomeTwoConstantInputs) {
  struct Row {
    const char* type;
    int64_t blockSize;  // read by BatchToSpaceD
    Ints blockShape;    // read by BatchToSpaceNDD
    Ints crops;
    Int32s block;
    Ints cropsShape;
  };
  const Row rows[] = {
      {"BatchToSpaceD", 2, {}, {0, 0, 0, 0}, {2, 2}, {2, 2}},
      {"BatchToSpaceNDD", 0, {2, 3}, {0, 1, 2, 3}, {2, 3}, {2, 2}},
      {"BatchToSpaceNDD", 0, {4}, {1, 1}, {4}, {1, 2}},
      {"BatchToSpaceD", 4294967298, {}, {-1, 3}, {2, 2}, {1, 2}},
      {"BatchToSpaceNDD", 0, {2, 2}, {}, {2, 2}, {0, 2}},
      {"BatchToSpaceNDD", 0, {2}, {1, 2, 3}, {2}, {1, 2}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.crops));
    auto graph = OneNodeGraph(row.type, {4, 3, 8, 8}, false, [&](testkit::OpBuilder& op) {
      if (row.blockShape.empty()) op.Attr("block_size", row.blockSize);
      if (!row.blockShape.empty()) op.Attr("block_shape", row.blockShape);
      if (row.crops.empty()) op.EmptyListAttr("crops");
      if (!row.crops.empty()) op.Attr("crops", row.crops);
    });
    ASSERT_EQ(Convert(*graph, "n"), 0u);
    EXPECT_EQ(convtest::TypeOf(*graph, "n"), "BatchToSpaceND");
    for (const char* gone : {"block_shape", "block_size", "crops"}) {
      EXPECT_FALSE(testkit::NodeNamed(*graph, "n")->GetOpDesc()->HasAttr(gone)) << gone;
    }
    const auto weights = convtest::WeightsOf(*graph, "n");
    ASSERT_EQ(weights.size(), 2u);
    ExpectInt32Constant(*weights[0], row.block, {static_cast<int64_t>(row.block.size())});
    ExpectInt32Constant(*weights[1], Int32s(row.crops.begin(), row.crops.end()), row.cropsShape);
    EXPECT_EQ(weights[1]->GetData().GetData() == nullptr, row.crops.empty());
  }
}

TEST(BatchToSpaceConverter, MissingAttributeLeavesTheNodeUnchanged) {
  struct Row {
    const char* type;
    Edit edit;
    int line;
    const char* message;
  };
  const Row rows[] = {
      {"BatchToSpaceNDD",
       [](auto& op) {
         op.Attr("block_size", 2).Attr("crops", Ints{0, 0});
       },
       444, "get blockShape fail."},
      {"BatchToSpaceD",
       [](auto& op) {
         op.Attr("block_shape", Ints{2, 2}).Attr("crops", Ints{0, 0});
       },
       448, "get blockSize fail."},
      {"BatchToSpaceD", [](auto& op) { op.Attr("block_size", 2); }, 453, "get crops fail."},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.line);
    auto graph = OneNodeGraph(row.type, {4, 3, 8, 8}, true, row.edit);
    ASSERT_NE(testkit::NodeNamed(*graph, "n"), nullptr);
    const auto attrsBefore = testkit::NodeNamed(*graph, "n")->GetOpDesc()->GetAllAttrs();
    testkit::LogCapture log;
    EXPECT_EQ(Convert(*graph, "n"), 1u);
    convtest::ExpectSingleLine(log, Line("BatchToSpaceParserFunc", row.line, Quoted(row.message)));
    EXPECT_EQ(convtest::TypeOf(*graph, "n"), row.type);
    EXPECT_EQ(testkit::NodeNamed(*graph, "n")->GetOpDesc()->GetAllAttrs(), attrsBefore);
    EXPECT_EQ(convtest::WeightsOf(*graph, "n").size(), 1u);
    EXPECT_EQ(convtest::ConstFlagsOf(*graph, "n"), (std::vector<bool>{false, true}));
  }
}

// Existing weights stay in front; every new constant adds one true constness flag at the end.
TEST(ConstantInputConverters, ExistingWeightsStayInFront) {
  struct Row {
    const char* type;
    Edit edit;
    size_t added;
  };
  const Row rows[] = {
      {"ReduceMeanD", [](auto& op) { op.Attr("axes", Ints{1}); }, 1},
      {"BatchToSpaceD",
       [](auto& op) {
         op.Attr("block_size", 2).Attr("crops", Ints{0, 0});
       },
       2},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.type);
    auto graph = OneNodeGraph(row.type, {4, 3, 8, 8}, true, row.edit);
    ASSERT_EQ(Convert(*graph, "n"), 0u);
    const auto weights = convtest::WeightsOf(*graph, "n");
    ASSERT_EQ(weights.size(), 1 + row.added);
    EXPECT_EQ(testkit::Int32Data(*weights[0]), Int32s{7});
    std::vector<bool> flags{false, true};
    flags.insert(flags.end(), row.added, true);
    EXPECT_EQ(convtest::ConstFlagsOf(*graph, "n"), flags);
    EXPECT_EQ(testkit::ProducersOf(*testkit::NodeNamed(*graph, "n"))[1], "k");
  }
}

}  // namespace
