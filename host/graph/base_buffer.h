#ifndef TOV_GRAPH_BASE_BUFFER_H
#define TOV_GRAPH_BASE_BUFFER_H

#include <cstdint>

namespace tov {

// A view of bytes owned by someone else: how a host hands a serialised model to a parser.
class BaseBuffer {
 public:
  BaseBuffer() = default;
  BaseBuffer(const uint8_t* data, uint64_t size) : data_(data), size_(size) {}
  const uint8_t* data() const { return data_; }
  uint64_t size() const { return size_; }

 private:
  const uint8_t* data_ = nullptr;
  uint64_t size_ = 0;
};

}  // namespace tov

#endif
