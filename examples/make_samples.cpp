// Writes the bundled sample models: a residual image classifier at real scale, a small
// mobile-style network and a model with operators the parser does not support. The output is
// the same on every run. Usage: make_samples OUTPUT_DIR
#include <cstdio>
#include <fstream>
#include <string>

#include <google/protobuf/util/json_util.h>

#include "modelkit/net_builder.h"

namespace {

using modelkit::NetBuilder;

// conv -> batch norm (-> relu)
std::string ConvBn(NetBuilder& net, const std::string& name, const std::string& input,
                   int64_t channels, int64_t kernel, int64_t stride, bool relu) {
  std::string x = net.Conv(name + "_conv", input, channels, kernel, stride);
  x = net.BatchNorm(name + "_bn", x);
  return relu ? net.Unary(name + "_relu", "Relu", x) : x;
}

// A bottleneck residual block: 1x1, 3x3, 1x1 convolutions plus a shortcut.
std::string Bottleneck(NetBuilder& net, const std::string& name, const std::string& input,
                       int64_t width, int64_t stride, bool project) {
  std::string x = ConvBn(net, name + "_a", input, width, 1, 1, true);
  x = ConvBn(net, name + "_b", x, width, 3, stride, true);
  x = ConvBn(net, name + "_c", x, width * 4, 1, 1, false);
  const std::string shortcut =
      project ? ConvBn(net, name + "_proj", input, width * 4, 1, stride, false) : input;
  return net.Unary(name + "_out", "Relu", net.Add(name + "_add", x, shortcut));
}

NetBuilder ResidualClassifier() {
  NetBuilder net("resnet50");
  std::string x = net.Data("input", {1, 3, 224, 224});
  x = ConvBn(net, "stem", x, 64, 7, 2, true);
  x = net.MaxPool("stem_pool", x, 3, 2);
  const int blocks[] = {3, 4, 6, 3};
  for (int stage = 0; stage < 4; ++stage) {
    const int64_t width = int64_t{64} << stage;
    for (int block = 0; block < blocks[stage]; ++block) {
      const std::string name = "stage" + std::to_string(stage + 1) + "_" + std::to_string(block);
      const int64_t stride = block == 0 && stage > 0 ? 2 : 1;
      x = Bottleneck(net, name, x, width, stride, block == 0);
    }
  }
  x = net.GlobalPoolFlatten("pool", x);
  net.Dense("logits", x, 1000);
  return net;
}

NetBuilder MobileNetwork() {
  NetBuilder net("mobile");
  std::string x = net.Data("image", {16, 3, 32, 32});
  x = net.Conv("conv0", x, 8, 3, 2);
  x = net.BatchNorm("bn0", x, "BatchNormExt2");
  x = net.Unary("relu0", "Relu", x);
  std::string dw = net.Conv("dw1", x, 16, 3, 1, /*depthwise=*/true);
  dw = net.BatchNorm("bn1", dw, "BatchNormExt2");
  dw = net.Unary("relu1", "Relu", dw);
  std::string pw = net.Conv("pw1", dw, 16, 1, 1);
  pw = net.Unary("relu2", "Relu", pw);
  x = net.Concat("concat", {dw, pw});
  x = net.BatchToSpace("b2s_nd", x, 2, /*nd=*/true);
  x = net.BatchToSpace("b2s", x, 2, /*nd=*/false);
  x = net.Cast("to_half", x, 1);
  net.Squeeze("squeeze", x, 0);
  return net;
}

NetBuilder UnsupportedOps() {
  NetBuilder net("unsupported");
  std::string x = net.Data("tokens", {1, 16, 8, 8});
  x = net.Conv("proj", x, 16, 1, 1);
  x = net.Unary("gelu1", "Gelu", x);
  x = net.Unary("norm", "LayerNorm", x);
  x = net.Unary("gelu2", "Gelu", x);
  x = net.Unary("probs", "Softmax", x);
  net.Unary("out", "Relu", x);
  return net;
}

bool WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) std::fprintf(stderr, "make_samples: cannot write %s\n", path.c_str());
  return static_cast<bool>(out);
}

bool WriteSample(NetBuilder& net, const std::string& dir, const std::string& name, bool json) {
  if (!WriteFile(dir + "/" + name + ".pb", net.Model().Bytes())) return false;
  if (!json) return true;
  std::string text;
  google::protobuf::util::JsonPrintOptions options;
  options.add_whitespace = true;
  options.preserve_proto_field_names = true;
  if (!google::protobuf::util::MessageToJsonString(net.Model().Def(), &text, options).ok()) {
    return false;
  }
  return WriteFile(dir + "/" + name + ".json", text);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_samples OUTPUT_DIR\n");
    return 2;
  }
  const std::string dir = argv[1];
  NetBuilder classifier = ResidualClassifier();
  NetBuilder mobile = MobileNetwork();
  NetBuilder unsupported = UnsupportedOps();
  const bool ok = WriteSample(classifier, dir, "resnet50", false) &&
                  WriteSample(mobile, dir, "mobile", true) &&
                  WriteSample(unsupported, dir, "unsupported", true);
  if (ok) {
    std::printf("make_samples: resnet50 (%zu weights), mobile, unsupported written to %s\n",
                classifier.WeightCount(), dir.c_str());
  }
  return ok ? 0 : 1;
}
