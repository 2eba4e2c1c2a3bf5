// Graph inputs: accepted data types, designated type, shape and format, the fixed settings.
#include <set>

#include <gtest/gtest.h>

#include "parse.h"

namespace {

using namespace testkit;

// input (Data, its input description in `format` with reuse_input set) -> relu
ModelBuilder InputModel(std::vector<int64_t> shape, int32_t dtype, int32_t format = 1) {
  ModelBuilder model;
  auto& desc = *model.Data("input", std::move(shape), dtype).Def().mutable_input_desc(0);
  desc.set_format(format);
  desc.set_reuse_input(true);
  model.Unary("relu", "Relu", "input");
  return model;
}

TEST(ParserDataNode, AcceptsExactlyTheHostDataTypes) {
  const std::set<int32_t> accepted = {0, 1, 2, 3, 4, 6, 8, 9, 11, 12};
  for (int32_t dtype = 0; dtype <= 13; ++dtype) {
    LogCapture logs;
    const auto outcome = Parse(InputModel({1, 3}, dtype));
    if (accepted.count(dtype) != 0) {
      EXPECT_EQ(outcome.status, 0u) << dtype;
      EXPECT_TRUE(logs.Lines().empty()) << dtype;
      continue;
    }
    EXPECT_EQ(outcome.status, 1u) << dtype;
    ASSERT_EQ(logs.Lines().size(), 2u) << dtype;
    EXPECT_EQ(logs.Lines()[0].module, "AI_FMK");
    EXPECT_EQ(
        logs.Lines()[0].text,
        ParserLine("CheckIsDataTypeSupport", 259,
                   "\"input tensor type of input should be DOUBLE or FLOAT or FLOAT16 or INT64 "
                   "or INT32 or INT16 or INT8 or \" \"UINT32 or BOOL or UINT8\""));
    EXPECT_EQ(logs.Lines()[1].module, "AI_INFRA");
    EXPECT_EQ(logs.Lines()[1].text,
              ParserLine("SetDataNodeInputTypeAndShape", 302,
                         "\"CheckIsDataTypeSupport(nodeName, tensorDesc.GetDataType())\" "
                         "\"false, return FAIL.\""));
  }
}

TEST(ParserDataNode, ModelTypeIsCheckedButDesignatedTypeIsNot) {
  tesu::ParserOptions options;
  options.inputDataTypes["input"] = {tov::DT_FLOAT, false};
  EXPECT_EQ(Parse(InputModel({1, 3}, tov::DT_UINT16), options).status, 1u);

  options.inputDataTypes["input"] = {tov::DT_UINT16, false};
  const auto outcome = Parse(InputModel({1, 3}, tov::DT_FLOAT), options);
  ASSERT_EQ(outcome.status, 0u);
  EXPECT_EQ(Desc(*outcome.graph, "input").GetInputDesc(0).GetDataType(), tov::DT_UINT16);
}

// Reuse is switched off and the output description follows the input's; the format becomes
// NCHW unless one is designated for this input.
TEST(ParserDataNode, InputDescriptionIsNormalisedAndCopiedToTheOutput) {
  for (bool designated : {false, true}) {
    tesu::ParserOptions options;
    if (designated) options.inputFormats = {{"input", tov::FORMAT_NHWC}, {"relu", tov::FORMAT_ND}};
    const auto outcome = Parse(InputModel({1, 3, 8}, tov::DT_INT64, tov::FORMAT_HWCN), options);
    ASSERT_EQ(outcome.status, 0u);
    const tov::OpDesc& desc = Desc(*outcome.graph, "input");
    const tov::TensorDesc& input = desc.GetInputDesc(0);
    EXPECT_EQ(input.GetFormat(), designated ? tov::FORMAT_NHWC : tov::FORMAT_NCHW);
    EXPECT_EQ(input.GetDataType(), tov::DT_INT64);
    EXPECT_EQ(input.GetShape(), tov::Shape({1, 3, 8}));
    bool reuse = true;
    tov::TensorUtils::GetReuseInput(input, reuse);
    EXPECT_FALSE(reuse);
    EXPECT_EQ(desc.GetOutputDesc(0), input);
    EXPECT_EQ(desc.GetType(), "Data");
  }
}

TEST(ParserDataNode, DesignatedShapeWinsAndAShapeWithoutDimensionsNeedsOne) {
  struct Case {
    std::vector<int64_t> modelShape;
    const char* designatedFor;  // null: nothing designated
    std::vector<int64_t> designated;
    bool ok;
  };
  const Case cases[] = {
      {{1, 3, 8}, nullptr, {}, true}, {{}, "input", {-1, 3, 16, 16}, true},
      {{1, 3}, "input", {}, true},    {{}, nullptr, {}, false},
      {{}, "Input", {1, 3}, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.designated));
    tesu::ParserOptions options;
    if (c.designatedFor != nullptr) options.inputShapes[c.designatedFor] = c.designated;
    LogCapture logs;
    const auto outcome = Parse(InputModel(c.modelShape, tov::DT_FLOAT), options);
    if (!c.ok) {
      EXPECT_EQ(outcome.status, 1u);
      ExpectOnlyLine(
          logs, "AI_FMK",
          ParserLine("SetDataNodeInputShape", 293,
                     "\"parse data node input shape has no dim, not supported. you should "
                     "designate \" \"dim by '--input_shape=xxx:x,x,x,x'\""));
      continue;
    }
    ASSERT_EQ(outcome.status, 0u);
    const auto expected = tov::Shape(c.designatedFor != nullptr ? c.designated : c.modelShape);
    EXPECT_EQ(Desc(*outcome.graph, "input").GetInputDesc(0).GetShape(), expected);
    EXPECT_EQ(Desc(*outcome.graph, "input").GetOutputDesc(0).GetShape(), expected);
  }
}

TEST(ParserDataNode, MissingInputDescFailsBeforeAnyCheck) {
  ModelBuilder model;
  model.Op("input", "Data").Output({1, 3}, tov::DT_UINT16);
  model.Unary("relu", "Relu", "input");
  LogCapture logs;
  EXPECT_EQ(Parse(model).status, 1u);
  ExpectOnlyLine(logs, "AI_INFRA",
                 ParserLine("ConvertDataNode", 327, "\"inputDesc\" \"null, return FAIL.\""));
}

}  // namespace
