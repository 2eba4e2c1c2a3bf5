// ReduceMeanD followed by a Reshape that only drops the kept dimensions becomes one ReduceMeanD.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "parse_helper.h"

namespace {

using parsertest::Desc;
using parsertest::LogText;
using parsertest::Parse;
using testkit::ConsumersOf;
using testkit::NodeNamed;

// in -> mean(ReduceMeanD, keep_dims) -> reshape(Reshape, shape from a Const) -> out(Relu)
testkit::ModelBuilder MeanThenReshape(const std::vector<int64_t>& inputShape,
                                      const std::vector<int64_t>& axes,
                                      const std::vector<int64_t>& reshaped) {
  std::vector<int64_t> kept = inputShape;
  for (int64_t axis : axes) {
    if (axis >= 0 && static_cast<size_t>(axis) < kept.size()) kept[static_cast<size_t>(axis)] = 1;
  }
  const std::vector<int32_t> target(reshaped.begin(), reshaped.end());
  testkit::ModelBuilder model;
  model.Data("in", inputShape);
  model.Op("mean", "ReduceMeanD")
      .Input("in")
      .InputDesc(inputShape)
      .Output(kept)
      .Attr("keep_dims", true)
      .Attr("axes", axes);
  model.ConstInt32("target", target, {static_cast<int64_t>(target.size())});
  model.Op("reshape", "Reshape")
      .Input("mean")
      .Input("target")
      .InputDesc(kept)
      .InputDesc({static_cast<int64_t>(target.size())}, tov::DT_INT32)
      .Output(reshaped);
  model.Unary("out", "Relu", "reshape", reshaped);
  return model;
}

tesu::proto::OpDef& MeanDef(testkit::ModelBuilder& model) {
  return *model.Def().mutable_graph(0)->mutable_op(1);
}

bool KeepDims(const tov::ComputeGraph& graph) {
  bool keepDims = true;
  EXPECT_TRUE(tov::AttrUtils::GetBool(Desc(graph, "mean"), "keep_dims", keepDims));
  return keepDims;
}

void ExpectFused(const tov::ComputeGraph& graph, const std::string& what) {
  EXPECT_EQ(NodeNamed(graph, "reshape"), nullptr) << what;
  EXPECT_EQ(ConsumersOf(*NodeNamed(graph, "mean")), std::vector<std::string>{"out"}) << what;
  EXPECT_FALSE(KeepDims(graph)) << what;
}

void ExpectUntouched(const tov::ComputeGraph& graph, const std::string& what) {
  ASSERT_NE(NodeNamed(graph, "reshape"), nullptr) << what;
  EXPECT_EQ(ConsumersOf(*NodeNamed(graph, "reshape")), std::vector<std::string>{"out"}) << what;
  EXPECT_TRUE(KeepDims(graph)) << what;
}

struct ShapeCase {
  std::vector<int64_t> input;
  std::vector<int64_t> axes;
  std::vector<int64_t> reshaped;
  bool fused;
};

TEST(ParserFusion, FusesOnlyWhenReshapeDropsExactlyTheReducedAxes) {
  const std::vector<ShapeCase> cases = {
      {{1, 64, 7, 7}, {2, 3}, {1, 64}, true},     {{1, 64, 7, 7}, {2, 3}, {64}, false},
      {{1, 64, 7, 7}, {2, 3}, {1, 64, 1}, false}, {{1, 64, 7, 7}, {1}, {1, 7, 7}, true},
      {{2, 3, 4, 5}, {1, 3}, {2, 4}, true},       {{2, 3, 4, 5}, {3, 1}, {2, 4}, true},
      {{1, 64, 7, 7}, {3, 2, 3}, {1, 64}, true},  // a repeated axis counts once
      {{1, 64, 1}, {-1}, {1, 64, 1}, true},       // a negative axis removes nothing
      {{1, 64, 1}, {-1}, {1, 64}, false},         {{1, 64, 7, 7}, {2, 3}, {1, 64, 7}, false},
  };
  for (const auto& c : cases) {
    testkit::LogCapture logs;
    const auto outcome = Parse(MeanThenReshape(c.input, c.axes, c.reshaped));
    const std::string what =
        ::testing::PrintToString(c.axes) + "->" + ::testing::PrintToString(c.reshaped);
    ASSERT_EQ(outcome.status, 0u) << what;
    if (c.fused) {
      ExpectFused(*outcome.graph, what);
    } else {
      ExpectUntouched(*outcome.graph, what);
    }
    EXPECT_FALSE(logs.Contains("orvane_parser")) << what;
  }
}

// Each case breaks one guard of an otherwise fusable pair.
TEST(ParserFusion, GuardsThatPreventTheMatch) {
  struct GuardCase {
    const char* what;
    void (*edit)(testkit::ModelBuilder&);
    std::string expectedLog;  // empty: no line at all
  };
  const std::vector<GuardCase> cases = {
      {"keep_dims false",
       [](testkit::ModelBuilder& m) { testkit::OpBuilder(m, MeanDef(m)).Attr("keep_dims", false); },
       ""},
      {"keep_dims missing",
       [](testkit::ModelBuilder& m) { MeanDef(m).mutable_attr()->erase("keep_dims"); },
       LogText("CheckIsReduceMeanReshapePattern", 121,
               "\"tov::AttrUtils::GetBool(reduceMeanNodeSpec.OpDesc(), "
               "tesu::op::ReduceMean::keep_dims, keepDims)\" \"false, return FAIL.\"")},
      {"axes empty",
       [](testkit::ModelBuilder& m) {
         MeanDef(m).mutable_attr()->at("axes").mutable_list()->clear_i();
       },
       ""},
      {"axes missing", [](testkit::ModelBuilder& m) { MeanDef(m).mutable_attr()->erase("axes"); },
       LogText("CheckReduceMeanAndReshapeShape", 138,
               "\"tov::AttrUtils::GetListInt(opDesc, \\\"axes\\\", axes)\" "
               "\"false, return FAIL.\"")},
      {"second consumer", [](testkit::ModelBuilder& m) { m.Unary("side", "Relu", "mean"); }, ""},
      {"consumer is not a Reshape",
       [](testkit::ModelBuilder& m) {
         m.Def().mutable_graph(0)->mutable_op(3)->set_type("Squeeze");
       },
       ""},
      {"producer is not a ReduceMeanD",
       [](testkit::ModelBuilder& m) { MeanDef(m).set_type("ReduceMean"); }, ""},
  };
  for (const auto& c : cases) {
    auto model = MeanThenReshape({1, 64, 7, 7}, {2, 3}, {1, 64});
    c.edit(model);
    testkit::LogCapture logs;
    const auto outcome = Parse(model);
    ASSERT_EQ(outcome.status, 0u) << c.what;
    ASSERT_NE(NodeNamed(*outcome.graph, "reshape"), nullptr) << c.what;
    const auto lines = parsertest::ParserLines(logs);
    if (c.expectedLog.empty()) {
      EXPECT_TRUE(lines.empty()) << c.what;
      continue;
    }
    ASSERT_EQ(lines.size(), 1u) << c.what;
    EXPECT_EQ(lines[0].level, 3);
    EXPECT_EQ(lines[0].module, "AI_INFRA");
    EXPECT_EQ(lines[0].text, c.expectedLog);
  }
}

}  // namespace
