#ifndef TOV_GRAPH_TENSOR_DESC_H
#define TOV_GRAPH_TENSOR_DESC_H

#include "graph/shape.h"
#include "graph/types.h"

namespace tov {

// Describes one tensor: shape, layout, element type and whether it may reuse its input's memory.
class TensorDesc {
 public:
  TensorDesc() = default;
  explicit TensorDesc(Shape shape, Format format = FORMAT_NCHW, DataType dataType = DT_FLOAT)
      : shape_(std::move(shape)), format_(format), dataType_(dataType) {}

  const Shape& GetShape() const { return shape_; }
  Shape& MutableShape() { return shape_; }
  void SetShape(const Shape& shape) { shape_ = shape; }

  Format GetFormat() const { return format_; }
  void SetFormat(Format format) { format_ = format; }

  DataType GetDataType() const { return dataType_; }
  void SetDataType(DataType dataType) { dataType_ = dataType; }

  bool operator==(const TensorDesc& other) const {
    return shape_ == other.shape_ && format_ == other.format_ && dataType_ == other.dataType_ &&
           reuseInput_ == other.reuseInput_;
  }
  bool operator!=(const TensorDesc& other) const { return !(*this == other); }

 private:
  friend class TensorUtils;
  Shape shape_;
  Format format_ = FORMAT_NCHW;
  DataType dataType_ = DT_FLOAT;
  bool reuseInput_ = false;
};

class TensorUtils {
 public:
  static graphStatus SetReuseInput(TensorDesc& desc, bool reuse) {
    desc.reuseInput_ = reuse;
    return GRAPH_SUCCESS;
  }
  static graphStatus GetReuseInput(const TensorDesc& desc, bool& reuse) {
    reuse = desc.reuseInput_;
    return GRAPH_SUCCESS;
  }
};

}  // namespace tov

#endif
