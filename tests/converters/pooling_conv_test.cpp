#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "converter_test_support.h"

namespace {

using convtest::AttrOf;
using convtest::Convert;
using convtest::Ints;
using convtest::Line;
using convtest::Quoted;
using Edit = std::function<void(testkit::OpBuilder&)>;

void Erase(testkit::OpBuilder& op, const std::string& attr) {
  op.Def().mutable_attr()->erase(attr);
}

// Replaces a list attribute that the graph builders below start with (Attr appends to a list).
testkit::OpBuilder& List(testkit::OpBuilder& op, const std::string& attr, const Ints& values) {
  Erase(op, attr);
  return op.Attr(attr, values);
}

// A MaxPool with a complete, valid set of source attributes, then changed by `edit`.
std::shared_ptr<tov::ComputeGraph> PoolGraph(const Edit& edit) {
  testkit::ModelBuilder model;
  model.Data("x");
  testkit::OpBuilder pool = model.Unary("pool", "MaxPool", "x");
  pool.Attr("ksize", Ints{1, 3, 3, 1})
      .Attr("strides", Ints{1, 2, 2, 1})
      .Attr("padding", "SAME")
      .Attr("data_format", "NHWC");
  edit(pool);
  return convtest::Load(model);
}

// A convolution fed by x and by one Const weight per shape, then changed by `edit`.
std::shared_ptr<tov::ComputeGraph> ConvGraph(const std::string& type,
                                             const std::vector<Ints>& weightShapes,
                                             const Edit& edit) {
  testkit::ModelBuilder model;
  model.Data("x");
  for (size_t i = 0; i < weightShapes.size(); ++i) {
    size_t count = 1;
    for (int64_t dim : weightShapes[i]) count *= static_cast<size_t>(dim);
    model.ConstFloat("w" + std::to_string(i), std::vector<float>(count, 1.0f), weightShapes[i]);
  }
  testkit::OpBuilder conv = model.Op("conv", type).Input("x");
  for (size_t i = 0; i < weightShapes.size(); ++i) conv.Input("w" + std::to_string(i));
  conv.Output().Attr("dilations", Ints{1, 1, 1, 1}).Attr("strides", Ints{1, 1, 1, 1});
  edit(conv);
  return convtest::Load(model);
}

// Pooling windows and convolution strides keep the height and width entries of the format.
TEST(SpatialPair, PoolingAndConvolutionKeepHeightAndWidthOfTheFormat) {
  struct Row {
    const char* format;
    Ints values;
    Ints pair;
  };
  const Row rows[] = {{"NHWC", {1, 2, 3, 4}, {2, 3}}, {"NCHW", {1, 2, 3, 4}, {3, 4}}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.format);
    auto pool = PoolGraph([&](testkit::OpBuilder& op) {
      List(List(op, "ksize", row.values), "strides", Ints{5, 6, 7, 8})
          .Attr("data_format", row.format);
    });
    ASSERT_EQ(Convert(*pool, "pool"), 0u);
    EXPECT_EQ(AttrOf<Ints>(*pool, "pool", "window"), row.pair);
    EXPECT_EQ(AttrOf<Ints>(*pool, "pool", "stride"), (Ints{row.pair[0] + 4, row.pair[1] + 4}));

    auto conv = ConvGraph("Conv2D", {}, [&](testkit::OpBuilder& op) {
      List(List(op, "dilations", row.values), "strides", Ints{5, 6, 7, 8, 9})
          .Attr("data_format", row.format);
    });
    ASSERT_EQ(Convert(*conv, "conv"), 0u);
    EXPECT_EQ(AttrOf<Ints>(*conv, "conv", "dilations"), row.pair);
    EXPECT_EQ(AttrOf<Ints>(*conv, "conv", "strides"), (Ints{row.pair[0] + 4, row.pair[1] + 4}));
  }
}

