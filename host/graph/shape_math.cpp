#include "graph/shape_math.h"

#include "graph/types.h"

namespace tov {

bool CheckedMultiply(int64_t a, int64_t b, int64_t& product) {
  if (a < 0 || b < 0) return false;
  if (a != 0 && b > INT64_MAX / a) return false;
  product = a * b;
  return true;
}

ShapeSize CheckedElementCount(DimsView dims, UnknownDims unknown) {
  ShapeSize size;
  if (dims.size > kMaxShapeRank) {
    size.fault = ShapeFault::kRankTooLarge;
    return size;
  }
  // Every dimension is looked at before any product, so the result does not depend on where a
  // zero dimension stands: [2^40, 2^40, 0] holds no elements, like [0, 2^40, 2^40].
  bool empty = false;
  for (size_t i = 0; i < dims.size; ++i) {
    const int64_t dim = dims.data[i];
    if (dim < -1 || (dim == -1 && unknown == UnknownDims::kRefuse)) {
      size.fault = dim < -1 ? ShapeFault::kNegativeDim : ShapeFault::kUnknownDim;
      size.dim = i;
      return size;
    }
    empty = empty || dim == 0;
  }
  if (empty) return size;
  int64_t product = 1;
  for (size_t i = 0; i < dims.size; ++i) {
    if (dims.data[i] == -1) continue;
    if (!CheckedMultiply(product, dims.data[i], product)) {
      size.fault = ShapeFault::kCountOverflow;
      size.dim = i;
      return size;
    }
  }
  size.value = product;
  return size;
}

ShapeSize CheckedByteSize(DimsView dims, int32_t dataType, UnknownDims unknown) {
  ShapeSize size = CheckedElementCount(dims, unknown);
  if (!size.ok()) return size;
  const size_t elementSize = DataTypeSize(dataType);
  if (elementSize == 0) {
    size.fault = ShapeFault::kUnknownDataType;
  } else if (!CheckedMultiply(size.value, static_cast<int64_t>(elementSize), size.value)) {
    size.fault = ShapeFault::kBytesOverflow;
  }
  return size;
}

std::string ShapeText(DimsView dims) {
  std::string text = "[";
  for (size_t i = 0; i < dims.size; ++i) {
    if (i > 0) text += ", ";
    text += std::to_string(dims.data[i]);
  }
  return text + "]";
}

std::string DescribeShapeFault(const ShapeSize& size, DimsView dims, int32_t dataType) {
  switch (size.fault) {
    case ShapeFault::kNone:
      break;
    case ShapeFault::kRankTooLarge:
      return "has " + std::to_string(dims.size) + " dimensions, more than the " +
             std::to_string(kMaxShapeRank) + " a shape may have";
    case ShapeFault::kNegativeDim:
      return "has dimension " + std::to_string(dims.data[size.dim]) + " in shape " +
             ShapeText(dims) + " (only -1 may stand for an unknown size)";
    case ShapeFault::kUnknownDim:
      return "has shape " + ShapeText(dims) + " whose dimension " + std::to_string(size.dim) +
             " is unknown (-1)";
    case ShapeFault::kCountOverflow:
      return "has shape " + ShapeText(dims) + " whose element count overflows 64 bits";
    case ShapeFault::kBytesOverflow:
      return "has shape " + ShapeText(dims) + " whose size in bytes as " + DataTypeName(dataType) +
             " overflows 64 bits";
    case ShapeFault::kUnknownDataType:
      return "has unknown data type " + std::to_string(dataType);
  }
  return std::string();
}

}  // namespace tov
