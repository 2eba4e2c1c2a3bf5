// A vector of trivially copyable values that keeps its first N elements inline, so the common
// short case (shapes, strides, pads) costs no allocation.
#ifndef TOV_GRAPH_SMALL_VECTOR_H
#define TOV_GRAPH_SMALL_VECTOR_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <type_traits>
#include <vector>

namespace tov {

template <typename T, size_t N>
class SmallVector {
  static_assert(std::is_trivially_copyable_v<T>, "SmallVector holds plain values only");

 public:
  using value_type = T;
  using iterator = T*;
  using const_iterator = const T*;

  SmallVector() = default;
  SmallVector(std::initializer_list<T> values) { assign(values.begin(), values.end()); }
  explicit SmallVector(const std::vector<T>& values) { assign(values.begin(), values.end()); }
  template <typename It>
  SmallVector(It first, It last) {
    assign(first, last);
  }
  SmallVector(const SmallVector& other) { assign(other.begin(), other.end()); }
  SmallVector(SmallVector&& other) noexcept { Take(other); }
  SmallVector& operator=(const SmallVector& other) {
    if (this != &other) assign(other.begin(), other.end());
    return *this;
  }
  SmallVector& operator=(SmallVector&& other) noexcept {
    if (this != &other) {
      heap_.reset();
      size_ = capacity_ = 0;
      Take(other);
    }
    return *this;
  }

  template <typename It>
  void assign(It first, It last) {
    const size_t count = static_cast<size_t>(std::distance(first, last));
    size_ = 0;
    Reserve(count);
    std::copy(first, last, data());
    size_ = count;
  }

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  T* data() { return heap_ ? heap_.get() : inline_; }
  const T* data() const { return heap_ ? heap_.get() : inline_; }
  T* begin() { return data(); }
  T* end() { return data() + size_; }
  const T* begin() const { return data(); }
  const T* end() const { return data() + size_; }
  T& operator[](size_t index) { return data()[index]; }
  const T& operator[](size_t index) const { return data()[index]; }
  std::vector<T> ToVector() const { return std::vector<T>(begin(), end()); }
  operator std::vector<T>() const { return ToVector(); }  // NOLINT: a shape reads as a vector

  bool operator==(const SmallVector& other) const {
    return size_ == other.size_ && std::equal(begin(), end(), other.begin());
  }
  bool operator!=(const SmallVector& other) const { return !(*this == other); }
  friend bool operator==(const SmallVector& a, const std::vector<T>& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin());
  }
  friend bool operator==(const std::vector<T>& a, const SmallVector& b) { return b == a; }
  friend bool operator!=(const SmallVector& a, const std::vector<T>& b) { return !(a == b); }
  friend bool operator!=(const std::vector<T>& a, const SmallVector& b) { return !(b == a); }

 private:
  size_t Capacity() const { return heap_ ? capacity_ : N; }
  void Reserve(size_t count) {
    if (count <= Capacity()) return;
    std::unique_ptr<T[]> grown(new T[count]);
    if (size_ > 0) std::memcpy(grown.get(), data(), size_ * sizeof(T));
    heap_ = std::move(grown);
    capacity_ = count;
  }
  void Take(SmallVector& other) {
    if (other.heap_) {
      heap_ = std::move(other.heap_);
      capacity_ = other.capacity_;
    } else if (other.size_ > 0) {
      std::memcpy(inline_, other.inline_, other.size_ * sizeof(T));
    }
    size_ = other.size_;
    other.size_ = other.capacity_ = 0;
  }

  T inline_[N] = {};
  std::unique_ptr<T[]> heap_;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

}  // namespace tov

#endif
