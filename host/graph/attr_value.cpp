#include "graph/attr_value.h"

#include <limits>

namespace tov {

bool AttrValue::IsEmptyList() const {
  return std::visit(
      [](const auto& held) {
        using T = std::decay_t<decltype(held)>;
        if constexpr (std::is_same_v<T, std::vector<std::string>> || std::is_same_v<T, IntList> ||
                      std::is_same_v<T, std::vector<float>> ||
                      std::is_same_v<T, std::vector<bool>>) {
          return held.empty();
        } else {
          return false;
        }
      },
      value_);
}

bool AttrValue::GetValue(std::vector<int64_t>& out) const {
  if (const IntList* held = std::get_if<IntList>(&value_)) {
    out.assign(held->begin(), held->end());
    return true;
  }
  if (IsEmptyList()) {
    out.clear();
    return true;
  }
  return false;
}

bool AttrValue::GetValue(std::vector<int32_t>& out) const {
  std::vector<int64_t> wide;
  if (!GetValue(wide)) return false;
  for (int64_t value : wide) {
    if (value < std::numeric_limits<int32_t>::min() ||
        value > std::numeric_limits<int32_t>::max()) {
      return false;
    }
  }
  out.assign(wide.begin(), wide.end());
  return true;
}

bool AttrValue::operator==(const AttrValue& other) const {
  if (value_.index() != other.value_.index()) return false;
  if (const auto* tensor = std::get_if<TensorPtr>(&value_)) {
    const TensorPtr& theirs = std::get<TensorPtr>(other.value_);
    if (!*tensor || !theirs) return *tensor == theirs;
    return (*tensor)->GetTensorDesc() == theirs->GetTensorDesc() &&
           (*tensor)->GetData().View() == theirs->GetData().View();
  }
  return value_ == other.value_;
}

}  // namespace tov
