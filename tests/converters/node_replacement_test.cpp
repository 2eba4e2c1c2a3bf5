// BatchNorm and Concat replace their node by a new one that takes over its name, place,
// producers and consumers.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "converter_test_support.h"

namespace {

using convtest::AttrOf;
using convtest::Convert;
using convtest::Line;
using convtest::Quoted;
using Names = std::vector<std::string>;
using Edit = std::function<void(testkit::OpBuilder&)>;
using AddConstants = std::function<void(testkit::ModelBuilder&)>;

Names Numbered(const std::string& prefix, size_t count) {
  Names names;
  for (size_t i = 0; i < count; ++i) names.push_back(prefix + std::to_string(i));
  return names;
}

// Data x0..x2, the constants, then `name` of `type` fed by `inputs` (constness flags from the
// producers' names), then `consumers` Relu nodes c0, c1, ... fed by its output 0.
std::shared_ptr<tov::ComputeGraph> ReplacementGraph(const std::string& type, const Names& inputs,
                                                    size_t consumers, const AddConstants& constants,
                                                    const Edit& edit) {
  testkit::ModelBuilder model;
  for (const std::string& data : Numbered("x", 3)) model.Data(data);
  constants(model);
  testkit::OpBuilder op = model.Op("n", type);
  std::vector<bool> flags;
  for (const std::string& input : inputs) {
    op.Input(input);
    flags.push_back(input[0] != 'x');
  }
  op.InputConst(flags).Output({1, 3, 8, 8}).Attr("carried", "no");
  edit(op);
  for (const std::string& consumer : Numbered("c", consumers)) model.Unary(consumer, "Relu", "n");
  return convtest::Load(model);
}

void ExpectUnchanged(const tov::ComputeGraph& graph, const Names& namesBefore,
                     const std::string& type) {
  EXPECT_EQ(testkit::NodeNames(graph), namesBefore);
  EXPECT_EQ(convtest::TypeOf(graph, "n"), type);
}

// Every node name once, in the original order; the replaced node has default descriptions.
void ExpectReplacedInPlace(const tov::ComputeGraph& graph, Names namesBefore,
                           const std::string& droppedConst) {
  namesBefore.erase(std::remove(namesBefore.begin(), namesBefore.end(), droppedConst),
                    namesBefore.end());
  EXPECT_EQ(testkit::NodeNames(graph), namesBefore);
  const tov::OpDescPtr desc = testkit::NodeNamed(graph, "n")->GetOpDesc();
  EXPECT_EQ(desc->GetOutputsSize(), 1u);
  EXPECT_EQ(desc->GetOutputDesc(0), tov::TensorDesc());
  EXPECT_EQ(desc->GetInputDesc(0), tov::TensorDesc());
  EXPECT_FALSE(desc->HasAttr("carried"));
  EXPECT_EQ(AttrOf<int64_t>(graph, "n", "version"), 5);
}

AddConstants FourStatistics(size_t count = 4) {
  return [count](testkit::ModelBuilder& model) {
    for (const std::string& name : Numbered("p", count)) model.ConstFloat(name, {1.0f}, {1});
  };
}

struct BatchNormCase {
  const char* type;
  size_t consumers;
  std::optional<float> epsilon;
};
std::ostream& operator<<(std::ostream& out, const BatchNormCase& c) {
  return out << c.type << " with " << c.consumers << " consumers";
}

class BatchNormReplacement : public ::testing::TestWithParam<BatchNormCase> {};

TEST_P(BatchNormReplacement, BecomesBNInferenceFedAndConsumedLikeTheSource) {
  const BatchNormCase& param = GetParam();
  auto graph = ReplacementGraph(param.type, {"x0", "p0", "p1", "p2", "p3"}, param.consumers,
                                FourStatistics(), [&](testkit::OpBuilder& op) {
                                  op.Attr("momentum", 0.5f);
                                  if (param.epsilon) op.Attr("epsilon", *param.epsilon);
                                });
  const Names namesBefore = testkit::NodeNames(*graph);

  ASSERT_EQ(Convert(*graph, "n"), 0u);
  ExpectReplacedInPlace(*graph, namesBefore, "");
  const tov::NodePtr node = testkit::NodeNamed(*graph, "n");
  EXPECT_EQ(node->GetType(), "BNInference");
  EXPECT_EQ(testkit::ProducersOf(*node), (Names{"x0", "p0", "p1", "p2", "p3"}));
  EXPECT_EQ(testkit::ConsumersOf(*node), Numbered("c", param.consumers));
  EXPECT_EQ(node->GetOpDesc()->GetIsInputConst(),
            (std::vector<bool>{false, true, true, true, true}));
  EXPECT_EQ(AttrOf<float>(*graph, "n", "epsilon"), param.epsilon.value_or(0.0001f));
  EXPECT_EQ(AttrOf<float>(*graph, "n", "momentum"), 0.9f);
  EXPECT_EQ(AttrOf<int64_t>(*graph, "n", "mode"), 1);
  EXPECT_EQ(AttrOf<bool>(*graph, "n", "use_global_stats"), true);
}

INSTANTIATE_TEST_SUITE_P(ConsumerCounts, BatchNormReplacement,
                         ::testing::Values(BatchNormCase{"BatchNorm", 0, std::nullopt},
                                           BatchNormCase{"BatchNormExt2", 1, 0.001f},
                                           BatchNormCase{"BatchNorm", 3, std::nullopt}));

TEST(BatchNormReplacement, RefusesWrongInputsAndTrainingModeWithoutTouchingTheGraph) {
  struct Row {
    Names inputs;
    size_t constants;
    bool training;
    uint32_t status;
    int line;
    const char* message;
  };
  const char* kInputs = "BatchNorm should have 1 non const input and 4 weights";
  const Row rows[] = {
      {{"x0", "p0", "p1", "p2"}, 3, false, 3, 66, kInputs},
      {{"x0", "p0", "p1", "p2", "p3", "p4"}, 5, false, 3, 66, kInputs},
      {{"x0", "x1", "p0", "p1", "p2", "p3"}, 4, false, 3, 66, kInputs},
      {{"x0", "p0", "p1", "p2", "p3"}, 4, true, 1, 73, "only support is_training as false"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.inputs));
    auto graph =
        ReplacementGraph("BatchNormExt2", row.inputs, 1, FourStatistics(row.constants),
                         [&](testkit::OpBuilder& op) { op.Attr("is_training", row.training); });
    const Names namesBefore = testkit::NodeNames(*graph);
    testkit::LogCapture log;
    EXPECT_EQ(Convert(*graph, "n"), row.status);
    convtest::ExpectSingleLine(log, Line("BatchNormParserFunc", row.line, Quoted(row.message)));
    ExpectUnchanged(*graph, namesBefore, "BatchNormExt2");
  }
}

