#include "bench_models.h"

#include "modelkit/net_builder.h"

namespace bench {

std::string GraphHeavyModel(size_t nodes, bool churn) {
  modelkit::NetBuilder net("graph_heavy");
  std::string x = net.Data("input", {1, 4, 8, 8});
  const size_t nodesPerBlock = churn ? 25 : 14;
  const size_t blocks = nodes / nodesPerBlock + 1;
  for (size_t b = 0; b < blocks; ++b) {
    const std::string p = "b" + std::to_string(b) + "_";
    std::string y = net.Conv(p + "conv", x, 4, 1, 1);
    y = net.Conv(p + "dw", y, 4, 3, 1, /*depthwise=*/true);
    if (churn) y = net.BatchNorm(p + "bn", y);
    y = net.Unary(p + "relu", "Relu", y);
    std::string pooled = net.MaxPool(p + "pool", y, 1, 1);
    y = churn ? net.Concat(p + "cat", {pooled, y}) : pooled;
    y = net.Conv(p + "mix", y, 4, 1, 1);
    if (churn) {
      const std::string flat = net.GlobalPoolFlatten(p + "gap", y);
      net.Dense(p + "head", flat, 4);
    }
    x = net.Unary(p + "b2s", "BatchToSpaceND", y);
  }
  return net.Model().Bytes();
}

std::string SmallNodeModel(size_t nodes) {
  modelkit::NetBuilder net("small_nodes");
  std::string x = net.Data("in", {1});
  for (size_t i = 0; i + 1 < nodes; i += 2) {
    const std::string relu = net.Unary("r" + std::to_string(i), "Relu", x);
    x = net.Add("a" + std::to_string(i), relu, x);
  }
  return net.Model().Bytes();
}

std::string WeightHeavyModel(size_t megabytes) {
  modelkit::NetBuilder net("weight_heavy");
  std::string x = net.Data("input", {1, 1024});
  // Each layer holds 1024 x 1024 floats: 4 MiB.
  for (size_t i = 0; i * 4 < megabytes; ++i) {
    x = net.Dense("fc" + std::to_string(i), x, 1024);
    x = net.Unary("relu" + std::to_string(i), "Relu", x);
  }
  return net.Model().Bytes();
}

}  // namespace bench
