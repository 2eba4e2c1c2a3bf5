// Shapes and sizes that no tensor could have, and models beyond the accepted limits: each is
// refused while loading with a line naming the node and the shape, while the largest values
// inside the limits still load.
#include <gtest/gtest.h>

#include "graph/model_limits.h"
#include "graph/shape_math.h"
#include "parse.h"

namespace {

using namespace testkit;
using tov::ShapeFault;
using tov::UnknownDims;
using Dims = std::vector<int64_t>;

constexpr int64_t kBig = int64_t{1} << 40;

struct SizeCase {
  Dims dims;
  UnknownDims unknown;
  int32_t dataType;  // -1: element count only
  ShapeFault fault;
  int64_t expected;  // the size, or the index of the dimension at fault
};

TEST(ShapeMath, SizesAreExactOrRefusedWithTheDimensionAtFault) {
  const SizeCase cases[] = {
      {{INT64_MAX / 2, 2}, UnknownDims::kRefuse, -1, ShapeFault::kNone, INT64_MAX - 1},
      {{INT64_MAX / 2 + 1, 2}, UnknownDims::kRefuse, -1, ShapeFault::kCountOverflow, 1},
      // A zero dimension empties the shape wherever it stands.
      {{kBig, kBig, 0}, UnknownDims::kRefuse, -1, ShapeFault::kNone, 0},
      {{3, -1, 5}, UnknownDims::kRefuse, -1, ShapeFault::kUnknownDim, 1},
      {{3, -1, 5}, UnknownDims::kSkip, -1, ShapeFault::kNone, 15},
      {{1, -2}, UnknownDims::kSkip, -1, ShapeFault::kNegativeDim, 1},
      {Dims(tov::kMaxShapeRank + 1, 1), UnknownDims::kRefuse, -1, ShapeFault::kRankTooLarge, 0},
      {{int64_t{1} << 61}, UnknownDims::kRefuse, tov::DT_INT32, ShapeFault::kBytesOverflow, 0},
      {{2}, UnknownDims::kRefuse, 99, ShapeFault::kUnknownDataType, 2},
  };
  for (const SizeCase& c : cases) {
    SCOPED_TRACE(tov::ShapeText(c.dims) + " data type " + std::to_string(c.dataType));
    const tov::ShapeSize size = c.dataType < 0
                                    ? tov::CheckedElementCount(c.dims, c.unknown)
                                    : tov::CheckedByteSize(c.dims, c.dataType, c.unknown);
    EXPECT_EQ(size.fault, c.fault);
    const bool sized = size.ok() || size.fault == ShapeFault::kUnknownDataType;
    EXPECT_EQ(sized ? size.value : static_cast<int64_t>(size.dim), c.expected);
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
  const char* fragment;  // of the refusal's log line
};

TEST(ShapeLimits, ImpossibleTensorsAndOversizedModelsAreRefusedWhileLoading) {
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
      {"output whose known dimensions overflow", Build([](ModelBuilder& m) {
         m.Op("x", "Data").Output({-1, kBig, kBig});
       }),
       "node \"x\" (Data): output description 0 has shape [-1, 1099511627776, 1099511627776] "
       "whose element count overflows"},
      {"input of more dimensions than a shape may have",
       Build([](ModelBuilder& m) { m.Data("x", Dims(tov::kMaxShapeRank + 1, 1)); }),
       "input description 0 has 33 dimensions, more than the 32 a shape may have"},
      {"node name longer than a name may be",
       Build([](ModelBuilder& m) { m.Data(std::string(tov::kMaxNameBytes + 1, 'n')); }),
       "node 0 of the graph: a name, type or input of 65537 bytes is longer than the 65536"},
      {"attribute name longer than a name may be", Build([](ModelBuilder& m) {
         m.Data("x").Attr(std::string(tov::kMaxNameBytes + 1, 'a'), int64_t{1});
       }),
       "node \"x\" (Data) has an attribute name of 65537 bytes, more than the 65536"},
      {"more nodes than a model may have", EmptyOps(tov::kMaxGraphNodes + 1),
       "it has more than 4000000 nodes"},
      // Graphs after the first are not built, but parsing them costs as much memory.
      {"more nodes than a model may have, in two graphs",
       EmptyOps(tov::kMaxGraphNodes / 2) + EmptyOps(tov::kMaxGraphNodes / 2 + 1),
       "it has more than 4000000 nodes"},
  };
  for (const LoadCase& c : cases) {
    SCOPED_TRACE(c.label);
    LogCapture log;
    const ParseOutcome outcome = ParseBytes(c.bytes);
    EXPECT_EQ(outcome.status, tov::GRAPH_MODEL_INVALID);
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_NE(log.Lines()[0].text.find(c.fragment), std::string::npos) << log.Lines()[0].text;
    // A refused name is counted, never echoed: the line stays short.
    EXPECT_LT(log.Lines()[0].text.size(), 400u);
  }
}

}  // namespace
