// Malformed models fed through the whole parse: every one must be refused with a status and a
// log line that names the problem, without a crash, and without handing the caller a graph.
// A few malformed-looking models are tolerated on purpose; they are listed separately.
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "graph/op_desc_utils.h"
#include "graph/proto/model.pb.h"
#include "graph/types.h"
#include "log_capture.h"
#include "model_builder.h"
#include "parse_outcome.h"

namespace {

using robustness::ParseBytes;
using testkit::LogCapture;
using testkit::ModelBuilder;
using Ints = std::vector<int64_t>;

constexpr tesu::Status kRefusedByLoad = tov::GRAPH_MODEL_INVALID;

std::string Build(void (*build)(ModelBuilder&)) {
  ModelBuilder model;
  build(model);
  return model.Bytes();
}

// A valid model of a few hundred bytes; its graph field makes up nearly all of it.
std::string ValidModelBytes() {
  return Build([](ModelBuilder& m) {
    m.Data("x");
    m.Unary("relu", "Relu", "x");
    m.Unary("abs", "Abs", "relu");
  });
}

std::string RandomBytes(uint32_t seed, size_t size) {
  std::mt19937 engine(seed);
  std::uniform_int_distribution<int> byte(0, 255);
  std::string bytes(size, '\0');
  for (char& c : bytes) c = static_cast<char>(byte(engine));
  return bytes;
}

// Another message of the model format, as a confused host might hand over a weight file.
std::string TensorDefBytes() {
  tesu::proto::TensorDef tensor;
  tensor.mutable_desc()->set_dtype(tov::DT_FLOAT);
  tensor.mutable_desc()->add_shape(4);
  tensor.set_data(
      std::string("\x00\x00\x80\x3f\x00\x00\x00\x40\x00\x00\x40\x40\x00\x00\x80\x40", 16));
  return tensor.SerializeAsString();
}

void FourFloatWeights(ModelBuilder& m) {
  for (const char* name : {"mean", "var", "scale", "offset"}) m.ConstFloat(name, {1, 2, 3});
}

struct RefusedCase {
  const char* label;
  std::string bytes;
  tesu::Status status;
  const char* fragment;  // of one log line
};

RefusedCase Built(const char* label, void (*build)(ModelBuilder&), tesu::Status status,
                  const char* fragment) {
  return {label, Build(build), status, fragment};
}

const std::vector<RefusedCase>& RefusedCases() {
  static const std::vector<RefusedCase> cases = {
      // Not a model at all.
      {"empty bytes: a model without a graph", std::string(), tesu::FAILED,
       "ParseFromMemory(450)::\"ovComputeGraph\" \"null, return FAIL.\""},
      {"truncated to half", ValidModelBytes().substr(0, ValidModelBytes().size() / 2),
       kRefusedByLoad, "are not a serialised model"},
      {"last byte cut off", ValidModelBytes().substr(0, ValidModelBytes().size() - 1),
       kRefusedByLoad, "are not a serialised model"},
      {"seeded random bytes", RandomBytes(20240611, 512), kRefusedByLoad,
       "are not a serialised model"},
      {"bytes of a TensorDef", TensorDefBytes(), kRefusedByLoad, "are not a serialised model"},
      // Broken graph structure.
      Built(
          "input naming a missing node", [](ModelBuilder& m) { m.Unary("y", "Relu", "ghost"); },
          kRefusedByLoad, "node \"y\" (Relu): input \"ghost:0\" names no node"),
      Built(
          "output index beyond range",
          [](ModelBuilder& m) {
            m.Data("x");
            m.Unary("y", "Relu", "x:3");
          },
          kRefusedByLoad, "asks for output 3 but node \"x\" has 1 outputs"),
      Built(
          "control edge to a missing node",
          [](ModelBuilder& m) {
            m.Data("x");
            m.Unary("y", "Relu", "x").Control("ghost");
          },
          kRefusedByLoad, "input \"ghost:-1\" names no node"),
      Built(
          "duplicate names",
          [](ModelBuilder& m) {
            m.Data("x");
            m.Unary("x", "Relu", "x");
          },
          kRefusedByLoad, "node \"x\" (Relu): another node has the same name"),
      Built(
          "cycle",
          [](ModelBuilder& m) {
            m.Data("x");
            m.Op("a", "Add").Input("x").Input("b").Output();
            m.Unary("b", "Relu", "a");
          },
          kRefusedByLoad, "lies on a cycle"),
      Built(
          "self-loop", [](ModelBuilder& m) { m.Unary("loop", "Relu", "loop"); }, kRefusedByLoad,
          "node \"loop\" (Relu) lies on a cycle"),
      // Broken tensors.
      Built(
          "element count overflowing 64 bits",
          [](ModelBuilder& m) {
            m.ConstInt32("c", {1}, {int64_t{1} << 32, 1 << 30, 4});
          },
          kRefusedByLoad, "whose element count overflows 64 bits"),
      Built(
          "negative dimension of a tensor with data",
          [](ModelBuilder& m) { m.ConstInt32("c", {1}, {-1}); }, kRefusedByLoad,
          "which need a known shape and data type"),
      Built(
          "negative dimension of an input",
          [](ModelBuilder& m) {
            m.Data("x", {1, -5});
          },
          kRefusedByLoad, "has dimension -5"),
      Built(
          "tensor data shorter than its shape",
          [](ModelBuilder& m) {
            m.ConstInt32("c", {1, 2}, {3});
          },
          kRefusedByLoad, "holds 8 bytes but its shape and INT32 data type need 12"),
      Built(
          "tensor data longer than its shape",
          [](ModelBuilder& m) {
            m.ConstFloat("c", {1, 2}, {1});
          },
          kRefusedByLoad, "holds 8 bytes but its shape and FLOAT data type need 4"),
      Built(
          "Const without its tensor", [](ModelBuilder& m) { m.Op("c", "Const").Output(); },
          kRefusedByLoad, "node \"c\" (Const): Const node has no tensor attribute \"value\""),
      // Inputs the data node conversion refuses.
      Built(
          "input of an unsupported data type",
          [](ModelBuilder& m) { m.Data("x", {1}, tov::DT_UINT64); }, tesu::FAILED,
          "CheckIsDataTypeSupport(259)::\"input tensor type of x should be"),
      Built(
          "input without dimensions", [](ModelBuilder& m) { m.Data("x", {}); }, tesu::FAILED,
          "SetDataNodeInputShape(293)::\"parse data node x shape has no dim"),
      // Attributes of the wrong kind, or missing, for each converter.
      Built(
          "MaxPool with a string ksize",
          [](ModelBuilder& m) {
            m.Data("x");
            m.Unary("pool", "MaxPool", "x").Attr("ksize", "3x3");
          },
          tesu::FAILED, "OrvaneMaxPoolParserFunc(378)::\"get ksize fail.\""),
      Built(
          "MaxPool with an integer padding",
          [](ModelBuilder& m) {
            m.Data("x");
            m.Unary("pool", "MaxPool", "x")
                .Attr("ksize", Ints{1, 1, 2, 2})
                .Attr("strides", Ints{1, 1, 2, 2})
                .Attr("padding", int64_t{1});
          },
          tesu::FAILED, "OrvaneMaxPoolParserFunc(385)::\"get padding fail.\""),
      Built(
          "Conv2D with a string dilations",
          [](ModelBuilder& m) {
            m.Data("x");
            m.Unary("conv", "Conv2D", "x").Attr("dilations", "1,1,1,1");
          },
          tesu::FAILED, "ConvParserFunc(212)::\"get dilations fail.\""),
      Built(
          "Conv2D with a float-list strides",
          [](ModelBuilder& m) {
            m.Data("x");
            m.Unary("conv", "Conv2D", "x")
                .Attr("dilations", Ints{1, 1, 1, 1})
                .Attr("strides", std::vector<float>{1, 1, 1, 1});
          },
          tesu::FAILED, "ConvParserFunc(219)::\"get strides fail.\""),
      Built(
          "DepthwiseConv2D without its weight",
          [](ModelBuilder& m) {
            m.Data("x");
            m.Unary("dw", "DepthwiseConv2D", "x")
                .Attr("dilations", Ints{1, 1, 1, 1})
                .Attr("strides", Ints{1, 1, 1, 1});
          },
          3, "ConvParserFunc(247)::\"node: dw, weightsVec size : 0\""),
      // ReduceMeanD reads an unreadable "axes" as absent, so only the scalar input fails here.
      Built(
          "ReduceMeanD with float axes on a scalar input",
          [](ModelBuilder& m) {
            m.Data("x");
            m.Op("mean", "ReduceMeanD")
                .Input("x")
                .InputDesc({})
                .Output()
                .Attr("axes", std::vector<float>{1, 2});
          },
          tesu::FAILED, "OrvaneReduceMeanDParserFunc(294)::\"dim num is invaild\""),
      Built(
          "BatchToSpaceD with an integer crops",
          [](ModelBuilder& m) {
            m.Data("x");
            m.Unary("b2s", "BatchToSpaceD", "x")
                .Attr("block_size", int64_t{2})
                .Attr("crops", int64_t{0});
          },
          tesu::FAILED, "BatchToSpaceParserFunc(453)::\"get crops fail.\""),
      Built(
          "BatchToSpaceD with a string block_size",
          [](ModelBuilder& m) {
            m.Data("x");
            m.Unary("b2s", "BatchToSpaceD", "x").Attr("block_size", "2");
          },
          tesu::FAILED, "BatchToSpaceParserFunc(448)::\"get blockSize fail.\""),
      Built(
          "BatchToSpaceNDD with a string block_shape",
          [](ModelBuilder& m) {
            m.Data("x");
            m.Unary("b2s", "BatchToSpaceNDD", "x").Attr("block_shape", "2,2");
          },
          tesu::FAILED, "BatchToSpaceParserFunc(444)::\"get blockShape fail.\""),
      Built(
          "BatchNorm in training mode",
          [](ModelBuilder& m) {
            m.Data("x");
            FourFloatWeights(m);
            m.Unary("bn", "BatchNorm", "x")
                .Input("mean")
                .Input("var")
                .Input("scale")
                .Input("offset")
                .Attr("is_training", true);
          },
          tesu::FAILED, "BatchNormParserFunc(73)::\"only support is_training as false\""),
      Built(
          "BatchNorm with a data input in place of a weight",
          [](ModelBuilder& m) {
            m.Data("x");
            FourFloatWeights(m);
            m.Unary("bn", "BatchNorm", "x").Input("mean").Input("var").Input("scale").Input("x");
          },
          3, "BatchNormParserFunc(66)::\"BatchNorm should have 1 non const input and 4 weights\""),
      Built(
          "Concat with an INT64 axis",
          [](ModelBuilder& m) {
            m.Data("x");
            m.ConstInt64("axis", {1});
            m.Unary("cat", "Concat", "x").Input("axis");
          },
          3, "ConcatParserFunc(152)::\"node: cat, data type : 9\""),
      Built(
          "Concat with its axis only",
          [](ModelBuilder& m) {
            m.ConstInt32("axis", {1});
            m.Op("cat", "ConcatV2").Input("axis").Output();
          },
          tesu::FAILED, "ConcatParserFunc(131)::\"input size should more than 1\""),
  };
  return cases;
}

TEST(MalformedModel, EveryCaseIsRefusedWithALineNamingTheProblem) {
  for (const RefusedCase& c : RefusedCases()) {
    SCOPED_TRACE(c.label);
    LogCapture log;
    const robustness::ParseOutcome outcome = ParseBytes(c.bytes);
    EXPECT_EQ(outcome.status, c.status);
    EXPECT_TRUE(log.Contains(c.fragment)) << ::testing::PrintToString(log.Texts());
    for (const testkit::LogLine& line : log.Lines()) EXPECT_EQ(line.level, AI_LOG_ERROR);
    EXPECT_FALSE(outcome.graph.IsValid());
  }
}

// Malformed-looking models that parse: each is checked for what the parse made of it.
struct ToleratedCase {
  const char* label;
  void (*build)(ModelBuilder&);
  const char* fragment;  // of a log line the oddity must leave, or null for none
  void (*check)(const tov::ComputeGraph&);
};

TEST(MalformedModel, ToleratedOddities) {
  const ToleratedCase cases[] = {
      // No operators is a valid, if useless, model: the host gets an empty graph back.
      {"graph without operators", [](ModelBuilder&) {}, nullptr,
       [](const tov::ComputeGraph& graph) { EXPECT_EQ(graph.GetNodesSize(), 0u); }},
      {"ReduceMeanD with float axes reduces every axis",
       [](ModelBuilder& m) {
         m.Data("x");
         m.Unary("mean", "ReduceMeanD", "x").Attr("axes", std::vector<float>{1, 2});
       },
       nullptr,
       [](const tov::ComputeGraph& graph) {
         const tov::NodePtr mean = graph.FindNode("mean");
         ASSERT_NE(mean, nullptr);
         EXPECT_EQ(mean->GetType(), "ReduceMean");
         const auto weights = tov::OpDescUtils::MutableWeights(*mean);
         ASSERT_EQ(weights.size(), 1u);
         EXPECT_EQ(testkit::Int32Data(*weights[0]), (std::vector<int32_t>{0, 1, 2, 3}));
       }},
      // An unreadable keep_dims is "no match" for the fusion, not a failure: the Reshape stays.
      {"ReduceMeanD with a string keep_dims before a Reshape",
       [](ModelBuilder& m) {
         m.Data("x");
         m.Unary("mean", "ReduceMeanD", "x").Attr("axes", Ints{2, 3}).Attr("keep_dims", "yes");
         m.Unary("flat", "Reshape", "mean");
       },
       "CheckIsReduceMeanReshapePattern(121)",
       [](const tov::ComputeGraph& graph) {
         EXPECT_EQ(testkit::ConsumersOf(*graph.FindNode("mean")), std::vector<std::string>{"flat"});
       }},
  };
  for (const ToleratedCase& c : cases) {
    SCOPED_TRACE(c.label);
    const std::string bytes = Build(c.build);
    LogCapture log;
    const robustness::ParseOutcome outcome = ParseBytes(bytes);
    ASSERT_EQ(outcome.status, 0u) << ::testing::PrintToString(log.Texts());
    if (c.fragment == nullptr) {
      EXPECT_TRUE(log.Lines().empty()) << ::testing::PrintToString(log.Texts());
    } else {
      EXPECT_TRUE(log.Contains(c.fragment)) << ::testing::PrintToString(log.Texts());
    }
    const auto graph = tov::GraphUtils::GetComputeGraph(outcome.graph);
    ASSERT_NE(graph, nullptr);
    c.check(*graph);
  }
}

}  // namespace
