#include "graph/shape.h"

namespace tov {

graphStatus Shape::SetDim(size_t index, int64_t value) {
  if (index >= dims_.size()) return GRAPH_PARAM_INVALID;
  dims_[index] = value;
  return GRAPH_SUCCESS;
}

bool Shape::GetShapeSize(int64_t& count) const {
  int64_t product = 1;
  for (int64_t dim : dims_) {
    if (dim < 0) return false;
    if (dim != 0 && product > INT64_MAX / dim) return false;
    product *= dim;
  }
  count = product;
  return true;
}

}  // namespace tov
