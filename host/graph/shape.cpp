#include "graph/shape.h"

#include "graph/shape_math.h"

namespace tov {

graphStatus Shape::SetDim(size_t index, int64_t value) {
  if (index >= dims_.size()) return GRAPH_PARAM_INVALID;
  dims_[index] = value;
  return GRAPH_SUCCESS;
}

bool Shape::GetShapeSize(int64_t& count) const {
  const ShapeSize size = CheckedElementCount(*this);
  if (!size.ok()) return false;
  count = size.value;
  return true;
}

}  // namespace tov
