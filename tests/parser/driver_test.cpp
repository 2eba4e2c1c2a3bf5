// The parse driver, the parser object's slots and the creator.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "graph/proto/model.pb.h"
#include "log_capture.h"
#include "parse_helper.h"

namespace {
bool g_failNothrowNew = false;
}

// Lets a test exhaust the heap for non-throwing allocations only, which is what the creator uses.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (g_failNothrowNew) return nullptr;
  try {
    return ::operator new(size);
  } catch (...) {
    return nullptr;
  }
}

namespace {

using parsertest::LogText;
using parsertest::ParseBytes;

std::string SmallModelBytes() {
  testkit::ModelBuilder model;
  model.Data("in");
  model.Unary("relu", "Relu", "in");
  return model.Bytes();
}

const uint8_t* BytesOf(const std::string& text) {
  return reinterpret_cast<const uint8_t*>(text.data());
}

TEST(ParserDriver, RejectsAnythingButOneBufferWithData) {
  const std::string bytes = SmallModelBytes();
  const tov::BaseBuffer good(BytesOf(bytes), bytes.size());
  const std::vector<std::vector<tov::BaseBuffer>> cases = {
      {}, {good, good}, {tov::BaseBuffer(nullptr, bytes.size())}};
  for (auto buffers : cases) {
    testkit::LogCapture logs;
    tesu::ParserOptions options;
    tov::Graph graph;
    EXPECT_EQ(tesu::OrvaneModelParser().ParseFromMemory(options, buffers, graph), 1u);
    ASSERT_EQ(logs.Lines().size(), 1u) << buffers.size() << " buffers";
    EXPECT_EQ(logs.Lines()[0].level, 3);
    EXPECT_EQ(logs.Lines()[0].module, "AI_INFRA");
    EXPECT_EQ(logs.Lines()[0].text,
              LogText("ParseFromMemory", 444,
                      "\"modelBuffer.size() == 1 && modelBuffer[0].data() != nullptr\" "
                      "\"false, return FAIL.\""));
    EXPECT_FALSE(graph.IsValid());
  }
}

TEST(ParserDriver, ZeroSizeWithDataReachesLoad) {
  const std::string bytes = SmallModelBytes();
  std::vector<tov::BaseBuffer> buffers{tov::BaseBuffer(BytesOf(bytes), 0)};
  testkit::LogCapture logs;
  tesu::ParserOptions options;
  tov::Graph graph;
  (void)tesu::OrvaneModelParser().ParseFromMemory(options, buffers, graph);
  EXPECT_FALSE(logs.Contains("(444)"));
}

TEST(ParserDriver, LoadFailureStatusPassesThroughWithoutDriverLine) {
  testkit::LogCapture logs;
  const auto outcome = ParseBytes(std::string("\xff\xff\xff\x0f garbage", 12));
  EXPECT_NE(outcome.status, 0u);
  EXPECT_NE(outcome.status, 1u);  // the graph library's own status, not the driver's
  EXPECT_FALSE(logs.Contains("orvane_parser"));
}

TEST(ParserDriver, ModelWithoutGraphFailsWithNullGraphLine) {
  tesu::proto::ModelDef model;
  model.set_name("no_graph");
  testkit::LogCapture logs;
  const auto outcome = ParseBytes(model.SerializeAsString());
  EXPECT_EQ(outcome.status, 1u);
  ASSERT_EQ(logs.Lines().size(), 1u);
  EXPECT_EQ(logs.Lines()[0].module, "AI_INFRA");
  EXPECT_EQ(logs.Lines()[0].text,
            LogText("ParseFromMemory", 450, "\"ovComputeGraph\" \"null, return FAIL.\""));
}

TEST(ParserDriver, SuccessHandsBackTheEditedGraphAndReleasesThePreviousOne) {
  const std::string bytes = SmallModelBytes();
  std::vector<tov::BaseBuffer> buffers{tov::BaseBuffer(BytesOf(bytes), bytes.size())};
  auto previous = std::make_shared<tov::ComputeGraph>("previous");
  std::weak_ptr<tov::ComputeGraph> previousWatch = previous;
  tov::Graph graph = tov::GraphUtils::CreateGraphFromComputeGraph(std::move(previous));
  tesu::ParserOptions options;

  ASSERT_EQ(tesu::OrvaneModelParser().ParseFromMemory(options, buffers, graph), 0u);

  EXPECT_TRUE(previousWatch.expired());
  auto result = tov::GraphUtils::GetComputeGraph(graph);
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(result.use_count(), 2);  // the caller's handle and this copy: the model is gone
  EXPECT_EQ(parsertest::Desc(*result, "relu").GetType(), "Activation");
  EXPECT_EQ(parsertest::IntAttr(*result, "relu", "inferred_format"), 0);
}

TEST(ParserDriver, FailedParseLeavesCallersGraphAlone) {
  testkit::ModelBuilder model;
  model.Data("in");
  model.Unary("odd", "NoSuchOp", "in");
  const std::string bytes = model.Bytes();
  std::vector<tov::BaseBuffer> buffers{tov::BaseBuffer(BytesOf(bytes), bytes.size())};
  auto previous = std::make_shared<tov::ComputeGraph>("previous");
  tov::Graph graph = tov::GraphUtils::CreateGraphFromComputeGraph(previous);
  tesu::ParserOptions options;
  options.checkReportPath = ::testing::TempDir() + "orvane_driver_report.json";
  EXPECT_EQ(tesu::OrvaneModelParser().ParseFromMemory(options, buffers, graph), 1u);
  std::remove(options.checkReportPath.c_str());
  EXPECT_EQ(tov::GraphUtils::GetComputeGraph(graph), previous);
}

TEST(ParserSlots, InheritedEntriesReturnZeroAndTouchNothing) {
  const std::string bytes = SmallModelBytes();
  const auto size = static_cast<uint32_t>(bytes.size());
  auto computeGraph = std::make_shared<tov::ComputeGraph>("untouched");
  tov::Graph graph = tov::GraphUtils::CreateGraphFromComputeGraph(computeGraph);
  std::shared_ptr<tesu::ModelParser> parser = tesu::Creator_ORVANE_Model_Parser();
  ASSERT_NE(parser, nullptr);

  EXPECT_EQ(parser->Parse("model.bin", computeGraph), 0u);
  EXPECT_EQ(parser->ParseFromMemory(bytes.data(), size, computeGraph), 0u);
  EXPECT_EQ(parser->ParseFromMemory(bytes.data(), size, graph), 0u);
  EXPECT_EQ(computeGraph->GetNodesSize(), 0u);
  EXPECT_EQ(tov::GraphUtils::GetComputeGraph(graph), computeGraph);
}

TEST(ParserCreator, ExhaustedHeapYieldsEmptyParserAndNoLog) {
  testkit::LogCapture logs;
  g_failNothrowNew = true;
  std::shared_ptr<tesu::ModelParser> parser = tesu::Creator_ORVANE_Model_Parser();
  g_failNothrowNew = false;
  EXPECT_EQ(parser.get(), nullptr);
  EXPECT_TRUE(logs.Lines().empty());
  EXPECT_NE(tesu::Creator_ORVANE_Model_Parser(), nullptr);
}

}  // namespace
