#ifndef TOV_GRAPH_TENSOR_H
#define TOV_GRAPH_TENSOR_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "graph/tensor_desc.h"

namespace tov {

class Node;

// A tensor's bytes: either bytes it owns (a std::string, so serialised data can be moved in
// without a copy) or a read-only view of bytes kept alive by a shared owner, such as a mapped
// model file. Writing through MutableData() first copies a view into owned bytes.
class Buffer {
 public:
  // Null when the buffer holds no bytes.
  const uint8_t* GetData() const {
    if (owner_ != nullptr) return view_size_ == 0 ? nullptr : view_;
    return bytes_.empty() ? nullptr : reinterpret_cast<const uint8_t*>(bytes_.data());
  }
  uint8_t* MutableData() {
    if (owner_ != nullptr) Own();
    return bytes_.empty() ? nullptr : reinterpret_cast<uint8_t*>(&bytes_[0]);
  }
  size_t GetSize() const { return owner_ != nullptr ? view_size_ : bytes_.size(); }
  std::string_view View() const {
    if (owner_ != nullptr) return {reinterpret_cast<const char*>(view_), view_size_};
    return bytes_;
  }
  // True while the bytes are a view kept alive by an owner rather than owned.
  bool IsShared() const { return owner_ != nullptr; }

  void CopyFrom(const uint8_t* data, size_t size) {
    if (data == nullptr) size = 0;
    Release();
    bytes_.assign(reinterpret_cast<const char*>(data), size);
  }
  void Adopt(std::string&& bytes) {
    Release();
    bytes_ = std::move(bytes);
  }
  // Refers to `size` bytes at `data` without copying them; `owner` keeps them alive and
  // unchanged for as long as this buffer refers to them. A null owner copies the bytes.
  void Refer(const uint8_t* data, size_t size, std::shared_ptr<const void> owner) {
    if (owner == nullptr) return CopyFrom(data, size);
    bytes_.clear();
    bytes_.shrink_to_fit();
    view_ = data;
    view_size_ = data == nullptr ? 0 : size;
    owner_ = std::move(owner);
  }

 private:
  void Own() {
    bytes_.assign(reinterpret_cast<const char*>(view_), view_size_);
    Release();
  }
  void Release() {
    owner_.reset();
    view_ = nullptr;
    view_size_ = 0;
  }

  std::string bytes_;
  const uint8_t* view_ = nullptr;
  size_t view_size_ = 0;
  std::shared_ptr<const void> owner_;
};

// Where a tensor's bytes live in a side file: `length` bytes from `offset` in the file at
// `location`, a path relative to the folder of the model file that names it.
struct ExternalLocation {
  std::string location;
  uint64_t offset = 0;
  uint64_t length = 0;
};

// A weight tensor: a description and its bytes.
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
  // The bytes may be written through the returned buffer, so they no longer match a side file.
  Buffer& MutableData() {
    external_.reset();
    return data_;
  }
  // Copies the bytes; the caller keeps its array.
  graphStatus SetData(const uint8_t* data, size_t size) {
    external_.reset();
    data_.CopyFrom(data, size);
    return GRAPH_SUCCESS;
  }
  // Takes the bytes without copying them.
  graphStatus SetData(std::string&& bytes) {
    external_.reset();
    data_.Adopt(std::move(bytes));
    return GRAPH_SUCCESS;
  }
  // Refers to bytes kept alive by `owner` (Buffer::Refer).
  graphStatus ReferData(const uint8_t* data, size_t size, std::shared_ptr<const void> owner) {
    external_.reset();
    data_.Refer(data, size, std::move(owner));
    return GRAPH_SUCCESS;
  }

  // Where the bytes came from when they were read from a side file and not written since;
  // null otherwise.
  const ExternalLocation* GetExternal() const { return external_ ? &*external_ : nullptr; }
  void SetExternal(ExternalLocation location) { external_ = std::move(location); }

 private:
  friend class OpDescUtils;
  friend class ModelSerializer;
  TensorDesc desc_;
  Buffer data_;
  std::optional<ExternalLocation> external_;
  // The Const node that last held this tensor; checked before use, never trusted blindly.
  std::weak_ptr<Node> holder_;
};

using TensorPtr = std::shared_ptr<Tensor>;
using ConstTensorPtr = std::shared_ptr<const Tensor>;

}  // namespace tov

#endif
