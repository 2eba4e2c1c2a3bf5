// A vector of trivially copyable values that keeps its first N elements inline, so the common
// short case (shapes, strides, pads) costs no allocation.
#ifndef TOV_GRAPH_SMALL_VECTOR_H
#define TOV_GRAPH_SMALL_VECTOR_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <stdexcept>
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

  SmallVector() : inline_{} {}
  SmallVector(std::initializer_list<T> values) : SmallVector() {
    assign(values.begin(), values.end());
  }
  explicit SmallVector(const std::vector<T>& values) : SmallVector() {
    assign(values.begin(), values.end());
  }
  template <typename It>
  SmallVector(It first, It last) : SmallVector() {
    assign(first, last);
  }
  SmallVector(const SmallVector& other) : SmallVector() { assign(other.begin(), other.end()); }
  SmallVector(SmallVector&& other) noexcept : SmallVector() { Take(other); }
  SmallVector& operator=(const SmallVector& other) {
    if (this != &other) assign(other.begin(), other.end());
    return *this;
  }
  SmallVector& operator=(SmallVector&& other) noexcept {
    if (this != &other) {
      Release();
      Take(other);
    }
    return *this;
  }
  ~SmallVector() { Release(); }

  template <typename It>
  void assign(It first, It last) {
    const size_t count = static_cast<size_t>(std::distance(first, last));
    size_ = 0;
    Reserve(count);
    std::copy(first, last, data());
    size_ = static_cast<uint32_t>(count);
  }

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  T* data() { return OnHeap() ? heap_ : inline_; }
  const T* data() const { return OnHeap() ? heap_ : inline_; }
  T* begin() { return data(); }
  T* end() { return data() + size_; }
  const T* begin() const { return data(); }
  const T* end() const { return data() + size_; }
  T& operator[](size_t index) { return data()[index]; }
  const T& operator[](size_t index) const { return data()[index]; }
  std::vector<T> ToVector() const { return std::vector<T>(begin(), end()); }
  operator std::vector<T>() const { return ToVector(); }  // NOLINT: a shape reads as a vector

  bool operator==(const SmallVector& other) const {
    return std::equal(begin(), end(), other.begin(), other.end());
  }
  bool operator!=(const SmallVector& other) const { return !(*this == other); }
  friend bool operator==(const SmallVector& a, const std::vector<T>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
  }
  friend bool operator==(const std::vector<T>& a, const SmallVector& b) { return b == a; }
  friend bool operator!=(const SmallVector& a, const std::vector<T>& b) { return !(a == b); }
  friend bool operator!=(const std::vector<T>& a, const SmallVector& b) { return !(b == a); }

 private:
  // The heap pointer shares its bytes with the inline elements: a capacity of 0 means inline.
  bool OnHeap() const { return capacity_ != 0; }
  size_t Capacity() const { return OnHeap() ? capacity_ : N; }
  // Room for `count` elements; the elements held are not kept (assign overwrites them all).
  void Reserve(size_t count) {
    if (count <= Capacity()) return;
    if (count > UINT32_MAX) throw std::length_error("SmallVector: too many elements");
    T* grown = new T[count];
    Release();
    heap_ = grown;
    capacity_ = static_cast<uint32_t>(count);
  }
  void Release() {
    if (OnHeap()) delete[] heap_;
    capacity_ = 0;
  }
  // Leaves `other` empty and inline; this one must hold no heap storage.
  void Take(SmallVector& other) {
    if (other.OnHeap()) {
      heap_ = other.heap_;
      capacity_ = other.capacity_;
    } else if (other.size_ > 0) {
      std::memcpy(inline_, other.inline_, other.size_ * sizeof(T));
    }
    size_ = other.size_;
    other.size_ = other.capacity_ = 0;
  }

  union {
    T inline_[N];
    T* heap_;
  };
  uint32_t size_ = 0;
  uint32_t capacity_ = 0;
};

}  // namespace tov

#endif
