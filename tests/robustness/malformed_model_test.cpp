// Bytes that are not a model, fed through the whole parse the way a host hands them over: each
// must be refused with a status and an error line, without a crash and without handing the
// caller a graph. What the loader refuses in a well-formed message, and what each converter
// refuses, is tested with the graph library and with the converters.
#include <random>

#include <gtest/gtest.h>

#include "graph/proto/model.pb.h"
#include "graph/types.h"
#include "parse.h"

namespace {

using namespace testkit;

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
  tensor.set_data(std::string(16, '\x01'));
  return tensor.SerializeAsString();
}

TEST(MalformedModel, BytesThatAreNotAModelAreRefusedWithALineNamingTheProblem) {
  const std::string valid = ReluChainModel(3).Bytes();  // a small valid model
  const char* const notAModel = "are not a serialised model";
  const struct {
    const char* label;
    std::string bytes;
    tesu::Status status;
    const char* fragment;
  } cases[] = {
      {"empty bytes: a model without a graph", std::string(), tesu::FAILED,
       "ParseFromMemory(450)::\"ovComputeGraph\" \"null, return FAIL.\""},
      {"truncated to half", valid.substr(0, valid.size() / 2), tov::GRAPH_MODEL_INVALID, notAModel},
      {"last byte cut off", valid.substr(0, valid.size() - 1), tov::GRAPH_MODEL_INVALID, notAModel},
      {"seeded random bytes", RandomBytes(20240611, 512), tov::GRAPH_MODEL_INVALID, notAModel},
      {"bytes of a TensorDef", TensorDefBytes(), tov::GRAPH_MODEL_INVALID, notAModel},
      {"no field tag", "\xff\xff\xff\xff", tov::GRAPH_MODEL_INVALID, notAModel},
      {"graph running past the end", "\022\005ab", tov::GRAPH_MODEL_INVALID, notAModel},
      {"model name not UTF-8", "\012\001\xff", tov::GRAPH_MODEL_INVALID, notAModel},
      {"graph name not UTF-8", "\022\003\012\001\xff", tov::GRAPH_MODEL_INVALID, notAModel},
      {"op name not UTF-8", "\022\005\022\003\012\001\xff", tov::GRAPH_MODEL_INVALID, notAModel},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    LogCapture log;
    const auto outcome = ParseBytes(c.bytes);
    EXPECT_EQ(outcome.status, c.status);
    EXPECT_TRUE(log.Contains(c.fragment)) << ::testing::PrintToString(log.Texts());
    for (const LogLine& line : log.Lines()) EXPECT_EQ(line.level, AI_LOG_ERROR);
    EXPECT_EQ(outcome.graph, nullptr);
  }
}

}  // namespace
