#ifndef TOV_GRAPH_SHAPE_H
#define TOV_GRAPH_SHAPE_H

#include <cstdint>
#include <type_traits>
#include <vector>

#include "graph/small_vector.h"
#include "graph/types.h"

namespace tov {

// A list of dimensions; a shape of no dimensions is a scalar. A dimension of -1 is unknown.
// Up to eight dimensions are kept inline.
class Shape {
 public:
  using Dims = SmallVector<int64_t, 8>;

  Shape() = default;
  explicit Shape(const std::vector<int64_t>& dims) : dims_(dims) {}
  template <typename It, typename = std::enable_if_t<!std::is_integral_v<It>>>
  Shape(It first, It last) : dims_(first, last) {}

  size_t GetDimNum() const { return dims_.size(); }
  // The index must be below GetDimNum(); out of range reads 0.
  int64_t GetDim(size_t index) const { return index < dims_.size() ? dims_[index] : 0; }
  graphStatus SetDim(size_t index, int64_t value);
  // The dimensions in place; they convert to a std::vector where one is needed.
  const Dims& GetDims() const { return dims_; }

  // Element count of a fully known shape. False when a dimension is negative, the product does
  // not fit in 64 bits or there are more dimensions than a shape may have (shape_math.h).
  bool GetShapeSize(int64_t& count) const;

  bool operator==(const Shape& other) const { return dims_ == other.dims_; }
  bool operator!=(const Shape& other) const { return !(*this == other); }

 private:
  Dims dims_;
};

}  // namespace tov

#endif
