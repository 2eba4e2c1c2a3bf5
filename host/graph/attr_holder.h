#ifndef TOV_GRAPH_ATTR_HOLDER_H
#define TOV_GRAPH_ATTR_HOLDER_H

#include <memory_resource>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "graph/attr_name.h"
#include "graph/attr_value.h"

namespace tov {

// Named attributes, kept in one flat list sorted by name so that every listing is deterministic.
// Names are interned, so an attribute costs no allocation of its own.
class AttrHolder {
 public:
  using AttrList = std::pmr::vector<std::pair<AttrName, AttrValue>>;

  // The list's storage comes from `resource` (a graph's arena for the descriptions of its nodes).
  explicit AttrHolder(std::pmr::memory_resource* resource = std::pmr::get_default_resource())
      : attrs_(resource) {}
  AttrHolder(const AttrHolder& other) : attrs_(other.attrs_.begin(), other.attrs_.end()) {}
  AttrHolder& operator=(const AttrHolder& other) {
    attrs_.assign(other.attrs_.begin(), other.attrs_.end());
    return *this;
  }
  virtual ~AttrHolder() = default;

  // GRAPH_SUCCESS and a copy of the value when the attribute exists; otherwise GRAPH_NOT_FOUND
  // and the value untouched.
  graphStatus GetAttr(std::string_view name, AttrValue& value) const;
  // Creates or replaces.
  graphStatus SetAttr(std::string_view name, const AttrValue& value);
  graphStatus SetAttr(std::string_view name, AttrValue&& value);
  graphStatus SetAttr(AttrName name, AttrValue&& value);
  // GRAPH_SUCCESS when the attribute existed and is now gone, GRAPH_NOT_FOUND otherwise.
  graphStatus DelAttr(std::string_view name);
  bool HasAttr(std::string_view name) const { return FindAttr(name) != nullptr; }

  // The value without a copy; null when absent.
  const AttrValue* FindAttr(std::string_view name) const;
  AttrValue* MutableAttr(std::string_view name);
  const AttrList& GetAllAttrs() const { return attrs_; }
  // Replaces every attribute; the list need not be sorted and later duplicates win.
  void SetAllAttrs(AttrList attrs);
  // An empty list on the holder's own storage, for building one to pass to SetAllAttrs.
  AttrList NewAttrList() const { return AttrList(attrs_.get_allocator()); }

 private:
  AttrList::const_iterator LowerBound(std::string_view name) const;
  AttrList attrs_;
};

}  // namespace tov

#endif
