#include "graph/graph_arena.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
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
  mapped_ = 0;
}

// Memory the heap hands out again is usually mapped already: the kernel is asked only when the
// first page of the step is not, since asking about mapped pages costs nearly what it saves on
// fresh ones. Kernels without the request refuse it, and pages are mapped as they are touched.
// The step keeps what is mapped but never used to a fraction of a block.
void BlockResource::MapAhead() {
  constexpr size_t kStep = 64 << 10;
  const size_t until = std::min(capacity_, (used_ / kStep + 1) * kStep);
#ifdef MADV_POPULATE_WRITE
  static const uintptr_t kPage = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  const uintptr_t first =
      (reinterpret_cast<uintptr_t>(current_) + mapped_ + kPage - 1) / kPage * kPage;
  const uintptr_t last = (reinterpret_cast<uintptr_t>(current_) + until) / kPage * kPage;
  unsigned char resident = 0;
  if (last > first && mincore(reinterpret_cast<void*>(first), kPage, &resident) == 0 &&
      (resident & 1) == 0) {
    (void)madvise(reinterpret_cast<void*>(first), last - first, MADV_POPULATE_WRITE);
  }
#endif
  mapped_ = until;
}

}  // namespace tov
