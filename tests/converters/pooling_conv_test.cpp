// MaxPool and the convolutions keep the height and width entries of their list attributes.
#include <gtest/gtest.h>

#include "parse.h"

namespace {

using namespace testkit;

// One attribute change: erased, then set to `text` or `list` when given.
struct AttrEdit {
  const char* name;
  const char* text;
  Ints list;
};

// x, w0, w1, ... -> n: a MaxPool with a valid set of source attributes, or a convolution with
// unit dilations and strides fed by one Const weight per shape; then `edits`.
std::shared_ptr<tov::ComputeGraph> Graph(const std::string& type,
                                         const std::vector<AttrEdit>& edits,
                                         const std::vector<Ints>& weightShapes = {}) {
  ModelBuilder model;
  model.Data("x");
  for (size_t i = 0; i < weightShapes.size(); ++i) {
    size_t count = 1;
    for (int64_t dim : weightShapes[i]) count *= static_cast<size_t>(dim);
    model.ConstFloat("w" + std::to_string(i), std::vector<float>(count, 1.0f), weightShapes[i]);
  }
  OpBuilder op = model.Op("n", type).Input("x").Output();
  for (size_t i = 0; i < weightShapes.size(); ++i) op.Input("w" + std::to_string(i));
  if (type == "MaxPool") {
    op.Attr("ksize", Ints{1, 3, 3, 1}).Attr("strides", Ints{1, 2, 2, 1});
    op.Attr("padding", "SAME").Attr("data_format", "NHWC");
  } else {
    op.Attr("dilations", Ints{1, 1, 1, 1}).Attr("strides", Ints{1, 1, 1, 1});
  }
  for (const AttrEdit& edit : edits) {
    op.Def().mutable_attr()->erase(edit.name);
    if (edit.text != nullptr) op.Attr(edit.name, edit.text);
    if (!edit.list.empty()) op.Attr(edit.name, edit.list);
  }
  return Load(model);
}

TEST(SpatialPair, PoolingAndConvolutionKeepHeightAndWidthOfTheFormat) {
  const std::pair<const char*, Ints> rows[] = {{"NHWC", {2, 3}}, {"NCHW", {3, 4}}};
  for (const auto& [format, pair] : rows) {
    SCOPED_TRACE(format);
    const Ints stridePair{pair[0] + 4, pair[1] + 4};
    auto pool = Graph("MaxPool", {{"ksize", nullptr, {1, 2, 3, 4}},
                                  {"strides", nullptr, {5, 6, 7, 8}},
                                  {"data_format", format, {}}});
    ASSERT_EQ(Convert(*pool, "n"), 0u);
    EXPECT_EQ(AttrOf<Ints>(*pool, "n", "window"), pair);
    EXPECT_EQ(AttrOf<Ints>(*pool, "n", "stride"), stridePair);

    auto conv = Graph("Conv2D", {{"dilations", nullptr, {1, 2, 3, 4}},
                                 {"strides", nullptr, {5, 6, 7, 8, 9}},
                                 {"data_format", format, {}}});
    ASSERT_EQ(Convert(*conv, "n"), 0u);
    EXPECT_EQ(AttrOf<Ints>(*conv, "n", "dilations"), pair);
    EXPECT_EQ(AttrOf<Ints>(*conv, "n", "strides"), stridePair);
  }
}

// Defaults are written where the node has no value of its own; the source attributes go.
TEST(MaxPoolConverter, WritesPoolingAttributesAndDropsTheSourceOnes) {
  auto graph = Graph("MaxPool", {});
  ASSERT_EQ(Convert(*graph, "n"), 0u);
  EXPECT_EQ(Desc(*graph, "n").GetType(), "PoolingD");
  EXPECT_EQ(AttrsText(Desc(*graph, "n")),
            "ceil_mode=0 data_mode=1 global_pooling=false mode=0 pad=[0,0,0,0] pad_mode=6 "
            "stride=[2,2] window=[3,3]");

  graph = Graph("MaxPool", {{"padding", "VALID", {}}, {"pad", nullptr, {1, 1, 1, 1}}});
  Desc(*graph, "n").SetAttr("ceil_mode", tov::AttrValue::CreateFrom(int64_t{1}));
  Desc(*graph, "n").SetAttr("global_pooling", tov::AttrValue::CreateFrom(true));
  ASSERT_EQ(Convert(*graph, "n"), 0u);
  EXPECT_EQ(AttrsText(Desc(*graph, "n")),
            "ceil_mode=1 data_mode=1 global_pooling=true mode=0 pad=[1,1,1,1] pad_mode=5 "
            "stride=[2,2] window=[3,3]");
}

TEST(ConvConverter, ConvolutionKeepsGroupsOrDefaultsThemAndReplacesPadMode) {
  for (const int64_t groups : {int64_t{0}, int64_t{4}}) {
    auto graph = Graph("Conv2D", {{"dilations", nullptr, {1, 1, 2, 2}}}, {{8, 3, 3, 3}, {8}});
    if (groups != 0) Desc(*graph, "n").SetAttr("groups", tov::AttrValue::CreateFrom(groups));
    Desc(*graph, "n").SetAttr("pad_mode", tov::AttrValue::CreateFrom(int64_t{3}));
    ASSERT_EQ(Convert(*graph, "n"), 0u);
    EXPECT_EQ(Desc(*graph, "n").GetType(), "Convolution");
    EXPECT_EQ(AttrsText(Desc(*graph, "n")),
              "dilations=[2,2] groups=" + std::to_string(groups != 0 ? groups : 1) +
                  " pad_mode=0 strides=[1,1]");
    EXPECT_EQ(WeightsOf(*graph, "n")[0]->GetTensorDesc().GetShape().GetDim(0), 8);
  }
}

// The depthwise weight [d0, d1, h, w] folds to [d0 * d1, 1, h, w] with its bytes untouched; the
// group count goes and the pad mode is 5.
TEST(ConvConverter, DepthwiseFoldsItsWeightAndDropsGroups) {
  auto graph = Graph("DepthwiseConv2D", {{"strides", nullptr, {1, 1, 2, 2}}}, {{2, 16, 3, 3}});
  Desc(*graph, "n").SetAttr("groups", tov::AttrValue::CreateFrom(int64_t{32}));
  const tov::TensorPtr weight = WeightsOf(*graph, "n")[0];
  const std::vector<int32_t> bytes = Int32Data(*weight);
  ASSERT_EQ(Convert(*graph, "n"), 0u);
  EXPECT_EQ(Desc(*graph, "n").GetType(), "ConvolutionDepthwise");
  EXPECT_EQ(AttrsText(Desc(*graph, "n")), "dilations=[1,1] pad_mode=5 strides=[2,2]");
  ASSERT_EQ(WeightsOf(*graph, "n"), std::vector<tov::TensorPtr>{weight});
  EXPECT_EQ(weight->GetTensorDesc().GetShape(), tov::Shape({32, 1, 3, 3}));
  EXPECT_EQ(weight->GetTensorDesc().GetDataType(), tov::DT_FLOAT);
  EXPECT_EQ(Int32Data(*weight), bytes);
}

// A refused node keeps its source type (a MaxPool is retyped first); a pooling window is written
// only when the padding alone is wrong.
TEST(PoolAndConvConverters, RefuseIncompleteOrUnknownAttributes) {
  struct Row {
    const char* type;
    AttrEdit edit;
    int line;
    const char* message;
  };
  const Row rows[] = {
      {"MaxPool", {"ksize", nullptr, {}}, 378, "get ksize fail."},
      {"MaxPool", {"ksize", nullptr, {1, 3, 3, 1, 1}}, 379, "ksize size should be 4"},
      {"MaxPool", {"strides", nullptr, {}}, 382, "get strides fail."},
      {"MaxPool", {"strides", nullptr, {1, 2, 2}}, 383, "strides size should be 4"},
      {"MaxPool", {"padding", nullptr, {}}, 385, "get padding fail."},
      {"MaxPool", {"data_format", nullptr, {}}, 388, "get dataFormat fail."},
      {"MaxPool", {"data_format", "nhwc", {}}, 409, "dont support dataFormat nhwc"},
      {"MaxPool", {"padding", "same", {}}, 417, "dont support padding same"},
      {"Conv2D", {"dilations", nullptr, {}}, 212, "get dilations fail."},
      {"Conv2D", {"dilations", nullptr, {1, 1, 1}}, 214, "dilations size error!"},
      {"Conv2D", {"strides", nullptr, {}}, 219, "get strides fail."},
      {"Conv2D", {"strides", nullptr, {1, 2, 2}}, 221, "strides size error! size : 3"},
      {"Conv2D", {"data_format", "nchw", {}}, 236, "dont support dataFormat nchw"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.line);
    const bool pool = std::string(row.type) == "MaxPool";
    auto graph = Graph(row.type, {row.edit});
    ExpectConvertRefused(*graph, 1, pool ? "OrvaneMaxPoolParserFunc" : "ConvParserFunc", row.line,
                         Quoted(row.message));
    EXPECT_EQ(Desc(*graph, "n").GetType(), pool ? "PoolingD" : "Conv2D");
    EXPECT_EQ(Desc(*graph, "n").HasAttr("window"), pool && row.line == 417);
  }
}

// A weight whose folded first dimension overflows can only be made in memory: a loaded one has a
// checked element count.
TEST(ConvConverter, DepthwiseRefusesAnythingButOneFourDimensionalFoldableWeight) {
  constexpr int64_t kBig = int64_t{1} << 40;
  const std::pair<std::vector<Ints>, std::pair<int, const char*>> rows[] = {
      {{{2, 16, 3, 3}, {2, 16, 3, 3}}, {247, "node: n, weightsVec size : 2"}},
      {{}, {247, "node: n, weightsVec size : 0"}},
      {{{16, 3, 3}}, {250, "Dim number of size must be 4."}},
      {{{kBig, kBig, 3, 3}},
       {251, "node: n, weight dims 1099511627776 x 1099511627776 overflow 64 bits"}},
  };
  for (const auto& [weights, expected] : rows) {
    SCOPED_TRACE(expected.second);
    const bool big = expected.first == 251;
    auto graph = Graph("DepthwiseConv2D", {}, big ? std::vector<Ints>{{1, 1, 3, 3}} : weights);
    if (big) WeightsOf(*graph, "n")[0]->MutableTensorDesc().SetShape(tov::Shape(weights[0]));
    ExpectConvertRefused(*graph, 3, "ConvParserFunc", expected.first, Quoted(expected.second));
    EXPECT_EQ(Desc(*graph, "n").GetType(), "DepthwiseConv2D");
    for (const auto& weight : WeightsOf(*graph, "n")) {
      EXPECT_EQ(weight->GetTensorDesc().GetShape().GetDims()[0], weights[0][0]);
    }
  }
}

}  // namespace
