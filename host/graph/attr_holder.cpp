#include "graph/attr_holder.h"

#include <algorithm>

namespace tov {

AttrHolder::AttrList::const_iterator AttrHolder::LowerBound(std::string_view name) const {
  return std::lower_bound(
      attrs_.begin(), attrs_.end(), name,
      [](const auto& entry, std::string_view key) { return entry.first < key; });
}

const AttrValue* AttrHolder::FindAttr(std::string_view name) const {
  auto it = LowerBound(name);
  return it != attrs_.end() && it->first == name ? &it->second : nullptr;
}

AttrValue* AttrHolder::MutableAttr(std::string_view name) {
  return const_cast<AttrValue*>(FindAttr(name));
}

graphStatus AttrHolder::GetAttr(std::string_view name, AttrValue& value) const {
  const AttrValue* held = FindAttr(name);
  if (held == nullptr) return GRAPH_NOT_FOUND;
  value = *held;
  return GRAPH_SUCCESS;
}

graphStatus AttrHolder::SetAttr(const std::string& name, const AttrValue& value) {
  return SetAttr(name, AttrValue(value));
}

graphStatus AttrHolder::SetAttr(const std::string& name, AttrValue&& value) {
  auto it = attrs_.begin() + (LowerBound(name) - attrs_.cbegin());
  if (it != attrs_.end() && it->first == name) {
    it->second = std::move(value);
  } else {
    attrs_.emplace(it, name, std::move(value));
  }
  return GRAPH_SUCCESS;
}

graphStatus AttrHolder::DelAttr(std::string_view name) {
  auto it = LowerBound(name);
  if (it == attrs_.end() || it->first != name) return GRAPH_NOT_FOUND;
  attrs_.erase(it);
  return GRAPH_SUCCESS;
}

void AttrHolder::SetAllAttrs(AttrList attrs) {
  // Stable sort keeps input order among equal names; the last of them wins.
  std::stable_sort(attrs.begin(), attrs.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  AttrList unique;
  unique.reserve(attrs.size());
  for (auto& entry : attrs) {
    if (!unique.empty() && unique.back().first == entry.first) {
      unique.back().second = std::move(entry.second);
    } else {
      unique.push_back(std::move(entry));
    }
  }
  attrs_ = std::move(unique);
}

}  // namespace tov
