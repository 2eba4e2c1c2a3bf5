// Weight-heavy models of any size written cheaply: a MatMul chain whose weights are zero but
// for marker bytes at both ends of each, written as a sparse file (the zeros are holes), either
// all in one model file or with the weights in a side file next to it.
#ifndef TESU_BENCH_SPARSE_MODEL_H
#define TESU_BENCH_SPARSE_MODEL_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace bench {

// Bytes at each end of a weight that are not zero.
constexpr size_t kMarkerBytes = 16;
using Marker = std::array<uint8_t, kMarkerBytes>;

// The marker bytes at the start (`tail` false) or end of weight `index`; they differ between
// weights and ends.
Marker WeightMarker(size_t index, bool tail);

// Writes a chain of `weights` MatMuls by [side, side] float weights to `path`; with `sideFile`
// not empty the weights go to that file, named relative to the model's folder (each aligned to
// 64 bytes). False, with the reason in `error`, when a file cannot be written.
bool WriteSparseModel(const std::string& path, size_t weights, int64_t side,
                      const std::string& sideFile, std::string& error);

}  // namespace bench

#endif
