#ifndef TOV_GRAPH_TENSOR_H
#define TOV_GRAPH_TENSOR_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "graph/tensor_desc.h"

namespace tov {

class Node;

// Bytes that a tensor owns. Kept in a std::string so that serialised data can be moved in
// without a copy.
class Buffer {
 public:
  // Null when the buffer holds no bytes.
  const uint8_t* GetData() const {
    return bytes_.empty() ? nullptr : reinterpret_cast<const uint8_t*>(bytes_.data());
  }
  uint8_t* MutableData() {
    return bytes_.empty() ? nullptr : reinterpret_cast<uint8_t*>(&bytes_[0]);
  }
  size_t GetSize() const { return bytes_.size(); }
  std::string_view View() const { return bytes_; }
  void CopyFrom(const uint8_t* data, size_t size) {
    if (data == nullptr) size = 0;
    bytes_.assign(reinterpret_cast<const char*>(data), size);
  }
  void Adopt(std::string&& bytes) { bytes_ = std::move(bytes); }
  void Swap(std::string& bytes) { bytes_.swap(bytes); }

 private:
  std::string bytes_;
};

// A weight tensor: a description and the bytes it owns.
class Tensor {
 public:
  Tensor() = default;
  explicit Tensor(const TensorDesc& desc) : desc_(desc) {}
  Tensor(const TensorDesc& desc, const uint8_t* data, size_t size) : desc_(desc) {
    data_.CopyFrom(data, size);
  }

  const TensorDesc& GetTensorDesc() const { return desc_; }
  TensorDesc& MutableTensorDesc() { return desc_; }
  void SetTensorDesc(const TensorDesc& desc) { desc_ = desc; }

  const Buffer& GetData() const { return data_; }
  Buffer& MutableData() { return data_; }
  // Copies the bytes; the caller keeps its array.
  graphStatus SetData(const uint8_t* data, size_t size) {
    data_.CopyFrom(data, size);
    return GRAPH_SUCCESS;
  }
  // Takes the bytes without copying them.
  graphStatus SetData(std::string&& bytes) {
    data_.Adopt(std::move(bytes));
    return GRAPH_SUCCESS;
  }

 private:
  friend class OpDescUtils;
  friend class ModelSerializer;
  TensorDesc desc_;
  Buffer data_;
  // The Const node that last held this tensor; checked before use, never trusted blindly.
  std::weak_ptr<Node> holder_;
};

using TensorPtr = std::shared_ptr<Tensor>;
using ConstTensorPtr = std::shared_ptr<const Tensor>;

}  // namespace tov

#endif