AddConstants Int32Axis(std::vector<int32_t> values) {
  return [values](testkit::ModelBuilder& model) {
    model.ConstInt32("axis", values,
                     values.empty() ? std::vector<int64_t>{0} : std::vector<int64_t>{});
  };
}

struct ConcatCase {
  const char* type;
  size_t consumers;
};
std::ostream& operator<<(std::ostream& out, const ConcatCase& c) {
  return out << c.type << " with " << c.consumers << " consumers";
}

class ConcatReplacement : public ::testing::TestWithParam<ConcatCase> {};

TEST_P(ConcatReplacement, BecomesConcatDOverTheDataInputsAndDropsTheAxisConstant) {
  auto graph = ReplacementGraph(GetParam().type, {"x0", "x1", "x2", "axis"}, GetParam().consumers,
                                Int32Axis({1}), [](testkit::OpBuilder&) {});
  const Names namesBefore = testkit::NodeNames(*graph);

  ASSERT_EQ(Convert(*graph, "n"), 0u);
  ExpectReplacedInPlace(*graph, namesBefore, "axis");
  const tov::NodePtr node = testkit::NodeNamed(*graph, "n");
  EXPECT_EQ(node->GetType(), "ConcatD");
  EXPECT_EQ(testkit::ProducersOf(*node), (Names{"x0", "x1", "x2"}));
  EXPECT_EQ(testkit::ConsumersOf(*node), Numbered("c", GetParam().consumers));
  EXPECT_EQ(testkit::CountByType(*graph, "Const"), 0u);
  EXPECT_EQ(AttrOf<int64_t>(*graph, "n", "concat_dim"), 1);
  EXPECT_FALSE(AttrOf<int64_t>(*graph, "n", "N").has_value());
  EXPECT_TRUE(node->GetOpDesc()->GetIsInputConst().empty());
}

INSTANTIATE_TEST_SUITE_P(ConsumerCounts, ConcatReplacement,
                         ::testing::Values(ConcatCase{"Concat", 0}, ConcatCase{"ConcatV2", 1},
                                           ConcatCase{"Concat", 3}));

TEST(ConcatReplacement, OneDataInputNegativeAxisAndInputCountAreKept) {
  auto graph = ReplacementGraph("ConcatV2", {"x0", "axis"}, 1, Int32Axis({-1}),
                                [](testkit::OpBuilder& op) { op.Attr("N", 3); });
  ASSERT_EQ(Convert(*graph, "n"), 0u);
  EXPECT_EQ(testkit::ProducersOf(*testkit::NodeNamed(*graph, "n")), Names{"x0"});
  EXPECT_EQ(AttrOf<int64_t>(*graph, "n", "concat_dim"), -1);
  EXPECT_EQ(AttrOf<int64_t>(*graph, "n", "N"), 3);
}

TEST(ConcatReplacement, RefusesUnusableInputsOrAxisWithoutTouchingTheGraph) {
  struct Row {
    Names inputs;
    AddConstants constants;
    uint32_t status;
    int line;
    std::string message;
  };
  const AddConstants int64Axis = [](testkit::ModelBuilder& model) {
    model.ConstInt64("axis", {1});
  };
  const AddConstants twoAxes = [](testkit::ModelBuilder& model) {
    model.ConstInt32("axis", {1});
    model.ConstInt32("axis2", {1});
  };
  const Row rows[] = {
      {{"x0"}, Int32Axis({1}), 1, 131, Quoted("input size should more than 1")},
      {{"x0", "x1"}, Int32Axis({1}), 3, 146, Quoted("node: n, weightsVec size : 0")},
      {{"x0", "axis", "axis2"}, twoAxes, 3, 146, Quoted("node: n, weightsVec size : 2")},
      {{"x0", "axis"}, int64Axis, 3, 152, Quoted("node: n, data type : 9")},
      {{"x0", "axis"}, Int32Axis({}), 3, 154, "param[\"pData\"] must not be null."},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.line);
    auto graph = ReplacementGraph("Concat", row.inputs, 1, row.constants, [](auto&) {});
    const Names namesBefore = testkit::NodeNames(*graph);
    testkit::LogCapture log;
    EXPECT_EQ(Convert(*graph, "n"), row.status);
    convtest::ExpectSingleLine(log, Line("ConcatParserFunc", row.line, row.message));
    ExpectUnchanged(*graph, namesBefore, "Concat");
  }
}

}  // namespace
