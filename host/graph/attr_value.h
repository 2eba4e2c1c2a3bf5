#ifndef TOV_GRAPH_ATTR_VALUE_H
#define TOV_GRAPH_ATTR_VALUE_H

#include <cstdint>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

#include "graph/small_vector.h"
#include "graph/tensor.h"

namespace tov {

// One attribute value of a fixed kind. Reads of another kind fail, with two exceptions that
// models rely on: an empty list reads as an empty list of any kind, and a list of 64-bit
// integers reads as 32-bit integers when every value fits. Short integer lists (strides, pads,
// axes) are kept inline.
class AttrValue {
 public:
  using IntList = SmallVector<int64_t, 4>;

  enum class Kind {
    kNone,
    kString,
    kInt,
    kFloat,
    kBool,
    kTensor,
    kListString,
    kListInt,
    kListFloat,
    kListBool,
  };

  AttrValue() = default;

  static AttrValue CreateFrom(bool value) { return AttrValue(value); }
  static AttrValue CreateFrom(float value) { return AttrValue(value); }
  static AttrValue CreateFrom(int64_t value) { return AttrValue(value); }
  static AttrValue CreateFrom(std::string value) { return AttrValue(std::move(value)); }
  static AttrValue CreateFrom(const char* value) { return AttrValue(std::string(value)); }
  static AttrValue CreateFrom(TensorPtr value) { return AttrValue(std::move(value)); }
  static AttrValue CreateFrom(const std::vector<int64_t>& value) {
    return AttrValue(IntList(value));
  }
  static AttrValue CreateFrom(IntList value) { return AttrValue(std::move(value)); }
  static AttrValue CreateFrom(std::vector<float> value) { return AttrValue(std::move(value)); }
  static AttrValue CreateFrom(std::vector<bool> value) { return AttrValue(std::move(value)); }
  static AttrValue CreateFrom(std::vector<std::string> value) {
    return AttrValue(std::move(value));
  }

  Kind GetKind() const { return static_cast<Kind>(value_.index()); }
  bool IsEmpty() const { return GetKind() == Kind::kNone; }
  bool IsList() const { return GetKind() >= Kind::kListString; }

  bool GetValue(bool& out) const { return Read(out); }
  bool GetValue(float& out) const { return Read(out); }
  bool GetValue(int64_t& out) const { return Read(out); }
  bool GetValue(std::string& out) const { return Read(out); }
  bool GetValue(TensorPtr& out) const { return Read(out); }
  bool GetValue(std::vector<std::string>& out) const { return ReadList(out); }
  bool GetValue(std::vector<int64_t>& out) const;
  bool GetValue(std::vector<float>& out) const { return ReadList(out); }
  bool GetValue(std::vector<bool>& out) const { return ReadList(out); }
  bool GetValue(std::vector<int32_t>& out) const;

  // Direct access without a copy; null when the value is of another kind.
  template <typename T>
  const T* Get() const {
    static_assert(!std::is_same_v<T, std::vector<int64_t>>,
                  "integer lists are held as AttrValue::IntList; read a copy with GetValue");
    return std::get_if<T>(&value_);
  }

  bool operator==(const AttrValue& other) const;
  bool operator!=(const AttrValue& other) const { return !(*this == other); }

 private:
  // The order of the alternatives follows Kind.
  using Storage =
      std::variant<std::monostate, std::string, int64_t, float, bool, TensorPtr,
                   std::vector<std::string>, IntList, std::vector<float>, std::vector<bool>>;

  template <typename T>
  explicit AttrValue(T&& value) : value_(std::forward<T>(value)) {}

  template <typename T>
  bool Read(T& out) const {
    const T* held = std::get_if<T>(&value_);
    if (held == nullptr) return false;
    out = *held;
    return true;
  }
  template <typename T>
  bool ReadList(std::vector<T>& out) const {
    if (const auto* held = std::get_if<std::vector<T>>(&value_)) {
      out = *held;
      return true;
    }
    if (IsEmptyList()) {
      out.clear();
      return true;
    }
    return false;
  }
  bool IsEmptyList() const;

  Storage value_;
};

}  // namespace tov

#endif
