// Weights as numpy arrays over the graph's own bytes.
#include <mutex>
#include <utility>

#include "graph/types.h"
#include "graph_state.h"

namespace tesupy {
namespace {

// The numpy type of an element type. BF16 has none; its raw 16-bit patterns are shown as uint16.
py::dtype NumpyType(tov::DataType type) {
  switch (type) {
    case tov::DT_FLOAT:
      return py::dtype("float32");
    case tov::DT_FLOAT16:
      return py::dtype("float16");
    case tov::DT_INT8:
      return py::dtype("int8");
    case tov::DT_INT32:
      return py::dtype("int32");
    case tov::DT_UINT8:
      return py::dtype("uint8");
    case tov::DT_BF16:
    case tov::DT_UINT16:
      return py::dtype("uint16");
    case tov::DT_INT16:
      return py::dtype("int16");
    case tov::DT_UINT32:
      return py::dtype("uint32");
    case tov::DT_INT64:
      return py::dtype("int64");
    case tov::DT_UINT64:
      return py::dtype("uint64");
    case tov::DT_DOUBLE:
      return py::dtype("float64");
    case tov::DT_BOOL:
      return py::dtype("bool");
    default:
      return py::dtype("uint8");  // unknown element type: the raw bytes
  }
}

// The description's shape when it accounts for exactly `elements`; otherwise one dimension.
std::vector<py::ssize_t> ArrayShape(const tov::Shape& shape, size_t elements) {
  int64_t count = 0;
  if (shape.GetShapeSize(count) && static_cast<uint64_t>(count) == elements) {
    return std::vector<py::ssize_t>(shape.GetDims().begin(), shape.GetDims().end());
  }
  return {static_cast<py::ssize_t>(elements)};
}

struct ArrayOwner {
  GraphStatePtr graph;
  tov::TensorPtr tensor;
};

}  // namespace

py::array TensorArray(const GraphStatePtr& graph, const tov::TensorPtr& tensor) {
  const tov::TensorDesc& desc = tensor->GetTensorDesc();
  const tov::Buffer& buffer = tensor->GetData();
  py::dtype type = NumpyType(desc.GetDataType());
  size_t itemSize = static_cast<size_t>(type.itemsize());
  if (buffer.GetSize() % itemSize != 0) {
    type = py::dtype("uint8");
    itemSize = 1;
  }
  const size_t elements = buffer.GetSize() / itemSize;
  const std::vector<py::ssize_t> shape = ArrayShape(desc.GetShape(), elements);

  // The bytes stay where they are for as long as the tensor lives (saving reads them in
  // place), so the array can always share them.
  const uint8_t* data = buffer.GetData();
  py::array array;
  if (data == nullptr) {
    array = py::array(type, shape);
  } else {
    py::capsule owner(new ArrayOwner{graph, tensor},
                      [](void* owned) { delete static_cast<ArrayOwner*>(owned); });
    array = py::array(type, shape, {}, data, owner);
  }
  array.attr("setflags")(py::arg("write") = false);
  return array;
}

}  // namespace tesupy
