// A list of plain values (pointers, flags) kept by an object of a graph in its arena. It does not
// remember where its storage comes from: its owner, which knows, passes the memory resource to
// every call that may allocate and to Release. So the list is two words instead of a standard
// vector's four, and a node or op description, which keep several, stays small.
#ifndef TOV_GRAPH_ARENA_VECTOR_H
#define TOV_GRAPH_ARENA_VECTOR_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory_resource>
#include <new>
#include <type_traits>

namespace tov {

template <typename T>
class ArenaVector {
  static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>,
                "elements are moved as bytes and never destroyed");

 public:
  using value_type = T;
  using iterator = T*;
  using const_iterator = const T*;

  ArenaVector() = default;
  ArenaVector(const ArenaVector&) = delete;
  ArenaVector& operator=(const ArenaVector&) = delete;

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  T* begin() { return data_; }
  T* end() { return data_ + size_; }
  const T* begin() const { return data_; }
  const T* end() const { return data_ + size_; }
  T& operator[](size_t index) { return data_[index]; }
  const T& operator[](size_t index) const { return data_[index]; }
  T& back() { return data_[size_ - 1]; }

  void reserve(size_t count, std::pmr::memory_resource* resource) {
    if (count <= capacity_) return;
    if (count > UINT32_MAX) throw std::bad_alloc();
    T* grown = static_cast<T*>(resource->allocate(count * sizeof(T), alignof(T)));
    if (data_ != nullptr) {
      std::memcpy(grown, data_, size_ * sizeof(T));
      resource->deallocate(data_, capacity_ * sizeof(T), alignof(T));
    }
    data_ = grown;
    capacity_ = static_cast<uint32_t>(count);
  }
  void insert(size_t at, T value, std::pmr::memory_resource* resource) {
    if (size_ == capacity_) reserve(std::max<size_t>(4, size_t{capacity_} * 2), resource);
    std::memmove(data_ + at + 1, data_ + at, (size_ - at) * sizeof(T));
    data_[at] = value;
    ++size_;
  }
  void push_back(T value, std::pmr::memory_resource* resource) { insert(size_, value, resource); }
  void erase(size_t at) {
    std::memmove(data_ + at, data_ + at + 1, (size_ - at - 1) * sizeof(T));
    --size_;
  }
  template <typename It>
  void assign(It first, It last, std::pmr::memory_resource* resource) {
    size_ = 0;
    reserve(static_cast<size_t>(std::distance(first, last)), resource);
    for (; first != last; ++first) data_[size_++] = static_cast<T>(*first);
  }
  // Gives the storage back; the list is empty afterwards.
  void Release(std::pmr::memory_resource* resource) {
    if (data_ != nullptr) resource->deallocate(data_, capacity_ * sizeof(T), alignof(T));
    data_ = nullptr;
    size_ = capacity_ = 0;
  }

 private:
  T* data_ = nullptr;
  uint32_t size_ = 0;
  uint32_t capacity_ = 0;
};

}  // namespace tov

#endif
