// The node conversion pass: version stamp, attribute translation and clean-up, type translation.
#include <gtest/gtest.h>

#include "parse.h"

namespace {

using namespace testkit;

// Every node gets version 5 and loses the bookkeeping attributes; renames skip absent source
// attributes, and only a source ConcatD loses its input count.
TEST(ParserNodeConversion, TypesAndAttributesTakeTheirHostNames) {
  ModelBuilder model;
  model.Data("in");
  model.Unary("mm", "MatMul", "in").Attr("transpose_a", true).Attr("transpose_b", false);
  model.Unary("bmm", "BatchMatMul", "in").Attr("adj_y", true);
  model.Unary("cast", "Cast", "in").Attr("dst_type", 3);
  model.Unary("cast_bare", "Cast", "in");
  model.Unary("concat_d", "ConcatD", "in").Attr("__dynamic_input_x_cnt", 1);
  model.Unary("concat_v2d", "ConcatV2D", "in").Attr("__dynamic_input_x_cnt", 1);
  model.Unary("exp", "Exp", "in").Attr("version", 1).Attr("kept", "yes");
  model.Unary("abs", "Abs", "in").Attr("kept", "yes");
  for (auto& op : *model.Def().mutable_graph(0)->mutable_op()) {
    for (const char* name : {"_output_name_key", "_output_name_value", "_input_name_idx_value",
                             "_input_name_idx_key", "_opt_input", "_opt_output"}) {
      (*op.mutable_attr())[name].set_s("x");
    }
  }
  tesu::ParserOptions options;
  options.outputNodes["elsewhere"] = {0};  // no output marks
  const auto outcome = Parse(model, options);
  ASSERT_EQ(outcome.status, 0u);

  const char* const rows[][3] = {
      {"in", "Data", "version=5"},
      {"mm", "MatMul", "transpose_x1=true transpose_x2=false version=5"},
      {"bmm", "BatchMatMul", "adj_x2=true version=5"},
      {"cast", "CastT", "dst_dtype=3 version=5"},
      {"cast_bare", "CastT", "version=5"},
      {"concat_d", "ConcatD", "version=5"},
      {"concat_v2d", "ConcatD", "__dynamic_input_x_cnt=1 version=5"},
      {"exp", "Exp", "kept=yes version=5"},
      {"abs", "Activation", "coef=0 kept=yes mode=6 negative_slope=0 version=5"},
  };
  for (const auto& [node, type, attrs] : rows) {
    EXPECT_EQ(Desc(*outcome.graph, node).GetType(), type) << node;
    EXPECT_EQ(AttrsText(Desc(*outcome.graph, node)), attrs) << node;
  }
}

}  // namespace
