#include "graph/name_index.h"

#include "graph/node.h"

namespace tov {

bool NameIndex::Matches(const Slot& slot, std::string_view name, size_t hash) const {
  return slot.hash == hash && slot.node->indexedName_ == name;
}

void NameIndex::Reserve(size_t count) {
  size_t slots = 16;
  while (slots < count * 2) slots *= 2;  // at most half full
  if (slots > slots_.size()) Grow(slots);
}

void NameIndex::Grow(size_t slotCount) {
  std::vector<Slot> old(slotCount);
  old.swap(slots_);
  for (const Slot& slot : old) {
    if (slot.node == nullptr) continue;
    size_t at = Home(slot.hash);
    while (slots_[at].node != nullptr) at = Next(at);
    slots_[at] = slot;
  }
}

bool NameIndex::Insert(std::string_view name, size_t hash, Node* node) {
  if ((used_ + 1) * 2 > slots_.size()) Grow(slots_.empty() ? 16 : slots_.size() * 2);
  bool namesake = false;
  size_t at = Home(hash);
  for (; slots_[at].node != nullptr; at = Next(at)) namesake |= Matches(slots_[at], name, hash);
  slots_[at] = {hash, node};
  ++used_;
  return namesake;
}

Node* NameIndex::Find(std::string_view name, size_t hash) const {
  if (slots_.empty()) return nullptr;
  Node* first = nullptr;
  for (size_t at = Home(hash); slots_[at].node != nullptr; at = Next(at)) {
    Node* candidate = slots_[at].node;
    if (Matches(slots_[at], name, hash) &&
        (first == nullptr || candidate->sequence_ < first->sequence_)) {
      first = candidate;
    }
  }
  return first;
}

bool NameIndex::Erase(std::string_view name, size_t hash, const Node* node) {
  if (slots_.empty()) return false;
  bool namesake = false;
  size_t hole = SIZE_MAX;
  for (size_t at = Home(hash); slots_[at].node != nullptr; at = Next(at)) {
    if (slots_[at].node == node) {
      hole = at;
    } else {
      namesake |= Matches(slots_[at], name, hash);
    }
  }
  if (hole == SIZE_MAX) return namesake;
  // Backward-shift deletion: move later entries of the run into the hole when their home slot
  // allows, so that no probe sequence is ever broken by an empty slot.
  slots_[hole] = {};
  --used_;
  for (size_t at = Next(hole); slots_[at].node != nullptr; at = Next(at)) {
    const size_t home = Home(slots_[at].hash);
    const bool canMove = hole <= at ? (home <= hole || home > at) : (home <= hole && home > at);
    if (canMove) {
      slots_[hole] = slots_[at];
      slots_[at] = {};
      hole = at;
    }
  }
  return namesake;
}

}  // namespace tov
