// BatchNorm and Concat replace their node by a new one that takes over its name, place,
// producers and consumers.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <ostream>

#include "parse.h"

namespace {

using namespace testkit;
using Edit = std::function<void(OpBuilder&)>;

Names Numbered(const std::string& prefix, size_t count) {
  Names names;
  for (size_t i = 0; i < count; ++i) names.push_back(prefix + std::to_string(i));
  return names;
}

bool IsBatchNorm(const std::string& type) {
  return type.rfind("BatchNorm", 0) == 0;
}

std::string FunctionOf(const std::string& type) {
  return IsBatchNorm(type) ? "BatchNormParserFunc" : "ConcatParserFunc";
}

// Data x0..x2, then n of `type` fed by `inputs`: an input named p<i> is a FLOAT constant, one
// named "axis" an INT32 constant holding `axis`; then `consumers` Relu nodes c0, c1, ... fed by
// n's output 0.
std::shared_ptr<tov::ComputeGraph> ReplacementGraph(
    const std::string& type, const Names& inputs, size_t consumers,
    const std::vector<int32_t>& axis, const Edit& edit = [](auto&) {}) {
  ModelBuilder model;
  for (const std::string& data : Numbered("x", 3)) model.Data(data);
  for (const std::string& input : inputs) {
    if (input[0] == 'p') model.ConstFloat(input, {1.0f}, {1});
    if (input == "axis") model.ConstInt32(input, axis, axis.empty() ? Ints{0} : Ints{});
  }
  OpBuilder op = model.Op("n", type);
  std::vector<bool> flags;
  for (const std::string& input : inputs) {
    op.Input(input);
    flags.push_back(input[0] != 'x');
  }
  op.InputConst(flags).Output({1, 3, 8, 8}).Attr("carried", "no");
  edit(op);
  for (const std::string& consumer : Numbered("c", consumers)) model.Unary(consumer, "Relu", "n");
  return Load(model);
}

const Names kBatchNormInputs = {"x0", "p0", "p1", "p2", "p3"};

struct ReplacementCase {
  const char* type;
  size_t consumers;
};
std::ostream& operator<<(std::ostream& out, const ReplacementCase& c) {
  return out << c.type << " with " << c.consumers << " consumers";
}

class NodeReplacement : public ::testing::TestWithParam<ReplacementCase> {};

// Every node keeps its place (Concat's axis constant is gone); the new node has default
// descriptions, the data inputs (and BatchNorm's weights) and the consumers in order.
TEST_P(NodeReplacement, TakesOverPlaceProducersAndConsumers) {
  const bool batchNorm = IsBatchNorm(GetParam().type);
  const Names inputs = batchNorm ? kBatchNormInputs : Names{"x0", "x1", "x2", "axis"};
  auto graph = ReplacementGraph(GetParam().type, inputs, GetParam().consumers, {1});
  Names names = NodeNames(*graph);
  names.erase(std::remove(names.begin(), names.end(), "axis"), names.end());

  ASSERT_EQ(Convert(*graph, "n"), 0u);
  EXPECT_EQ(NodeNames(*graph), names);
  const tov::OpDesc& desc = Desc(*graph, "n");
  EXPECT_EQ(desc.GetType(), batchNorm ? "BNInference" : "ConcatD");
  EXPECT_EQ(desc.GetOutputsSize(), 1u);
  EXPECT_EQ(desc.GetOutputDesc(0), tov::TensorDesc());
  EXPECT_EQ(desc.GetInputDesc(0), tov::TensorDesc());
  const tov::Node& node = NodeOf(*graph, "n");
  EXPECT_EQ(ProducersOf(node), (batchNorm ? inputs : Names{"x0", "x1", "x2"}));
  EXPECT_EQ(ConsumersOf(node), Numbered("c", GetParam().consumers));
  const std::vector<bool> flags{false, true, true, true, true};
  EXPECT_EQ(desc.GetIsInputConst(), batchNorm ? flags : std::vector<bool>{});
}

INSTANTIATE_TEST_SUITE_P(
    ConsumerCounts, NodeReplacement,
    ::testing::Values(ReplacementCase{"BatchNorm", 0}, ReplacementCase{"BatchNormExt2", 1},
                      ReplacementCase{"BatchNorm", 3}, ReplacementCase{"Concat", 0},
                      ReplacementCase{"ConcatV2", 1}, ReplacementCase{"Concat", 3}));

// The new node carries only its own attributes: a source epsilon is kept, anything else (a
// momentum included) is not; an axis becomes concat_dim, and an input count is kept.
TEST(NodeReplacement, NewNodeGetsItsOwnAttributes) {
  struct Row {
    const char* type;
    Names inputs;
    std::vector<int32_t> axis;
    const char* name;  // of the one source attribute set, to 0.5 (or 3 for "N")
    std::string attrs;
  };
  const std::string bn = "mode=1 momentum=0.9 use_global_stats=true version=5";
  const Row rows[] = {
      {"BatchNorm", kBatchNormInputs, {}, "momentum", "epsilon=0.0001 " + bn},
      {"BatchNormExt2", kBatchNormInputs, {}, "epsilon", "epsilon=0.5 " + bn},
      {"Concat", {"x0", "x1", "axis"}, {1}, "carried", "concat_dim=1 version=5"},
      {"ConcatV2", {"x0", "axis"}, {-1}, "N", "N=3 concat_dim=-1 version=5"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.attrs);
    auto graph = ReplacementGraph(row.type, row.inputs, 1, row.axis, [&row](OpBuilder& op) {
      if (std::string(row.name) == "N") op.Attr("N", 3);
      if (std::string(row.name) != "N") op.Attr(row.name, 0.5f);
    });
    ASSERT_EQ(Convert(*graph, "n"), 0u);
    EXPECT_EQ(AttrsText(Desc(*graph, "n")), row.attrs);
  }
}

TEST(NodeReplacement, RefusesUnusableInputsWithoutTouchingTheGraph) {
  struct Row {
    const char* type;
    Names inputs;
    std::vector<int32_t> axis;
    bool training;
    uint32_t status;
    int line;
    std::string message;
    size_t axisBytes = 4;  // fewer: the axis tensor's data is cut to that many bytes
  };
  const std::string inputs = Quoted("BatchNorm should have 1 non const input and 4 weights");
  const std::string noData = "param[\"pData\"] must not be null.";
  const std::string training = Quoted("only support is_training as false");
  const Row rows[] = {
      {"BatchNormExt2", {"x0", "p0", "p1", "p2"}, {}, false, 3, 66, inputs},
      {"BatchNormExt2", {"x0", "p0", "p1", "p2", "p3", "p4"}, {}, false, 3, 66, inputs},
      {"BatchNormExt2", {"x0", "x1", "p0", "p1", "p2", "p3"}, {}, false, 3, 66, inputs},
      {"BatchNormExt2", kBatchNormInputs, {}, true, 1, 73, training},
      {"Concat", {"x0"}, {1}, false, 1, 131, Quoted("input size should more than 1")},
      {"Concat", {"x0", "x1"}, {1}, false, 3, 146, Quoted("node: n, weightsVec size : 0")},
      {"Concat", {"x0", "p0", "p1"}, {}, false, 3, 146, Quoted("node: n, weightsVec size : 2")},
      {"Concat", {"x0", "p0"}, {}, false, 3, 152, Quoted("node: n, data type : 0")},
      {"Concat", {"x0", "axis"}, {}, false, 3, 154, noData},
      {"Concat", {"x0", "axis"}, {1}, false, 3, 154, noData, 1},
      {"Concat", {"x0", "axis"}, {1}, false, 3, 154, noData, 2},
      {"Concat", {"x0", "axis"}, {1}, false, 3, 154, noData, 3},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.message);
    auto graph = ReplacementGraph(row.type, row.inputs, 1, row.axis,
                                  [&](auto& op) { op.Attr("is_training", row.training); });
    if (row.axisBytes < 4) {
      // A loaded tensor always holds what its shape needs; a short one is made in memory.
      const int32_t axis = 1;
      WeightsOf(*graph, "n")[0]->SetData(reinterpret_cast<const uint8_t*>(&axis), row.axisBytes);
    }
    const Names namesBefore = NodeNames(*graph);
    ExpectConvertRefused(*graph, row.status, FunctionOf(row.type), row.line, row.message);
    EXPECT_EQ(NodeNames(*graph), namesBefore);
    EXPECT_EQ(Desc(*graph, "n").GetType(), row.type);
  }
}

