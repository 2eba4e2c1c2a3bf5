// Shapes and sizes that no tensor could have, and models beyond the accepted limits: each is
// refused while loading with a line naming the node and the shape, while the largest values
// inside the limits still load.
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "graph/model_limits.h"
#include "graph/op_desc_utils.h"
#include "graph/shape_math.h"
#include "log_capture.h"
#include "model_builder.h"
#include "parse_outcome.h"

namespace {

using testkit::LogCapture;
using testkit::ModelBuilder;
using tov::ShapeFault;
using tov::UnknownDims;
using Dims = std::vector<int64_t>;

constexpr int64_t kBig = int64_t{1} << 40;

struct SizeCase {
  Dims dims;
  UnknownDims unknown;
  int32_t dataType;  // -1: element count only
  ShapeFault fault;
  int64_t value;
  size_t dim;
};

TEST(ShapeMath, SizesAreExactOrRefusedWithTheDimensionAtFault) {
  const Dims rankTooLarge(tov::kMaxShapeRank + 1, 1);
  const Dims widest(tov::kMaxShapeRank, 2);
  const SizeCase cases[] = {
      {{}, UnknownDims::kRefuse, -1, ShapeFault::kNone, 1, 0},
      {{INT64_MAX, 1}, UnknownDims::kRefuse, -1, ShapeFault::kNone, INT64_MAX, 0},
      {{INT64_MAX / 2, 2}, UnknownDims::kRefuse, -1, ShapeFault::kNone, INT64_MAX - 1, 0},
      {{INT64_MAX / 2 + 1, 2}, UnknownDims::kRefuse, -1, ShapeFault::kCountOverflow, 0, 1},
      {{kBig, kBig}, UnknownDims::kRefuse, -1, ShapeFault::kCountOverflow, 0, 1},
      // A zero dimension empties the shape wherever it stands.
      {{kBig, kBig, 0}, UnknownDims::kRefuse, -1, ShapeFault::kNone, 0, 0},
      {{0, kBig, kBig}, UnknownDims::kRefuse, -1, ShapeFault::kNone, 0, 0},
      {{3, -1, 5}, UnknownDims::kRefuse, -1, ShapeFault::kUnknownDim, 0, 1},
      {{3, -1, 5}, UnknownDims::kSkip, -1, ShapeFault::kNone, 15, 0},
      {{-1, kBig, kBig}, UnknownDims::kSkip, -1, ShapeFault::kCountOverflow, 0, 2},
      {{1, -2}, UnknownDims::kSkip, -1, ShapeFault::kNegativeDim, 0, 1},
      {{INT64_MIN}, UnknownDims::kRefuse, -1, ShapeFault::kNegativeDim, 0, 0},
      {rankTooLarge, UnknownDims::kRefuse, -1, ShapeFault::kRankTooLarge, 0, 0},
      {widest, UnknownDims::kRefuse, -1, ShapeFault::kNone, int64_t{1} << 32, 0},
      // Byte sizes.
      {{2, 3}, UnknownDims::kRefuse, tov::DT_DOUBLE, ShapeFault::kNone, 48, 0},
      {{int64_t{1} << 61}, UnknownDims::kRefuse, tov::DT_INT32, ShapeFault::kBytesOverflow, 0, 0},
      {{int64_t{1} << 61},
       UnknownDims::kRefuse,
       tov::DT_UINT8,
       ShapeFault::kNone,
       int64_t{1} << 61,
       0},
      {{kBig, kBig}, UnknownDims::kRefuse, tov::DT_INT8, ShapeFault::kCountOverflow, 0, 1},
      {{2}, UnknownDims::kRefuse, 99, ShapeFault::kUnknownDataType, 2, 0},
  };
  for (const SizeCase& c : cases) {
    SCOPED_TRACE(tov::ShapeText(c.dims) + " data type " + std::to_string(c.dataType));
    const tov::ShapeSize size = c.dataType < 0
                                    ? tov::CheckedElementCount(c.dims, c.unknown)
                                    : tov::CheckedByteSize(c.dims, c.dataType, c.unknown);
    EXPECT_EQ(size.fault, c.fault);
    if (size.ok() || size.fault == ShapeFault::kUnknownDataType) {
      EXPECT_EQ(size.value, c.value);
    } else {
      EXPECT_EQ(size.dim, c.dim);
    }
  }
}

std::string Build(void (*build)(ModelBuilder&)) {
  ModelBuilder model;
  build(model);
  return model.Bytes();
}

// A model of `count` ops with no content, serialised by hand: building it through protobuf
// would cost far more than the load that refuses it.
std::string EmptyOps(size_t count) {
  auto varint = [](uint64_t value) {
    std::string bytes;
    for (; value >= 0x80; value >>= 7) bytes += static_cast<char>((value & 0x7f) | 0x80);
    return bytes + static_cast<char>(value);
  };
  std::string graph;
  graph.reserve(2 * count);
  for (size_t i = 0; i < count; ++i) graph += std::string("\x12\x00", 2);
  return "\x12" + varint(graph.size()) + graph;
}

struct LoadCase {
  const char* label;
  std::string bytes;
  const char* fragment;  // of the refusal's log line; null when the model must load
};

TEST(ShapeLimits, ImpossibleTensorsAndOversizedModelsAreRefusedWhileLoading) {
  const std::string longName(tov::kMaxNameBytes + 1, 'n');
  const LoadCase cases[] = {
      {"Const of 2^80 elements without data", Build([](ModelBuilder& m) {
         // Written by hand, with no output description: only its tensor has the shape.
         m.ConstInt32("c", {}, {kBig, kBig}).Def().clear_output_desc();
       }),
       "node \"c\" (Const): attribute \"value\" of node \"c\" (Const) has shape [1099511627776, "
       "1099511627776] whose element count overflows 64 bits"},
      {"Const of 2^62 FLOAT elements, 2^64 bytes, without data", Build([](ModelBuilder& m) {
         m.ConstFloat("c", {}, {int64_t{1} << 31, int64_t{1} << 31}).Def().clear_output_desc();
       }),
       "has shape [2147483648, 2147483648] whose size in bytes as FLOAT overflows 64 bits"},
      {"Const without data whose zero dimension empties it", Build([](ModelBuilder& m) {
         m.ConstInt32("c", {}, {kBig, kBig, 0});
       }),
       nullptr},
      {"output whose known dimensions overflow", Build([](ModelBuilder& m) {
         m.Op("x", "Data").Output({-1, kBig, kBig});
       }),
       "node \"x\" (Data): output description 0 has shape [-1, 1099511627776, 1099511627776] "
       "whose element count overflows"},
      {"input of more dimensions than a shape may have",
       Build([](ModelBuilder& m) { m.Data("x", Dims(tov::kMaxShapeRank + 1, 1)); }),
       "input description 0 has 33 dimensions, more than the 32 a shape may have"},
      {"input of the most dimensions a shape may have",
       Build([](ModelBuilder& m) { m.Data("x", Dims(tov::kMaxShapeRank, 1)); }), nullptr},
      {"tensor data with an unknown dimension", Build([](ModelBuilder& m) {
         m.ConstInt32("c", {1, 2}, {-1, 2});
       }),
       "holds 8 bytes of data, which need a known shape and data type, but it has shape [-1, 2] "
       "whose dimension 0 is unknown (-1)"},
      {"node name longer than a name may be",
       Build([](ModelBuilder& m) { m.Data(std::string(tov::kMaxNameBytes + 1, 'n')); }),
       "node 0 of the graph: a name, type or input of 65537 bytes is longer than the 65536"},
      {"input reference longer than a name may be", Build([](ModelBuilder& m) {
         m.Data("x");
         m.Unary("y", "Relu", std::string(tov::kMaxNameBytes + 1, 'x'));
       }),
       "node 1 of the graph: a name, type or input of 65539 bytes"},
      {"attribute name longer than a name may be", Build([](ModelBuilder& m) {
         m.Data("x").Attr(std::string(tov::kMaxNameBytes + 1, 'a'), int64_t{1});
       }),
       "node \"x\" (Data) has an attribute name of 65537 bytes, more than the 65536"},
      {"more nodes than a model may have", EmptyOps(tov::kMaxGraphNodes + 1),
       "the graph has more than 4000000 nodes"},
  };
  for (const LoadCase& c : cases) {
    SCOPED_TRACE(c.label);
    LogCapture log;
    const robustness::ParseOutcome outcome = robustness::ParseBytes(c.bytes);
    if (c.fragment == nullptr) {
      EXPECT_EQ(outcome.status, 0u) << ::testing::PrintToString(log.Texts());
      continue;
    }
    EXPECT_EQ(outcome.status, tov::GRAPH_MODEL_INVALID);
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_NE(log.Lines()[0].text.find(c.fragment), std::string::npos) << log.Lines()[0].text;
    // A refused name is counted, never echoed: the line stays short.
    EXPECT_LT(log.Lines()[0].text.size(), 400u);
  }
}

// A depthwise weight without data may leave its first dimensions unknown; they fold into an
// unknown dimension instead of a negative product.
TEST(ShapeLimits, DepthwiseWeightOfUnknownDimensionsFoldsToUnknown) {
  const std::string bytes = Build([](ModelBuilder& m) {
    m.Data("x");
    m.ConstFloat("w", {}, {-1, 16, 3, 3});
    m.Unary("dw", "DepthwiseConv2D", "x")
        .Input("w")
        .Attr("dilations", Dims{1, 1, 1, 1})
        .Attr("strides", Dims{1, 1, 1, 1});
  });
  const robustness::ParseOutcome outcome = robustness::ParseBytes(bytes);
  ASSERT_EQ(outcome.status, 0u);
  const auto graph = tov::GraphUtils::GetComputeGraph(outcome.graph);
  const auto weights = tov::OpDescUtils::MutableWeights(*graph->FindNode("dw"));
  ASSERT_EQ(weights.size(), 1u);
  EXPECT_EQ(weights[0]->GetTensorDesc().GetShape().GetDims(), (Dims{-1, 1, 3, 3}));
}

}  // namespace
