// Writes one of the benchmark models to a file, for timing whole tesu-convert runs:
//   make_bench_model graph|small|weights SIZE OUT.pb
// SIZE is the node count for graph and small, megabytes for weights.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "bench_models.h"

int main(int argc, char** argv) {
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
