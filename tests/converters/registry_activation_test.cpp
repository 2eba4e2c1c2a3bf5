#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "converter_test_support.h"

namespace {

using convtest::AttrOf;
using convtest::Convert;

TEST(ConverterRegistry, HoldsExactlyTheTwelveSourceTypes) {
  std::vector<std::string> keys;
  for (const auto& entry : tesu::GetParserFuncMap()) keys.push_back(entry.first);
  // Lookups are exact: "ConcatD", "Pooling" or "BatchToSpaceND" only get their type renamed.
  EXPECT_EQ(keys, (std::vector<std::string>{"Abs", "BatchNorm", "BatchNormExt2", "BatchToSpaceD",
                                            "BatchToSpaceNDD", "Concat", "ConcatV2", "Conv2D",
                                            "DepthwiseConv2D", "MaxPool", "ReduceMeanD", "Relu"}));
}

TEST(ConverterRegistry, SecondRegistrationIsRefusedAndKeepsTheFirst) {
  EXPECT_FALSE(tesu::RegisterOpParser("Relu", tesu::OrvaneAbsParserFunc));

  using Converter = uint32_t (*)(tov::Node&, tov::ComputeGraph&);
  const Converter* kept = tesu::GetParserFuncMap().at("Relu").target<Converter>();
  ASSERT_NE(kept, nullptr);
  EXPECT_EQ(*kept, &tesu::OrvaneReluParserFunc);
}

struct ActivationCase {
  const char* type;
  int64_t mode;
};
std::ostream& operator<<(std::ostream& out, const ActivationCase& c) {
  return out << c.type;
}

class ActivationConverter : public ::testing::TestWithParam<ActivationCase> {};

TEST_P(ActivationConverter, BecomesActivationWithItsModeAndZeroParameters) {
  testkit::ModelBuilder model;
  model.Data("x");
  model.Unary("act", GetParam().type, "x")
      .Attr("negative_slope", 0.2f)
      .Attr("coef", 3.0f)
      .Attr("keep_me", "yes");
  auto graph = convtest::Load(model);

  EXPECT_EQ(Convert(*graph, "act"), 0u);
  EXPECT_EQ(convtest::TypeOf(*graph, "act"), "Activation");
  EXPECT_EQ(AttrOf<int64_t>(*graph, "act", "mode"), GetParam().mode);
  EXPECT_EQ(AttrOf<float>(*graph, "act", "coef"), 0.0f);
  EXPECT_EQ(AttrOf<float>(*graph, "act", "negative_slope"), 0.0f);
  EXPECT_EQ(AttrOf<std::string>(*graph, "act", "keep_me"), "yes");
}

INSTANTIATE_TEST_SUITE_P(AbsAndRelu, ActivationConverter,
                         ::testing::Values(ActivationCase{"Abs", 6}, ActivationCase{"Relu", 1}));

}  // namespace
