#include "graph/graph_arena.h"

#include <sys/mman.h>

#include <new>

namespace tov {
namespace {

constexpr size_t kHugePageBytes = size_t{2} << 20;

size_t RoundUp(size_t bytes, size_t unit) {
  return (bytes + unit - 1) / unit * unit;
}

// `bytes` (a multiple of kHugePageBytes) of fresh memory starting on a huge-page boundary, marked
// so that the kernel may back it with transparent huge pages. A large graph touches every byte
// of its blocks; one page fault per 2 MiB instead of 512 saves about a fifth of a large
// conversion's time, and fewer TLB misses speed up the walks over the nodes. The mapping is made
// one huge page larger than asked and trimmed to the boundary.
void* MapHugePageBlock(size_t bytes) {
  const size_t mapped = bytes + kHugePageBytes;
  void* raw = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) throw std::bad_alloc();
  char* start = static_cast<char*>(raw);
  char* aligned = reinterpret_cast<char*>(
      RoundUp(reinterpret_cast<uintptr_t>(start), kHugePageBytes));
  const size_t head = static_cast<size_t>(aligned - start);
  if (head > 0) munmap(start, head);
  munmap(aligned + bytes, mapped - head - bytes);
  madvise(aligned, bytes, MADV_HUGEPAGE);  // only a hint: without it the block still works
  return aligned;
}

}  // namespace

BlockResource::~BlockResource() {
  for (const Block& block : blocks_) {
    if (block.mapped == 0) {
      ::operator delete(block.memory);
    } else {
      munmap(block.memory, block.mapped);
    }
  }
}

void BlockResource::NewBlock(size_t atLeast) {
  capacity_ = std::max(kBlockBytes, atLeast);
  blocks_.reserve(blocks_.size() + 1);  // so that a block is never lost when push_back throws
  if (blocks_.empty()) {
    blocks_.push_back(Block{::operator new(capacity_), 0});
  } else {
    capacity_ = RoundUp(capacity_, kHugePageBytes);
    blocks_.push_back(Block{MapHugePageBlock(capacity_), capacity_});
  }
  current_ = static_cast<char*>(blocks_.back().memory);
  used_ = 0;
}

}  // namespace tov
