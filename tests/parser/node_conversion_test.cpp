// The node conversion pass: version stamp, attribute translation and clean-up, type translation.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "parse_helper.h"

namespace {

using parsertest::Desc;
using parsertest::IntAttr;
using parsertest::Parse;

bool BoolAttr(const tov::ComputeGraph& graph, const std::string& node, const std::string& attr) {
  bool value = false;
  EXPECT_TRUE(tov::AttrUtils::GetBool(Desc(graph, node), attr, value)) << node << "." << attr;
  return value;
}

bool Has(const tov::ComputeGraph& graph, const std::string& node, const std::string& attr) {
  return Desc(graph, node).HasAttr(attr);
}

TEST(ParserNodeConversion, MatMulAndBatchMatMulAttributesMoveToHostNames) {
  testkit::ModelBuilder model;
  model.Data("a", {2, 2});
  model.Data("b", {2, 2});
  model.Op("mm", "MatMul")
      .Input("a")
      .Input("b")
      .Output({2, 2})
      .Attr("transpose_a", true)
      .Attr("transpose_b", false);
  model.Op("bmm", "BatchMatMul").Input("mm").Input("b").Output({2, 2}).Attr("adj_y", true);
  const auto outcome = Parse(model);
  ASSERT_EQ(outcome.status, 0u);
  const tov::ComputeGraph& graph = *outcome.graph;

  EXPECT_EQ(Desc(graph, "mm").GetType(), "MatMul");
  EXPECT_TRUE(BoolAttr(graph, "mm", "transpose_x1"));
  EXPECT_FALSE(BoolAttr(graph, "mm", "transpose_x2"));
  EXPECT_FALSE(Has(graph, "mm", "transpose_a"));
  EXPECT_FALSE(Has(graph, "mm", "transpose_b"));
  EXPECT_EQ(IntAttr(graph, "mm", "version"), 5);

  EXPECT_TRUE(BoolAttr(graph, "bmm", "adj_x2"));
  EXPECT_FALSE(Has(graph, "bmm", "adj_y"));
  EXPECT_FALSE(Has(graph, "bmm", "adj_x1"));  // absent source attributes are skipped
}

TEST(ParserNodeConversion, CastBecomesCastTWithItsTargetTypeCarriedOver) {
  testkit::ModelBuilder model;
  model.Data("in");
  model.Unary("with", "Cast", "in").Attr("dst_type", int64_t{3});
  model.Unary("without", "Cast", "in");
  const auto outcome = Parse(model);
  ASSERT_EQ(outcome.status, 0u);
  EXPECT_EQ(Desc(*outcome.graph, "with").GetType(), "CastT");
  EXPECT_EQ(IntAttr(*outcome.graph, "with", "dst_dtype"), 3);
  EXPECT_FALSE(Has(*outcome.graph, "with", "dst_type"));
  EXPECT_EQ(Desc(*outcome.graph, "without").GetType(), "CastT");
  EXPECT_FALSE(Has(*outcome.graph, "without", "dst_dtype"));
}

TEST(ParserNodeConversion, TableOnlyTypesTakeTheirHostType) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"BatchToSpaceND", "BatchToSpaceND"},
      {"ConcatV2D", "ConcatD"},
      {"ConcatD", "ConcatD"},
      {"Pooling", "PoolingD"},
      {"ReduceMean", "ReduceMean"},
      {"Exp", "Exp"}};
  for (const auto& [source, host] : cases) {
    testkit::ModelBuilder model;
    model.Data("in");
    model.Unary("node", source, "in");
    const auto outcome = Parse(model);
    ASSERT_EQ(outcome.status, 0u) << source;
    EXPECT_EQ(Desc(*outcome.graph, "node").GetType(), host) << source;
  }
}

TEST(ParserNodeConversion, UselessAttributeIsDroppedOnlyForSourceConcatD) {
  testkit::ModelBuilder model;
  model.Data("in");
  model.Unary("concat_d", "ConcatD", "in").Attr("__dynamic_input_x_cnt", int64_t{1});
  model.Unary("concat_v2d", "ConcatV2D", "in").Attr("__dynamic_input_x_cnt", int64_t{1});
  const auto outcome = Parse(model);
  ASSERT_EQ(outcome.status, 0u);
  EXPECT_FALSE(Has(*outcome.graph, "concat_d", "__dynamic_input_x_cnt"));
  EXPECT_EQ(IntAttr(*outcome.graph, "concat_v2d", "__dynamic_input_x_cnt"), 1);
  EXPECT_EQ(Desc(*outcome.graph, "concat_v2d").GetType(), "ConcatD");
}

TEST(ParserNodeConversion, VersionReplacedAndBookkeepingAttributesDeleted) {
  const std::vector<std::string> bookkeeping = {
      "_output_name_key",    "_output_name_value", "_input_name_idx_value",
      "_input_name_idx_key", "_opt_input",         "_opt_output"};
  testkit::ModelBuilder model;
  model.Data("in").Attr("_opt_output", int64_t{0});
  auto table = model.Unary("exp", "Exp", "in").Attr("version", int64_t{1}).Attr("kept", "yes");
  auto converted = model.Unary("abs", "Abs", "exp").Attr("kept", "yes");
  for (const auto& name : bookkeeping) {
    table.Attr(name, "x");
    converted.Attr(name, "x");
  }
  const auto outcome = Parse(model);
  ASSERT_EQ(outcome.status, 0u);
  for (const char* node : {"in", "exp", "abs"}) {
    EXPECT_EQ(IntAttr(*outcome.graph, node, "version"), 5) << node;
    for (const auto& name : bookkeeping) EXPECT_FALSE(Has(*outcome.graph, node, name)) << node;
  }
  EXPECT_TRUE(Has(*outcome.graph, "exp", "kept"));
  EXPECT_TRUE(Has(*outcome.graph, "abs", "kept"));
  EXPECT_EQ(Desc(*outcome.graph, "abs").GetType(), "Activation");
  EXPECT_EQ(Desc(*outcome.graph, "in").GetType(), "Data");
}

TEST(ParserNodeConversion, ConverterStatusEndsTheParse) {
  testkit::ModelBuilder model;
  model.Data("in", {1, 3});
  // A reduction over an input of no dimensions is refused by its converter.
  model.Op("mean", "ReduceMeanD").Input("in").InputDesc({}).Output({1}).Attr("keep_dims", false);
  model.Unary("later", "Cast", "mean").Attr("dst_type", int64_t{3});
  const auto outcome = Parse(model);
  EXPECT_EQ(outcome.status, 1u);
  EXPECT_EQ(outcome.graph, nullptr);
}

}  // namespace
