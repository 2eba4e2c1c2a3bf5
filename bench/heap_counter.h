// Counts what the process allocates through operator new: calls, and the peak of live bytes since
// the last reset. The benchmark binary replaces the global allocation functions to feed it, so
// protobuf's allocations are counted alongside ours.
#ifndef TESU_BENCH_HEAP_COUNTER_H
#define TESU_BENCH_HEAP_COUNTER_H

#include <cstddef>
#include <cstdint>

namespace bench {

struct HeapCounts {
  uint64_t allocations = 0;
  uint64_t peakBytes = 0;  // live bytes at the peak, above what was live at the reset
};

// Starts counting afresh from the current live bytes.
void ResetHeapCounts();
HeapCounts ReadHeapCounts();

}  // namespace bench

#endif
