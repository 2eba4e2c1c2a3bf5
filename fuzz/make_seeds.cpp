// Writes the fuzzers' seed models: one small network that reaches every converter, a model
// with an unsupported operator, and a few models that use the rarer corners of the format
// (every attribute kind, control edges, unconnected inputs, an empty graph). The output is the
// same on every run. Usage: make_fuzz_seeds OUTPUT_DIR
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "modelkit/net_builder.h"

namespace {

using modelkit::ModelBuilder;
using modelkit::NetBuilder;

ModelBuilder EveryConverter() {
  NetBuilder net("every_converter", 7);
  std::string x = net.Data("image", {16, 3, 8, 8});
  x = net.Unary("relu", "Relu", net.BatchNorm("bn", net.Conv("conv", x, 4, 3, 1)));
  std::string dw = net.Conv("dw", x, 8, 3, 1, /*depthwise=*/true);
  dw = net.Unary("abs", "Abs", net.BatchNorm("bn_ext", dw, "BatchNormExt2"));
  const std::string pw = net.Conv("pw", dw, 8, 1, 1);
  x = net.Concat("cat_v2", {dw, pw});
  x = net.Concat("cat", {x, x}, "Concat");
  x = net.BatchToSpace("b2s_nd", x, 2, /*nd=*/true);
  x = net.BatchToSpace("b2s", x, 2, /*nd=*/false);
  x = net.MaxPool("pool", x, 2, 2);
  x = net.Dense("fc", net.GlobalPoolFlatten("gap", x), 4);
  net.Squeeze("squeeze", net.Cast("half", x, 1), 0);
  return net.Model();
}

ModelBuilder Unsupported() {
  ModelBuilder model("unsupported");
  model.Data("x");
  model.Unary("gelu", "Gelu", "x");
  model.Unary("relu", "Relu", "gelu");
  return model;
}

ModelBuilder FormatCorners() {
  ModelBuilder model("corners");
  (*model.Def().mutable_attr())["producer"].set_s("seeds");
  (*model.Def().mutable_graph(0)->mutable_attr())["opset"].set_i(5);
  model.Data("x", {1, -1, 4}, 1);
  model.ConstInt64("k", {1, 2}, {2});
  modelkit::OpBuilder op = model.Op("op", "Custom");
  for (const char* input : {"x:0", "", "k:0"}) op.Def().add_input(input);  // "" is unconnected
  op.Control("x")
      .InputConst({false, false, true})
      .Output({1})
      .Output({2}, 9, 2)
      .Attr("s", "text")
      .Attr("i", int64_t{-5})
      .Attr("f", 1.5f)
      .Attr("b", true)
      .Attr("li", std::vector<int64_t>{1, -2})
      .Attr("lf", std::vector<float>{0.25f})
      .Attr("ls", std::vector<std::string>{"a", "b"})
      .EmptyListAttr("empty");
  model.Unary("tail", "Relu", "op:1");
  return model;
}

bool Write(const std::string& dir, const std::string& name, const ModelBuilder& model) {
  const std::string path = dir + "/" + name + ".pb";
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  const std::string bytes = model.Bytes();
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out) std::fprintf(stderr, "make_fuzz_seeds: cannot write %s\n", path.c_str());
  return static_cast<bool>(out);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_fuzz_seeds OUTPUT_DIR\n");
    return 2;
  }
  const std::string dir = argv[1];
  const bool ok = Write(dir, "every_converter", EveryConverter()) &&
                  Write(dir, "unsupported", Unsupported()) &&
                  Write(dir, "corners", FormatCorners()) && Write(dir, "empty", ModelBuilder());
  return ok ? 0 : 1;
}
