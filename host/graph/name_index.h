// Finds a graph's nodes by name. An open-addressing table of (hash, node) pairs: one probe
// sequence per operation, the name hashed once, and no allocation per node. Several nodes may
// share a name (a replacement is added before the node it replaces leaves); lookups return the
// one added first.
#ifndef TOV_GRAPH_NAME_INDEX_H
#define TOV_GRAPH_NAME_INDEX_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

namespace tov {

class Node;

class NameIndex {
 public:
  static size_t Hash(std::string_view name) { return std::hash<std::string_view>()(name); }

  void Reserve(size_t count);
  // Adds the node under `name` (which must stay valid while indexed); true when another node
  // already had that name.
  bool Insert(std::string_view name, size_t hash, Node* node);
  // Removes that node; true when another node still has its name.
  bool Erase(std::string_view name, size_t hash, const Node* node);
  Node* Find(std::string_view name, size_t hash) const;
  // Starts loading the slot where a lookup of `hash` begins, for callers that know of a lookup
  // ahead and have other work to do meanwhile.
  void Prefetch(size_t hash) const {
    if (!slots_.empty()) __builtin_prefetch(&slots_[Home(hash)]);
  }

 private:
  struct Slot {
    size_t hash = 0;
    Node* node = nullptr;
  };
  size_t Home(size_t hash) const { return hash & (slots_.size() - 1); }
  size_t Next(size_t at) const { return (at + 1) & (slots_.size() - 1); }
  bool Matches(const Slot& slot, std::string_view name, size_t hash) const;
  void Grow(size_t slotCount);

  std::vector<Slot> slots_;
  size_t used_ = 0;
};

}  // namespace tov

#endif
