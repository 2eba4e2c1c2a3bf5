#include "heap_counter.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace bench {
namespace {

std::atomic<uint64_t> g_allocations{0};
std::atomic<int64_t> g_live{0};
std::atomic<int64_t> g_base{0};
std::atomic<int64_t> g_peak{0};

void* Allocate(size_t size, size_t alignment) {
  if (size == 0) size = 1;
  void* p = nullptr;
  if (alignment > alignof(std::max_align_t)) {
    if (posix_memalign(&p, alignment, size) != 0) p = nullptr;
  } else {
    p = std::malloc(size);
  }
  if (p == nullptr) return nullptr;
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  const int64_t live =
      g_live.fetch_add(static_cast<int64_t>(malloc_usable_size(p)), std::memory_order_relaxed) +
      static_cast<int64_t>(malloc_usable_size(p));
  int64_t peak = g_peak.load(std::memory_order_relaxed);
  while (live > peak && !g_peak.compare_exchange_weak(peak, live, std::memory_order_relaxed)) {
  }
  return p;
}

void Release(void* p) {
  if (p == nullptr) return;
  g_live.fetch_sub(static_cast<int64_t>(malloc_usable_size(p)), std::memory_order_relaxed);
  std::free(p);
}

void* AllocateOrThrow(size_t size, size_t alignment) {
  void* p = Allocate(size, alignment);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}

}  // namespace

void ResetHeapCounts() {
  g_allocations = 0;
  g_base = g_live.load();
  g_peak = g_live.load();
}

HeapCounts ReadHeapCounts() {
  HeapCounts counts;
  counts.allocations = g_allocations.load();
  counts.peakBytes = static_cast<uint64_t>(g_peak.load() - g_base.load());
  return counts;
}

}  // namespace bench

// The replaced global allocation functions.
void* operator new(size_t size) {
  return bench::AllocateOrThrow(size, alignof(std::max_align_t));
}
void* operator new[](size_t size) {
  return bench::AllocateOrThrow(size, alignof(std::max_align_t));
}
void* operator new(size_t size, std::align_val_t alignment) {
  return bench::AllocateOrThrow(size, static_cast<size_t>(alignment));
}
void* operator new[](size_t size, std::align_val_t alignment) {
  return bench::AllocateOrThrow(size, static_cast<size_t>(alignment));
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return bench::Allocate(size, alignof(std::max_align_t));
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return bench::Allocate(size, alignof(std::max_align_t));
}
void operator delete(void* p) noexcept {
  bench::Release(p);
}
void operator delete[](void* p) noexcept {
  bench::Release(p);
}
void operator delete(void* p, size_t) noexcept {
  bench::Release(p);
}
void operator delete[](void* p, size_t) noexcept {
  bench::Release(p);
}
void operator delete(void* p, std::align_val_t) noexcept {
  bench::Release(p);
}
void operator delete[](void* p, std::align_val_t) noexcept {
  bench::Release(p);
}
void operator delete(void* p, size_t, std::align_val_t) noexcept {
  bench::Release(p);
}
void operator delete[](void* p, size_t, std::align_val_t) noexcept {
  bench::Release(p);
}
