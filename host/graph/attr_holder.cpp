#include "graph/attr_holder.h"

#include <algorithm>

namespace tov {

namespace {
// Byte-wise order, deciding on the first byte inline: attribute names mostly differ there, and a
// list is searched on every read and write of an attribute.
bool Before(const std::string& name, std::string_view key) {
  if (!name.empty() && !key.empty() && name[0] != key[0]) {
    return static_cast<unsigned char>(name[0]) < static_cast<unsigned char>(key[0]);
  }
  return std::string_view(name) < key;
}
}  // namespace

AttrHolder::AttrList::const_iterator AttrHolder::LowerBound(std::string_view name) const {
  return std::lower_bound(
      attrs_.begin(), attrs_.end(), name,
      [](const auto& entry, std::string_view key) { return Before(entry.first.str(), key); });
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

graphStatus AttrHolder::SetAttr(std::string_view name, const AttrValue& value) {
  return SetAttr(AttrName::Intern(name), AttrValue(value));
}

graphStatus AttrHolder::SetAttr(std::string_view name, AttrValue&& value) {
  return SetAttr(AttrName::Intern(name), std::move(value));
}

graphStatus AttrHolder::SetAttr(AttrName name, AttrValue&& value) {
  auto it = attrs_.begin() + (LowerBound(name.str()) - attrs_.cbegin());
  if (it != attrs_.end() && it->first == name) {
    it->second = std::move(value);
    return GRAPH_SUCCESS;
  }
  if (attrs_.size() == attrs_.capacity()) {
    // A list in a graph's arena leaves its old storage behind when it moves, so it grows by
    // about what a conversion adds to a node (up to four entries) rather than doubling. An empty
    // list is a new description's, which a conversion gives a value and a version.
    const size_t at = static_cast<size_t>(it - attrs_.begin());
    attrs_.reserve(attrs_.empty() ? 2 : attrs_.size() + std::max<size_t>(4, attrs_.size() / 2));
    it = attrs_.begin() + static_cast<std::ptrdiff_t>(at);
  }
  attrs_.emplace(it, name, std::move(value));
  return GRAPH_SUCCESS;
}

graphStatus AttrHolder::DelAttr(std::string_view name) {
  auto it = LowerBound(name);
  if (it == attrs_.end() || it->first != name) return GRAPH_NOT_FOUND;
  attrs_.erase(it);
  return GRAPH_SUCCESS;
}

void AttrHolder::SetAllAttrs(AttrList attrs) {
  // A stable order keeps input order among equal names, so the last of them wins. Short lists,
  // the usual case, are sorted in place by insertion, which allocates nothing.
  const auto byName = [](const auto& a, const auto& b) { return a.first < b.first; };
  if (attrs.size() <= 16) {
    for (size_t i = 1; i < attrs.size(); ++i) {
      for (size_t j = i; j > 0 && byName(attrs[j], attrs[j - 1]); --j) {
        std::swap(attrs[j], attrs[j - 1]);
      }
    }
  } else {
    std::stable_sort(attrs.begin(), attrs.end(), byName);
  }
  size_t kept = 0;
  for (size_t i = 0; i < attrs.size(); ++i) {
    if (kept > 0 && attrs[kept - 1].first == attrs[i].first) {
      attrs[kept - 1].second = std::move(attrs[i].second);
    } else if (kept != i) {
      attrs[kept++] = std::move(attrs[i]);
    } else {
      ++kept;
    }
  }
  attrs.erase(attrs.begin() + static_cast<std::ptrdiff_t>(kept), attrs.end());
  attrs_ = std::move(attrs);
}

}  // namespace tov
