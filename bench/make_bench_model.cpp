// Writes one of the benchmark models to a file, for timing whole tesu-convert runs:
//   make_bench_model graph|small|weights SIZE OUT.pb
//   make_bench_model sparse COUNT OUT.pb [SIDE_FILE]
// SIZE is the node count for graph and small, megabytes for weights. sparse writes a MatMul
// chain of COUNT weights of 75 MB (4330 x 4330 floats), zero but for marker bytes at both ends
// of each, as a sparse file that takes almost no disk (31 weights make a 2.33 GB model); with
// SIDE_FILE the weights go to that file next to the model.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "bench_models.h"
#include "sparse_model.h"

int main(int argc, char** argv) {
  if (argc >= 4 && argc <= 5 && std::string(argv[1]) == "sparse") {
    std::string error;
    const size_t count = std::strtoull(argv[2], nullptr, 10);
    if (bench::WriteSparseModel(argv[3], count, 4330, argc == 5 ? argv[4] : "", error)) return 0;
    std::fprintf(stderr, "make_bench_model: %s\n", error.c_str());
    return 1;
  }
  if (argc != 4) {
    std::fprintf(stderr, "usage: make_bench_model graph|small|weights SIZE OUT.pb\n");
    return 2;
  }
  const std::string kind = argv[1];
  const size_t size = std::strtoull(argv[2], nullptr, 10);
  std::string bytes;
  if (kind == "graph") {
    bytes = bench::GraphHeavyModel(size);
  } else if (kind == "small") {
    bytes = bench::SmallNodeModel(size);
  } else if (kind == "weights") {
    bytes = bench::WeightHeavyModel(size);
  } else {
    std::fprintf(stderr, "make_bench_model: unknown model kind \"%s\"\n", kind.c_str());
    return 2;
  }
  std::ofstream out(argv[3], std::ios::binary);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return out.good() ? 0 : 1;
}