TEST(MaxPoolConverter, WritesPoolingAttributesAndDropsTheSourceOnes) {
  auto graph = PoolGraph([](testkit::OpBuilder&) {});
  ASSERT_EQ(Convert(*graph, "pool"), 0u);
  EXPECT_EQ(convtest::TypeOf(*graph, "pool"), "PoolingD");
  EXPECT_EQ(AttrOf<int64_t>(*graph, "pool", "mode"), 0);
  EXPECT_EQ(AttrOf<int64_t>(*graph, "pool", "ceil_mode"), 0);
  EXPECT_EQ(AttrOf<bool>(*graph, "pool", "global_pooling"), false);
  EXPECT_EQ(AttrOf<int64_t>(*graph, "pool", "pad_mode"), 6);
  EXPECT_EQ(AttrOf<int64_t>(*graph, "pool", "data_mode"), 1);
  EXPECT_EQ(AttrOf<Ints>(*graph, "pool", "pad"), (Ints{0, 0, 0, 0}));
  for (const char* gone : {"ksize", "strides", "padding", "data_format"}) {
    EXPECT_FALSE(testkit::NodeNamed(*graph, "pool")->GetOpDesc()->HasAttr(gone)) << gone;
  }

  auto valid = PoolGraph([](testkit::OpBuilder& op) { op.Attr("padding", "VALID"); });
  ASSERT_EQ(Convert(*valid, "pool"), 0u);
  EXPECT_EQ(AttrOf<int64_t>(*valid, "pool", "pad_mode"), 5);
}

TEST(MaxPoolConverter, KeepsPoolingValuesTheNodeAlreadyHas) {
  auto graph = PoolGraph([](testkit::OpBuilder& op) {
    op.Attr("ceil_mode", 1).Attr("global_pooling", true).Attr("pad", Ints{1, 1, 1, 1});
  });
  ASSERT_EQ(Convert(*graph, "pool"), 0u);
  EXPECT_EQ(AttrOf<int64_t>(*graph, "pool", "ceil_mode"), 1);
  EXPECT_EQ(AttrOf<bool>(*graph, "pool", "global_pooling"), true);
  EXPECT_EQ(AttrOf<Ints>(*graph, "pool", "pad"), (Ints{1, 1, 1, 1}));
}

TEST(MaxPoolConverter, RefusesIncompleteOrUnknownAttributes) {
  struct Row {
    Edit edit;
    int line;
    const char* message;
  };
  const Row rows[] = {
      {[](auto& op) { Erase(op, "ksize"); }, 378, "get ksize fail."},
      {[](auto& op) {
         List(op, "ksize", Ints{1, 3, 3, 1, 1});
       },
       379, "ksize size should be 4"},
      {[](auto& op) { Erase(op, "strides"); }, 382, "get strides fail."},
      {[](auto& op) {
         List(op, "strides", Ints{1, 2, 2});
       },
       383, "strides size should be 4"},
      {[](auto& op) { Erase(op, "padding"); }, 385, "get padding fail."},
      {[](auto& op) { Erase(op, "data_format"); }, 388, "get dataFormat fail."},
      {[](auto& op) { op.Attr("data_format", "nhwc"); }, 409, "dont support dataFormat nhwc"},
      {[](auto& op) { op.Attr("padding", "same"); }, 417, "dont support padding same"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.line);
    auto graph = PoolGraph(row.edit);
    testkit::LogCapture log;
    EXPECT_EQ(Convert(*graph, "pool"), 1u);
    convtest::ExpectSingleLine(log, Line("OrvaneMaxPoolParserFunc", row.line, Quoted(row.message)));
    EXPECT_EQ(convtest::TypeOf(*graph, "pool"), "PoolingD");
    // Only a bad padding is found after the window and stride were written.
    EXPECT_EQ(AttrOf<Ints>(*graph, "pool", "window").has_value(), row.line == 417);
  }
}

