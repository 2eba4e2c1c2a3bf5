#include "graph/graph_arena.h"

#include <sys/mman.h>

#include <cstdlib>
#include <new>

namespace tov {

BlockResource::~BlockResource() {
  for (void* block : blocks_) std::free(block);
}

void BlockResource::NewBlock(size_t atLeast) {
  capacity_ = (std::max(kBlockBytes, atLeast) + kBlockBytes - 1) / kBlockBytes * kBlockBytes;
  void* block = std::aligned_alloc(kBlockBytes, capacity_);
  if (block == nullptr) throw std::bad_alloc();
  // Only a hint: where huge pages are unavailable the block is used as it is.
  (void)madvise(block, capacity_, MADV_HUGEPAGE);
  blocks_.push_back(block);
  current_ = static_cast<char*>(block);
}

}  // namespace tov
