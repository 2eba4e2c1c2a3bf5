// The parse driver: what it accepts, and what reaches the caller.
#include <cstdio>

#include <gtest/gtest.h>

#include "parse.h"

namespace {

using namespace testkit;

tov::BaseBuffer BufferOf(const std::string& bytes, size_t size) {
  return tov::BaseBuffer(reinterpret_cast<const uint8_t*>(bytes.data()), size);
}

tesu::Status ParseBuffers(std::vector<tov::BaseBuffer> buffers, tov::Graph& graph) {
  tesu::ParserOptions options;
  options.checkReportPath = ::testing::TempDir() + "orvane_driver_report.json";
  const tesu::Status status = tesu::OrvaneModelParser().ParseFromMemory(options, buffers, graph);
  std::remove(options.checkReportPath.c_str());
  return status;
}

TEST(ParserDriver, RejectsAnythingButOneBufferWithData) {
  const std::string bytes = ReluChainModel(2).Bytes();
  const tov::BaseBuffer good = BufferOf(bytes, bytes.size());
  const std::vector<std::vector<tov::BaseBuffer>> cases = {
      {}, {good, good}, {tov::BaseBuffer(nullptr, bytes.size())}};
  for (const auto& buffers : cases) {
    LogCapture logs;
    tov::Graph graph;
    EXPECT_EQ(ParseBuffers(buffers, graph), 1u);
    ExpectOnlyLine(logs, "AI_INFRA",
                   ParserLine("ParseFromMemory", 444,
                              "\"modelBuffer.size() == 1 && modelBuffer[0].data() != nullptr\" "
                              "\"false, return FAIL.\""));
    EXPECT_FALSE(graph.IsValid());
  }
  // Zero bytes with a data pointer reach the model load.
  LogCapture logs;
  tov::Graph graph;
  (void)ParseBuffers({BufferOf(bytes, 0)}, graph);
  EXPECT_FALSE(logs.Contains("(444)"));
}

// The caller's graph is replaced only by a successful parse, which releases the previous one.
TEST(ParserDriver, OnlySuccessReplacesTheCallersGraph) {
  ModelBuilder odd;
  odd.Data("in");
  odd.Unary("odd", "NoSuchOp", "in");
  auto previous = std::make_shared<tov::ComputeGraph>("previous");
  tov::Graph graph = tov::GraphUtils::CreateGraphFromComputeGraph(previous);
  const std::string oddBytes = odd.Bytes();
  EXPECT_EQ(ParseBuffers({BufferOf(oddBytes, oddBytes.size())}, graph), 1u);
  EXPECT_EQ(tov::GraphUtils::GetComputeGraph(graph), previous);

  std::weak_ptr<tov::ComputeGraph> previousWatch = previous;
  previous.reset();
  const std::string bytes = ReluChainModel(2).Bytes();
  ASSERT_EQ(ParseBuffers({BufferOf(bytes, bytes.size())}, graph), 0u);
  EXPECT_TRUE(previousWatch.expired());
  auto result = tov::GraphUtils::GetComputeGraph(graph);
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(result.use_count(), 2);  // the caller's handle and this copy: the model is gone
  EXPECT_EQ(Desc(*result, "n1").GetType(), "Activation");
}

}  // namespace