TEST(ConvConverter, ConvolutionDefaultsGroupsAndFormatAndReplacesPadMode) {
  auto graph = ConvGraph("Conv2D", {{8, 3, 3, 3}, {8}}, [](testkit::OpBuilder& op) {
    List(op, "dilations", Ints{1, 1, 2, 2}).Attr("pad_mode", 3);
  });
  ASSERT_EQ(Convert(*graph, "conv"), 0u);
  EXPECT_EQ(convtest::TypeOf(*graph, "conv"), "Convolution");
  EXPECT_EQ(AttrOf<Ints>(*graph, "conv", "dilations"), (Ints{2, 2}));
  EXPECT_EQ(AttrOf<int64_t>(*graph, "conv", "groups"), 1);
  EXPECT_EQ(AttrOf<int64_t>(*graph, "conv", "pad_mode"), 0);

  auto grouped = ConvGraph("Conv2D", {}, [](testkit::OpBuilder& op) { op.Attr("groups", 4); });
  ASSERT_EQ(Convert(*grouped, "conv"), 0u);
  EXPECT_EQ(AttrOf<int64_t>(*grouped, "conv", "groups"), 4);
}

TEST(ConvConverter, RefusesMissingShortOrUnknownAttributes) {
  struct Row {
    Edit edit;
    int line;
    const char* message;
  };
  const Row rows[] = {
      {[](auto& op) { Erase(op, "dilations"); }, 212, "get dilations fail."},
      {[](auto& op) {
         List(op, "dilations", Ints{1, 1, 1});
       },
       214, "dilations size error!"},
      {[](auto& op) { Erase(op, "strides"); }, 219, "get strides fail."},
      {[](auto& op) {
         List(op, "strides", Ints{1, 2, 2});
       },
       221, "strides size error! size : 3"},
      {[](auto& op) { op.Attr("data_format", "nchw"); }, 236, "dont support dataFormat nchw"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.line);
    auto graph = ConvGraph("Conv2D", {}, row.edit);
    testkit::LogCapture log;
    EXPECT_EQ(Convert(*graph, "conv"), 1u);
    convtest::ExpectSingleLine(log, Line("ConvParserFunc", row.line, Quoted(row.message)));
    EXPECT_EQ(convtest::TypeOf(*graph, "conv"), "Conv2D");
    EXPECT_EQ(AttrOf<int64_t>(*graph, "conv", "pad_mode"), 0);
  }
}

TEST(ConvConverter, DepthwiseFoldsTheWeightsFirstTwoDimensions) {
  auto graph = ConvGraph("DepthwiseConv2D", {{2, 16, 3, 3}},
                         [](testkit::OpBuilder& op) { op.Attr("groups", 32); });
  ASSERT_EQ(Convert(*graph, "conv"), 0u);
  EXPECT_EQ(convtest::TypeOf(*graph, "conv"), "ConvolutionDepthwise");
  EXPECT_FALSE(AttrOf<int64_t>(*graph, "conv", "groups").has_value());
  EXPECT_EQ(AttrOf<int64_t>(*graph, "conv", "pad_mode"), 5);
  const auto weights = convtest::WeightsOf(*graph, "conv");
  ASSERT_EQ(weights.size(), 1u);
  EXPECT_EQ(weights[0]->GetTensorDesc().GetShape().GetDims(), (Ints{32, 1, 3, 3}));
  EXPECT_EQ(weights[0]->GetData().GetSize(), 288 * sizeof(float));
}

TEST(ConvConverter, DepthwiseRefusesAnythingButOneFourDimensionalWeight) {
  struct Row {
    std::vector<Ints> weights;
    int line;
    const char* message;
  };
  const Row rows[] = {
      {{{2, 16, 3, 3}, {2, 16, 3, 3}}, 247, "node: conv, weightsVec size : 2"},
      {{}, 247, "node: conv, weightsVec size : 0"},
      {{{16, 3, 3}}, 250, "Dim number of size must be 4."},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.message);
    auto graph = ConvGraph("DepthwiseConv2D", row.weights, [](testkit::OpBuilder&) {});
    testkit::LogCapture log;
    EXPECT_EQ(Convert(*graph, "conv"), 3u);
    convtest::ExpectSingleLine(log, Line("ConvParserFunc", row.line, Quoted(row.message)));
    EXPECT_EQ(convtest::TypeOf(*graph, "conv"), "DepthwiseConv2D");
    for (const auto& weight : convtest::WeightsOf(*graph, "conv")) {
      EXPECT_EQ(weight->GetTensorDesc().GetShape().GetDims()[0], row.weights[0][0]);
    }
  }
}

}  // namespace
