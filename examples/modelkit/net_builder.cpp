#include "modelkit/net_builder.h"

#include <cstring>

namespace modelkit {

NetBuilder::NetBuilder(const std::string& modelName, uint64_t seed)
    : model_(modelName), state_(seed == 0 ? 1 : seed) {}

float NetBuilder::NextValue() {
  // xorshift64: deterministic and cheap; weights only need to look like weights.
  state_ ^= state_ << 13;
  state_ ^= state_ >> 7;
  state_ ^= state_ << 17;
  return static_cast<float>(static_cast<int64_t>(state_ % 2001) - 1000) / 10000.0f;
}

const std::vector<int64_t>& NetBuilder::ShapeOf(const std::string& tensor) const {
  return tensors_.at(tensor).shape;
}

std::string NetBuilder::Weight(const std::string& name, const std::vector<int64_t>& shape) {
  int64_t count = 1;
  for (int64_t dim : shape) count *= dim;
  std::vector<float> values(static_cast<size_t>(count));
  for (float& value : values) value = NextValue();
  weights_ += values.size();
  model_.ConstFloat(name, values, shape);
  tensors_[name] = {shape, true, 0};
  return name;
}

std::string NetBuilder::IntConst(const std::string& name, std::vector<int32_t> values) {
  const std::vector<int64_t> shape{static_cast<int64_t>(values.size())};
  model_.ConstInt32(name, std::move(values), shape);
  tensors_[name] = {shape, true, 3};
  return name;
}

OpBuilder NetBuilder::Layer(const std::string& name, const std::string& type,
                            const std::vector<std::string>& inputs,
                            const std::vector<int64_t>& outShape) {
  OpBuilder op = model_.Op(name, type);
  std::vector<bool> constFlags;
  for (const std::string& input : inputs) {
    const TensorInfo& info = tensors_.at(input);
    op.Input(input);
    op.InputDesc(info.shape, info.dtype);
    constFlags.push_back(info.isConst);
  }
  op.InputConst(constFlags);
  op.Output(outShape);
  tensors_[name] = {outShape, false, 0};
  return op;
}

std::string NetBuilder::Data(const std::string& name, std::vector<int64_t> shape, int32_t dtype) {
  model_.Data(name, shape, dtype);
  tensors_[name] = {shape, false, dtype};
  return name;
}

std::string NetBuilder::Conv(const std::string& name, const std::string& input, int64_t outChannels,
                             int64_t kernel, int64_t stride, bool depthwise) {
  const std::vector<int64_t>& in = ShapeOf(input);
  const int64_t inChannels = in[1];
  const std::vector<int64_t> weightShape =
      depthwise ? std::vector<int64_t>{inChannels, outChannels / inChannels, kernel, kernel}
                : std::vector<int64_t>{outChannels, inChannels, kernel, kernel};
  const std::string weight = Weight(name + "_w", weightShape);
  const int64_t pad = kernel / 2;
  const std::vector<int64_t> out{in[0], outChannels, (in[2] + 2 * pad - kernel) / stride + 1,
                                 (in[3] + 2 * pad - kernel) / stride + 1};
  Layer(name, depthwise ? "DepthwiseConv2D" : "Conv2D", {input, weight}, out)
      .Attr("strides", std::vector<int64_t>{1, 1, stride, stride})
      .Attr("dilations", std::vector<int64_t>{1, 1, 1, 1})
      .Attr("pads", std::vector<int64_t>{pad, pad, pad, pad})
      .Attr("data_format", "NCHW");
  return name;
}

std::string NetBuilder::BatchNorm(const std::string& name, const std::string& input,
                                  const std::string& type) {
  const int64_t channels = ShapeOf(input)[1];
  std::vector<std::string> inputs{input};
  for (const char* part : {"_scale", "_offset", "_mean", "_variance"}) {
    inputs.push_back(Weight(name + part, {channels}));
  }
  Layer(name, type, inputs, ShapeOf(input))
      .Attr("epsilon", 1e-5f)
      .Attr("is_training", false)
      .Attr("_output_name_key", std::vector<std::string>{"y"});
  return name;
}

std::string NetBuilder::Unary(const std::string& name, const std::string& type,
                              const std::string& input) {
  Layer(name, type, {input}, ShapeOf(input));
  return name;
}

std::string NetBuilder::MaxPool(const std::string& name, const std::string& input, int64_t kernel,
                                int64_t stride) {
  const std::vector<int64_t>& in = ShapeOf(input);
  const std::vector<int64_t> out{in[0], in[1], (in[2] + stride - 1) / stride,
                                 (in[3] + stride - 1) / stride};
  Layer(name, "MaxPool", {input}, out)
      .Attr("ksize", std::vector<int64_t>{1, 1, kernel, kernel})
      .Attr("strides", std::vector<int64_t>{1, 1, stride, stride})
      .Attr("padding", "SAME")
      .Attr("data_format", "NCHW");
  return name;
}

std::string NetBuilder::Add(const std::string& name, const std::string& a, const std::string& b) {
  Layer(name, "Add", {a, b}, ShapeOf(a));
  return name;
}

std::string NetBuilder::Concat(const std::string& name, const std::vector<std::string>& inputs,
                               const std::string& type) {
  std::vector<int64_t> out = ShapeOf(inputs.front());
  out[1] = 0;
  for (const std::string& input : inputs) out[1] += ShapeOf(input)[1];
  std::vector<std::string> all = inputs;
  all.push_back(IntConst(name + "_axis", {1}));
  Layer(name, type, all, out).Attr("N", static_cast<int64_t>(inputs.size()));
  return name;
}

std::string NetBuilder::GlobalPoolFlatten(const std::string& name, const std::string& input) {
  const std::vector<int64_t>& in = ShapeOf(input);
  const std::string mean = name + "_mean";
  Layer(mean, "ReduceMeanD", {input}, {in[0], in[1], 1, 1})
      .Attr("axes", std::vector<int64_t>{2, 3})
      .Attr("keep_dims", true);
  const std::string shape =
      IntConst(name + "_shape", {static_cast<int32_t>(in[0]), static_cast<int32_t>(in[1])});
  Layer(name, "Reshape", {mean, shape}, {in[0], in[1]});
  return name;
}

std::string NetBuilder::BatchToSpace(const std::string& name, const std::string& input,
                                     int64_t block, bool nd) {
  const std::vector<int64_t>& in = ShapeOf(input);
  const std::vector<int64_t> out{in[0] / (block * block), in[1], in[2] * block, in[3] * block};
  OpBuilder op = Layer(name, nd ? "BatchToSpaceNDD" : "BatchToSpaceD", {input}, out);
  op.Attr("crops", std::vector<int64_t>{0, 0, 0, 0});
  if (nd) {
    op.Attr("block_shape", std::vector<int64_t>{block, block});
  } else {
    op.Attr("block_size", block);
  }
  return name;
}

std::string NetBuilder::Dense(const std::string& name, const std::string& input, int64_t units) {
  const std::vector<int64_t>& in = ShapeOf(input);
  const std::string weight = Weight(name + "_w", {in[1], units});
  const std::string matmul = name + "_matmul";
  Layer(matmul, "MatMul", {input, weight}, {in[0], units})
      .Attr("transpose_a", false)
      .Attr("transpose_b", false);
  const std::string bias = Weight(name + "_b", {units});
  Layer(name, "BiasAdd", {matmul, bias}, {in[0], units}).Attr("data_format", "NCHW");
  return name;
}

std::string NetBuilder::Cast(const std::string& name, const std::string& input, int32_t dtype) {
  Layer(name, "Cast", {input}, ShapeOf(input)).Attr("dst_type", int64_t{dtype});
  return name;
}

std::string NetBuilder::Squeeze(const std::string& name, const std::string& input, int64_t axis) {
  std::vector<int64_t> out = ShapeOf(input);
  out.erase(out.begin() + axis);
  Layer(name, "Squeeze", {input}, out).Attr("axis", std::vector<int64_t>{axis});
  return name;
}

}  // namespace modelkit
