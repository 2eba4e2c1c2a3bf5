// Synthetic models for the benchmarks.
#ifndef TESU_BENCH_BENCH_MODELS_H
#define TESU_BENCH_BENCH_MODELS_H

#include <cstddef>
#include <string>

namespace bench {

// A graph-heavy model of about `nodes` nodes, built from blocks that reach every pass and
// converter: Conv2D, DepthwiseConv2D, BatchNorm with four weights, Relu, MaxPool, ConcatV2,
// ReduceMeanD+Reshape (fused), BatchToSpaceND and MatMul+BiasAdd with small weights. About a
// fifth of the nodes are replaced or removed by the parse. With `churn` false the BatchNorm,
// ConcatV2 and fused pair are left out, for comparing the cost per node with and without.
std::string GraphHeavyModel(size_t nodes, bool churn = true);

// The worst case for per-node overhead: about `nodes` tiny nodes (Relu and Add chains, scalar
// shapes, no weights, about 60 bytes each in the file).
std::string SmallNodeModel(size_t nodes);

// A few nodes holding about `megabytes` of float weights.
std::string WeightHeavyModel(size_t megabytes);

}  // namespace bench

#endif
