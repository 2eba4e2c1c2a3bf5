// ReduceMeanD followed by a Reshape that only drops the kept dimensions becomes one ReduceMeanD.
#include <gtest/gtest.h>

#include "graph/attr_utils.h"

#include "parse.h"

namespace {

using namespace testkit;
using Ints = std::vector<int64_t>;

// in -> mean(ReduceMeanD, keep_dims) -> reshape(Reshape, shape from a Const) -> out(Relu)
ModelBuilder MeanThenReshape(const Ints& inputShape, const Ints& axes, const Ints& reshaped) {
  Ints kept = inputShape;
  for (int64_t axis : axes) {
    if (axis >= 0 && static_cast<size_t>(axis) < kept.size()) kept[static_cast<size_t>(axis)] = 1;
  }
  const auto rank = static_cast<int64_t>(reshaped.size());
  ModelBuilder model;
  model.Data("in", inputShape);
  OpBuilder mean = model.Op("mean", "ReduceMeanD").Input("in").InputDesc(inputShape).Output(kept);
  mean.Attr("keep_dims", true).Attr("axes", axes);
  model.ConstInt32("target", std::vector<int32_t>(reshaped.begin(), reshaped.end()), {rank});
  OpBuilder reshape = model.Op("reshape", "Reshape").Input("mean").Input("target");
  reshape.InputDesc(kept).InputDesc({rank}, tov::DT_INT32).Output(reshaped);
  model.Unary("out", "Relu", "reshape", reshaped);
  return model;
}

// Fused: the Reshape and its shape Const are gone, out reads the mean without kept dimensions.
void ExpectFused(const tov::ComputeGraph& graph, bool fused) {
  bool keepDims = !fused;
  EXPECT_TRUE(tov::AttrUtils::GetBool(Desc(graph, "mean"), "keep_dims", keepDims));
  EXPECT_EQ(keepDims, !fused);
  EXPECT_EQ(graph.FindNode("reshape") == nullptr, fused);
  EXPECT_EQ(graph.FindNode("target") == nullptr, fused);
  EXPECT_EQ(ConsumersOf(*graph.FindNode("mean")),
            std::vector<std::string>{fused ? "out" : "reshape"});
}

TEST(ParserFusion, FusesOnlyWhenReshapeDropsExactlyTheReducedAxes) {
  struct Case {
    Ints input, axes, reshaped;
    bool fused;
  };
  const Case cases[] = {
      {{1, 64, 7, 7}, {2, 3}, {1, 64}, true},
      {{1, 64, 7, 7}, {2, 3}, {64}, false},
      {{1, 64, 7, 7}, {2, 3}, {1, 64, 1}, false},
      {{1, 64, 7, 7}, {1}, {1, 7, 7}, true},
      {{2, 3, 4, 5}, {3, 1}, {2, 4}, true},
      {{2, 3, 4, 5}, {0}, {3, 4, 5}, true},
      {{1, 64, 7, 7}, {2, 3}, {1, 64, 7}, false},
      {{1, 64, 7, 7}, {3, 2, 3}, {1, 64}, true},  // a repeated axis counts once
      {{1, 64, 1}, {-1}, {1, 64, 1}, true},       // a negative axis removes nothing
      {{1, 64, 1}, {-1}, {1, 64}, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.axes) + "->" + ::testing::PrintToString(c.reshaped));
    LogCapture logs;
    const auto outcome = Parse(MeanThenReshape(c.input, c.axes, c.reshaped));
    ASSERT_EQ(outcome.status, 0u);
    ExpectFused(*outcome.graph, c.fused);
    EXPECT_TRUE(logs.Lines().empty());
  }
}

tesu::proto::OpDef& MeanDef(ModelBuilder& model) {
  return *model.Def().mutable_graph(0)->mutable_op(1);
}
tesu::proto::OpDef& ReshapeDef(ModelBuilder& model) {
  return *model.Def().mutable_graph(0)->mutable_op(3);
}

// Each case breaks one guard of an otherwise fusable pair: no match, and at most one log line.
// A matched Reshape that cannot be bypassed (no shape input to drop, or a data input left
// besides the mean) fails the parse with the graph library's status, without a line.
TEST(ParserFusion, GuardsThatPreventTheMatchOrTheBypass) {
  struct GuardCase {
    const char* what;
    void (*edit)(ModelBuilder&);
    std::vector<std::string> log;
    tesu::Status status = tesu::SUCCESS;
  };
  const GuardCase cases[] = {
      {"keep_dims false",
       [](auto& m) { (*MeanDef(m).mutable_attr())["keep_dims"].set_b(false); },
       {}},
      {"keep_dims missing",
       [](auto& m) { MeanDef(m).mutable_attr()->erase("keep_dims"); },
       {ParserLine("CheckIsReduceMeanReshapePattern", 121,
                   "\"tov::AttrUtils::GetBool(reduceMeanNodeSpec.OpDesc(), "
                   "tesu::op::ReduceMean::keep_dims, keepDims)\" \"false, return FAIL.\"")}},
      {"axes empty",
       [](auto& m) { MeanDef(m).mutable_attr()->at("axes").mutable_list()->clear_i(); },
       {}},
      {"axes missing",
       [](auto& m) { MeanDef(m).mutable_attr()->erase("axes"); },
       {ParserLine("CheckReduceMeanAndReshapeShape", 138,
                   "\"tov::AttrUtils::GetListInt(opDesc, \\\"axes\\\", axes)\" "
                   "\"false, return FAIL.\"")}},
      {"second consumer", [](auto& m) { m.Unary("side", "Relu", "mean"); }, {}},
      {"consumer is not a Reshape", [](auto& m) { ReshapeDef(m).set_type("Squeeze"); }, {}},
      {"producer is not a ReduceMeanD", [](auto& m) { MeanDef(m).set_type("ReduceMean"); }, {}},
      {"only successor is a control edge",
       [](auto& m) { *ReshapeDef(m).mutable_input(0) = "mean:-1"; },
       {ParserLine("CheckIsReduceMeanReshapePattern", 127, "\"nextNode\" \"null, return FAIL.\"")}},
      {"no shape input",
       [](auto& m) {
         ReshapeDef(m).mutable_input()->RemoveLast();
         ReshapeDef(m).mutable_input_desc()->RemoveLast();
       },
       {},
       tov::GRAPH_PARAM_INVALID},
      {"a third input",
       [](auto& m) { ReshapeDef(m).add_input("in:0"); },
       {},
       tov::GRAPH_PARAM_INVALID},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    auto model = MeanThenReshape({1, 64, 7, 7}, {2, 3}, {1, 64});
    c.edit(model);
    LogCapture logs;
    const auto outcome = Parse(model);
    ASSERT_EQ(outcome.status, c.status);
    ASSERT_EQ(outcome.graph == nullptr || outcome.graph->FindNode("reshape") == nullptr,
              c.status != tesu::SUCCESS);
    EXPECT_EQ(logs.Texts(), c.log);
  }
}

}  // namespace