// A source node whose data input is unconnected, or that has no output, is found out only once
// the new node is in the graph: the new node stays, the source node is still found by its name.
TEST(NodeReplacement, MissingEdgeEndsTheReplacementHalfway) {
  const struct {
    const char* type;
    Names inputs;
    bool unconnected;  // else: no output
    int line;
    const char* message;
  } rows[] = {
      {"Concat", {"x0", "x1", "axis"}, true, 169, "peerDataAnchor is nullptr"},
      {"Concat", {"x0", "x1", "axis"}, false, 178, "outDataAnchor is nullptr"},
      {"BatchNorm", kBatchNormInputs, true, 106, "peerDataAnchor is nullptr"},
      {"BatchNorm", kBatchNormInputs, false, 97, "outDataAnchor is nullptr"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    auto graph = ReplacementGraph(row.type, row.inputs, 0, {1}, [&](OpBuilder& op) {
      if (row.unconnected) op.Def().set_input(0, "");
      if (!row.unconnected) op.Def().clear_output_desc();
    });
    ExpectConvertRefused(*graph, 1, FunctionOf(row.type), row.line, Quoted(row.message));
    EXPECT_EQ(Desc(*graph, "n").GetType(), row.type);
    EXPECT_EQ(CountByType(*graph, IsBatchNorm(row.type) ? "BNInference" : "ConcatD"), 1u);
  }
}

}  // namespace
