#ifndef TOV_GRAPH_BASE_BUFFER_H
#define TOV_GRAPH_BASE_BUFFER_H

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace tov {

// A view of bytes owned by someone else: how a host hands a serialised model to a parser.
// A buffer made from a mapped model file (MappedFile, graph/mapped_file.h) also carries the
// mapping, which keeps the bytes alive, and the file's path: while the mapping lives,
// Model::Load of these bytes refers to them instead of copying tensor bytes, and finds side
// files relative to the file's folder. A buffer without an owner is copied as always.
class BaseBuffer {
 public:
  BaseBuffer() = default;
  BaseBuffer(const uint8_t* data, uint64_t size) : data_(data), size_(size) {}
  BaseBuffer(const uint8_t* data, uint64_t size, std::shared_ptr<const void> owner,
             std::string path)
      : data_(data), size_(size), owner_(std::move(owner)), path_(std::move(path)) {}
  const uint8_t* data() const { return data_; }
  uint64_t size() const { return size_; }
  // What keeps the bytes alive; null when the caller does.
  const std::shared_ptr<const void>& owner() const { return owner_; }
  // The file the bytes were read from; empty when unknown.
  const std::string& path() const { return path_; }

 private:
  const uint8_t* data_ = nullptr;
  uint64_t size_ = 0;
  std::shared_ptr<const void> owner_;
  std::string path_;
};

}  // namespace tov

#endif
