// Layer-level model writing on top of ModelBuilder: each call adds one source-framework layer
// (with its weights as Const inputs and its NCHW output shape worked out) and returns the name
// of the tensor it produces. Weights are filled from a seeded generator, so the same calls
// always write the same bytes.
#ifndef MODELKIT_NET_BUILDER_H
#define MODELKIT_NET_BUILDER_H

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "modelkit/model_builder.h"

namespace modelkit {

class NetBuilder {
 public:
  explicit NetBuilder(const std::string& modelName, uint64_t seed = 1);

  std::string Data(const std::string& name, std::vector<int64_t> shape, int32_t dtype = 0);
  // Conv2D (groups 1) or DepthwiseConv2D (multiplier = outChannels / inChannels).
  std::string Conv(const std::string& name, const std::string& input, int64_t outChannels,
                   int64_t kernel, int64_t stride, bool depthwise = false);
  // "BatchNorm" or "BatchNormExt2" with its four weights.
  std::string BatchNorm(const std::string& name, const std::string& input,
                        const std::string& type = "BatchNorm");
  std::string Unary(const std::string& name, const std::string& type, const std::string& input);
  std::string MaxPool(const std::string& name, const std::string& input, int64_t kernel,
                      int64_t stride);
  std::string Add(const std::string& name, const std::string& a, const std::string& b);
  // ConcatV2 along channels, the axis as a trailing INT32 Const input.
  std::string Concat(const std::string& name, const std::vector<std::string>& inputs,
                     const std::string& type = "ConcatV2");
  // ReduceMeanD over H and W keeping dims, then a Reshape to [N, C]: the pair that fuses.
  std::string GlobalPoolFlatten(const std::string& name, const std::string& input);
  // BatchToSpaceNDD with block_shape [b, b], or BatchToSpaceD with block_size b.
  std::string BatchToSpace(const std::string& name, const std::string& input, int64_t block,
                           bool nd = true);
  // MatMul of [N, K] by a [K, units] weight, then BiasAdd.
  std::string Dense(const std::string& name, const std::string& input, int64_t units);
  std::string Cast(const std::string& name, const std::string& input, int32_t dtype);
  std::string Squeeze(const std::string& name, const std::string& input, int64_t axis);

  const std::vector<int64_t>& ShapeOf(const std::string& tensor) const;
  size_t WeightCount() const { return weights_; }
  ModelBuilder& Model() { return model_; }

 private:
  std::string Weight(const std::string& name, const std::vector<int64_t>& shape);
  OpBuilder Layer(const std::string& name, const std::string& type,
                  const std::vector<std::string>& inputs, const std::vector<int64_t>& outShape);
  float NextValue();

  struct TensorInfo {
    std::vector<int64_t> shape;
    bool isConst = false;
    int32_t dtype = 0;
  };
  std::string IntConst(const std::string& name, std::vector<int32_t> values);

  ModelBuilder model_;
  std::unordered_map<std::string, TensorInfo> tensors_;
  uint64_t state_;
  size_t weights_ = 0;
};

}  // namespace modelkit

#endif
