// Checked arithmetic over shapes: element counts and byte sizes that cannot overflow. Every
// place that multiplies dimensions goes through here, so a shape read from a file can never
// wrap around into a small, plausible-looking size.
#ifndef TOV_GRAPH_SHAPE_MATH_H
#define TOV_GRAPH_SHAPE_MATH_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "graph/model_limits.h"
#include "graph/shape.h"

namespace tov {

// Why a size could not be computed.
enum class ShapeFault : uint8_t {
  kNone,
  kRankTooLarge,     // more than kMaxShapeRank (model_limits.h) dimensions
  kNegativeDim,      // a dimension below -1
  kUnknownDim,       // -1 where every dimension must be known
  kCountOverflow,    // the element count does not fit in 64 bits
  kBytesOverflow,    // the element count fits, its size in bytes does not
  kUnknownDataType,  // the data type has no element size
};

// A size, or the reason there is none; `dim` is the index of the dimension at fault.
struct ShapeSize {
  int64_t value = 0;
  ShapeFault fault = ShapeFault::kNone;
  size_t dim = 0;

  bool ok() const { return fault == ShapeFault::kNone; }
};

// Dimensions in place, from whichever container holds them.
struct DimsView {
  const int64_t* data;
  size_t size;

  DimsView(const int64_t* dims, size_t rank) : data(dims), size(rank) {}
  DimsView(const std::vector<int64_t>& dims) : data(dims.data()), size(dims.size()) {}  // NOLINT
  DimsView(const Shape::Dims& dims) : data(dims.data()), size(dims.size()) {}           // NOLINT
  DimsView(const Shape& shape) : DimsView(shape.GetDims()) {}                           // NOLINT
};

// What an unknown dimension (-1) means to a computation: a fault, or a factor of 1, which gives
// the least number of elements a partly known shape can hold.
enum class UnknownDims { kRefuse, kSkip };

// a * b for non-negative a and b; false when the product does not fit in int64_t.
bool CheckedMultiply(int64_t a, int64_t b, int64_t& product);

// The product of the dimensions. A shape with a zero dimension holds no elements whatever its
// other dimensions are; a shape of no dimensions holds one.
ShapeSize CheckedElementCount(DimsView dims, UnknownDims unknown = UnknownDims::kRefuse);

// The element count times the size of one element of `dataType`. A fault of the element count
// comes first; kUnknownDataType means that the count itself was fine.
ShapeSize CheckedByteSize(DimsView dims, int32_t dataType,
                          UnknownDims unknown = UnknownDims::kRefuse);

// "[1, 3, 224, 224]".
std::string ShapeText(DimsView dims);

// The fault as the predicate of a sentence whose subject is the tensor, e.g. "has shape
// [4294967296, 4294967296] whose element count overflows 64 bits"; it shows the shape.
std::string DescribeShapeFault(const ShapeSize& size, DimsView dims, int32_t dataType);

}  // namespace tov

#endif
