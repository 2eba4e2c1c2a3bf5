#include "graph/graph_arena.h"

#include <sys/mman.h>

#include <new>

namespace tov {

BlockResource::~BlockResource() {
  for (void* block : blocks_) ::operator delete(block, std::align_val_t(kBlockBytes));
}

void BlockResource::NewBlock(size_t atLeast) {
  capacity_ = (std::max(kBlockBytes, atLeast) + kBlockBytes - 1) / kBlockBytes * kBlockBytes;
  void* block = ::operator new(capacity_, std::align_val_t(kBlockBytes));
  // Only a hint: where huge pages are unavailable the block is used as it is.
  (void)madvise(block, capacity_, MADV_HUGEPAGE);
  blocks_.push_back(block);
  current_ = static_cast<char*>(block);
}

}  // namespace tov
