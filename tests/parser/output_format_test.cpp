// Graph outputs get "inferred_format" from the requested output formats, by output ordinal.
#include <gtest/gtest.h>

#include "parse.h"

namespace {

using namespace testkit;

constexpr int64_t kNone = -1;  // no "inferred_format" written

// in -> a, b, split (3 outputs), d; split:1 -> c; a -> d is a control edge only. Terminal nodes
// in walk order: a, b, c, d (split's outputs 0 and 2 are unconsumed, but it has a data edge).
ModelBuilder Outputs() {
  ModelBuilder model;
  model.Data("in");
  model.Unary("a", "Exp", "in");
  model.Unary("b", "Floor", "in");
  model.Op("split", "GatherNd").Input("in").Output().Output().Output();
  model.Unary("c", "Exp", "split:1");
  model.Unary("d", "Exp", "in").Control("a");
  return model;
}

TEST(ParserOutputFormat, MarksOutputsInWalkOrder) {
  struct Case {
    const char* what;
    std::map<std::string, std::vector<int32_t>> outputNodes;
    std::vector<tesu::TrelTensorFormat> formats;
    std::map<std::string, int64_t> expected;  // node -> inferred_format
  };
  const auto nc1hwc0 = tesu::TREL_FORMAT_NC1HWC0;
  const auto nhwc = tesu::TREL_FORMAT_NHWC;
  const auto nchw = tesu::TREL_FORMAT_NCHW;
  const Case cases[] = {
      {"terminals by default, first asks NC1HWC0",
       {},
       {nc1hwc0},
       {{"in", kNone}, {"a", 3}, {"b", 0}, {"split", kNone}, {"c", 0}, {"d", 0}}},
      {"only format 3 passes", {}, {nhwc, nc1hwc0, nc1hwc0}, {{"a", 0}, {"b", 3}, {"c", 3}}},
      {"designated output turns the default rule off",
       {{"b", {0}}},
       {nc1hwc0},
       {{"a", kNone}, {"b", 3}, {"c", kNone}}},
      {"each designated index uses an ordinal",
       {{"split", {0, 2}}, {"c", {0}}},
       {nc1hwc0, nchw, nc1hwc0},
       {{"split", 0}, {"c", 3}, {"a", kNone}}},
      {"a repeated index counts once", {{"a", {0, 0}}, {"b", {0}}}, {nchw, nc1hwc0}, {{"b", 3}}},
      {"index beyond the outputs", {{"a", {1}}}, {nc1hwc0}, {{"a", kNone}, {"b", kNone}}},
  };
  for (const auto& c : cases) {
    tesu::ParserOptions options;
    options.outputNodes = c.outputNodes;
    options.outputFormats = c.formats;
    const auto outcome = Parse(Outputs(), options);
    ASSERT_EQ(outcome.status, 0u) << c.what;
    for (const auto& [node, value] : c.expected) {
      EXPECT_EQ(IntAttr(*outcome.graph, node, "inferred_format"), value) << c.what << ": " << node;
    }
  }
  // The first output beyond the list gets the default, whatever the list's storage holds there
  // (the options are moved in, so the storage is the one filled here).
  tesu::ParserOptions options;
  options.outputFormats = {tesu::TREL_FORMAT_NC1HWC0, tesu::TREL_FORMAT_NC1HWC0};
  options.outputFormats.pop_back();
  const auto outcome = Parse(Outputs(), std::move(options));
  ASSERT_EQ(outcome.status, 0u);
  EXPECT_EQ(IntAttr(*outcome.graph, "a", "inferred_format"), 3);
  EXPECT_EQ(IntAttr(*outcome.graph, "b", "inferred_format"), 0);
}

}  // namespace
