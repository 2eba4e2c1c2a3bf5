#include "graph/graph_arena.h"

#include <new>

namespace tov {

BlockResource::~BlockResource() {
  for (void* block : blocks_) ::operator delete(block);
}

void BlockResource::NewBlock(size_t atLeast) {
  capacity_ = std::max(kBlockBytes, atLeast);
  void* block = ::operator new(capacity_);
  blocks_.push_back(block);
  current_ = static_cast<char*>(block);
  used_ = 0;
}

}  // namespace tov
