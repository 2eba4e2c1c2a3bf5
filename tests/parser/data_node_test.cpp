// Graph inputs: accepted data types, designated type, shape and format, the fixed settings.
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "parse_helper.h"

namespace {

using parsertest::Desc;
using parsertest::LogText;
using parsertest::Parse;

testkit::ModelBuilder InputModel(std::vector<int64_t> shape, int32_t dtype, int32_t format = 1) {
  testkit::ModelBuilder model;
  tesu::proto::TensorDescriptor& desc =
      *model.Data("input", std::move(shape), dtype).Def().mutable_input_desc(0);
  desc.set_format(format);
  desc.set_reuse_input(true);
  model.Unary("relu", "Relu", "input");
  return model;
}

const std::string kTypeRefused =
    "\"input tensor type of input should be DOUBLE or FLOAT or FLOAT16 or INT64 or INT32 or INT16 "
    "or INT8 or \" \"UINT32 or BOOL or UINT8\"";

TEST(ParserDataNode, AcceptsExactlyTheHostDataTypes) {
  const std::set<int32_t> accepted = {0, 1, 2, 3, 4, 6, 8, 9, 11, 12};
  for (int32_t dtype = 0; dtype <= 13; ++dtype) {
    testkit::LogCapture logs;
    const auto outcome = Parse(InputModel({1, 3}, dtype));
    if (accepted.count(dtype) != 0) {
      EXPECT_EQ(outcome.status, 0u) << dtype;
      EXPECT_TRUE(logs.Lines().empty()) << dtype;
      continue;
    }
    EXPECT_EQ(outcome.status, 1u) << dtype;
    ASSERT_EQ(logs.Lines().size(), 2u) << dtype;
    EXPECT_EQ(logs.Lines()[0].module, "AI_FMK");
    EXPECT_EQ(logs.Lines()[0].text, LogText("CheckIsDataTypeSupport", 259, kTypeRefused));
    EXPECT_EQ(logs.Lines()[1].module, "AI_INFRA");
    EXPECT_EQ(logs.Lines()[1].text,
              LogText("SetDataNodeInputTypeAndShape", 302,
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

TEST(ParserDataNode, UndesignatedInputGetsDefaultsAndMatchingOutputDesc) {
  const auto outcome = Parse(InputModel({1, 3, 224, 224}, tov::DT_INT64, tov::FORMAT_NHWC));
  ASSERT_EQ(outcome.status, 0u);
  const tov::OpDesc& desc = Desc(*outcome.graph, "input");
  const tov::TensorDesc& input = desc.GetInputDesc(0);
  EXPECT_EQ(input.GetDataType(), tov::DT_INT64);
  EXPECT_EQ(input.GetShape(), tov::Shape({1, 3, 224, 224}));
  EXPECT_EQ(input.GetFormat(), tov::FORMAT_NCHW);
  bool reuse = true;
  tov::TensorUtils::GetReuseInput(input, reuse);
  EXPECT_FALSE(reuse);
  EXPECT_EQ(desc.GetOutputDesc(0), input);
  EXPECT_EQ(desc.GetType(), "Data");
}

TEST(ParserDataNode, DesignatedFormatSurvivesOnInputAndOutput) {
  tesu::ParserOptions options;
  options.inputFormats["input"] = tov::FORMAT_NHWC;
  options.inputFormats["other"] = tov::FORMAT_ND;
  const auto outcome = Parse(InputModel({1, 3}, tov::DT_FLOAT, tov::FORMAT_HWCN), options);
  ASSERT_EQ(outcome.status, 0u);
  const tov::OpDesc& desc = Desc(*outcome.graph, "input");
  EXPECT_EQ(desc.GetInputDesc(0).GetFormat(), tov::FORMAT_NHWC);
  EXPECT_EQ(desc.GetOutputDesc(0).GetFormat(), tov::FORMAT_NHWC);
}

struct ShapeCase {
  const char* what;
  std::vector<int64_t> modelShape;
  const char* designatedFor;  // null: nothing designated
  std::vector<int64_t> designated;
  bool ok;
  std::vector<int64_t> expected;
};

TEST(ParserDataNode, ShapeRules) {
  const std::vector<ShapeCase> cases = {
      {"model shape kept", {1, 3, 8}, nullptr, {}, true, {1, 3, 8}},
      {"designated replaces", {}, "input", {1, 3, 16, 16}, true, {1, 3, 16, 16}},
      {"designated rank differs", {1, 3}, "input", {4, 5, 6}, true, {4, 5, 6}},
      {"designated empty", {1, 3}, "input", {}, true, {}},
      {"negative dims kept as given", {1}, "input", {-1, 3}, true, {-1, 3}},
      {"no dims, nothing designated", {}, nullptr, {}, false, {}},
      {"designated for another node", {}, "relu", {1, 3}, false, {}},
      {"designated name differs in case", {}, "Input", {1, 3}, false, {}},
  };
  for (const auto& c : cases) {
    tesu::ParserOptions options;
    if (c.designatedFor != nullptr) options.inputShapes[c.designatedFor] = c.designated;
    testkit::LogCapture logs;
    const auto outcome = Parse(InputModel(c.modelShape, tov::DT_FLOAT), options);
    if (!c.ok) {
      EXPECT_EQ(outcome.status, 1u) << c.what;
      ASSERT_EQ(logs.Lines().size(), 1u) << c.what;
      EXPECT_EQ(logs.Lines()[0].module, "AI_FMK");
      EXPECT_EQ(logs.Lines()[0].text,
                LogText("SetDataNodeInputShape", 293,
                        "\"parse data node input shape has no dim, not supported. you should "
                        "designate \" \"dim by '--input_shape=xxx:x,x,x,x'\""));
      continue;
    }
    ASSERT_EQ(outcome.status, 0u) << c.what;
    const tov::OpDesc& desc = Desc(*outcome.graph, "input");
    EXPECT_EQ(desc.GetInputDesc(0).GetShape(), tov::Shape(c.expected)) << c.what;
    EXPECT_EQ(desc.GetOutputDesc(0).GetShape(), tov::Shape(c.expected)) << c.what;
  }
}

TEST(ParserDataNode, MissingInputDescFailsBeforeAnyCheck) {
  testkit::ModelBuilder model;
  model.Op("input", "Data").Output({1, 3}, tov::DT_UINT16);
  model.Unary("relu", "Relu", "input");
  testkit::LogCapture logs;
  EXPECT_EQ(Parse(model).status, 1u);
  ASSERT_EQ(logs.Lines().size(), 1u);
  EXPECT_EQ(logs.Lines()[0].module, "AI_INFRA");
  EXPECT_EQ(logs.Lines()[0].text,
            LogText("ConvertDataNode", 327, "\"inputDesc\" \"null, return FAIL.\""));
}

}  // namespace
