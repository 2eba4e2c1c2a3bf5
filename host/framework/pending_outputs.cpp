#include "framework/pending_outputs.h"

#include <limits.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

namespace tesu {
namespace {

// A fixed table, so that a signal handler reads it without locks or allocation. A slot is
// claimed (kFilling), its path copied, then published (kListed); the handler only reads
// published slots.
constexpr int kSlots = 64;
enum SlotState : int { kFree = 0, kFilling = 1, kListed = 2 };
struct Slot {
  std::atomic<int> state{kFree};
  char path[PATH_MAX];
};
Slot slots[kSlots];
static_assert(std::atomic<int>::is_always_lock_free, "the signal handler reads the slots");

int ListPath(const std::string& path) {
  if (path.size() >= PATH_MAX) return -1;
  for (int i = 0; i < kSlots; ++i) {
    int expected = kFree;
    if (!slots[i].state.compare_exchange_strong(expected, kFilling)) continue;
    std::memcpy(slots[i].path, path.c_str(), path.size() + 1);
    slots[i].state.store(kListed);
    return i;
  }
  return -1;
}

}  // namespace

PendingOutput::PendingOutput(std::string path) : path_(std::move(path)), slot_(ListPath(path_)) {}

PendingOutput::~PendingOutput() {
  if (!path_.empty()) unlink(path_.c_str());
  Keep();
}

void PendingOutput::Keep() {
  path_.clear();
  if (slot_ >= 0) slots[slot_].state.store(kFree);
  slot_ = -1;
}

void RemovePendingOutputs() {
  for (Slot& slot : slots) {
    if (slot.state.load() == kListed) unlink(slot.path);
  }
}

}  // namespace tesu
