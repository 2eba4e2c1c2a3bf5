// Conversions of different models on several threads of one process at once, as the Python
// package runs them from a thread pool. Each must produce exactly what the same conversion
// produces alone: the saved model, the check report, its own log lines and its own timed steps.
// Shared state shows up here as a difference, and under ThreadSanitizer as a reported race.
#include <unistd.h>

#include <cstdio>
#include <thread>

#include <gtest/gtest.h>

#include "files.h"
#include "framework/model_parser.h"
#include "framework/plugin_loader.h"
#include "framework/profiler.h"
#include "graph/model.h"
#include "log/log.h"
#include "model_builder.h"
#include "modelkit/net_builder.h"

namespace {

struct Case {
  std::string bytes;
  tesu::ParserOptions options;
};

struct Result {
  tesu::Status status = tesu::FAILED;
  std::string saved, report;  // the converted model; the check report's text
  std::vector<std::string> log, steps;
};

// Every converter kind, the fusion and designated input options; then a chain whose attribute
// names no other model uses (so threads intern new names at once), unsupported operators, a
// converter refusing a missing weight, and a model the loader refuses.
std::vector<Case> Cases() {
  modelkit::NetBuilder net("net", 3);
  std::string x =
      net.Unary("relu", "Relu",
                net.BatchNorm("bn", net.Conv("conv", net.Data("image", {2, 3, 8, 8}), 4, 3, 1)));
  x = net.Concat("cat", {x, net.Conv("dw", x, 8, 3, 1, /*depthwise=*/true)});
  x = net.Dense(
      "fc", net.GlobalPoolFlatten("gap", net.MaxPool("pool", net.BatchToSpace("b2s", x, 2), 2, 2)),
      4);
  net.Squeeze("squeeze", net.Cast("half", x, 1), 0);
  std::vector<Case> cases(5);
  cases[0].bytes = net.Model().Bytes();
  cases[0].options.inputDataTypes["image"] = {tov::DT_FLOAT16, true};
  cases[0].options.inputFormats["image"] = tov::FORMAT_NHWC;
  cases[0].options.outputNodes["squeeze"] = {0};
  cases[0].options.outputFormats = {tesu::TREL_FORMAT_NC1HWC0};

  testkit::ModelBuilder chain("chain"), unsupported("unsupported"), refused("refused");
  chain.Data("n0");
  for (int i = 1; i < 1500; ++i) {
    chain.Unary("n" + std::to_string(i), i % 2 ? "Relu" : "Abs", "n" + std::to_string(i - 1))
        .Attr("chain_attr_" + std::to_string(i % 97), int64_t{i});
  }
  unsupported.Data("x");
  unsupported.Unary("gelu", "Gelu", "x");
  unsupported.Unary("relu", "Relu", "gelu");
  refused.Data("x");
  const std::vector<int64_t> ones{1, 1, 1, 1};
  refused.Unary("dw", "DepthwiseConv2D", "x").Attr("strides", ones).Attr("dilations", ones);
  cases[1].bytes = chain.Bytes();
  cases[2].bytes = unsupported.Bytes();
  cases[3].bytes = refused.Bytes();
  cases[4].bytes = cases[0].bytes.substr(0, cases[0].bytes.size() / 2);
  return cases;
}

// One conversion as a host runs it, with the calling thread's log and profiler captured.
Result Convert(const Case& c, const std::string& reportPath) {
  Result result;
  tesu::log::ThreadCapture log(
      AI_LOG_DEBUG, [&result](int level, const std::string& module, const std::string& text) {
        result.log.push_back(tesu::log::FormatLine(level, module, text));
      });
  tesu::ProfileCapture profile;
  auto parser = tesu::ModelParserFactory::Instance()->CreateModelParser(tesu::FRAMEWORK_ORVANE);
  if (parser == nullptr) return result;
  tesu::ParserOptions options = c.options;
  options.checkReportPath = reportPath;
  options.saveCheckReport = true;
  std::vector<tov::BaseBuffer> buffers{
      tov::BaseBuffer(reinterpret_cast<const uint8_t*>(c.bytes.data()), c.bytes.size())};
  tov::Graph graph;
  result.status = parser->ParseFromMemory(options, buffers, graph);
  if (result.status == tesu::SUCCESS) (void)tov::Model("m", graph).Save(result.saved);
  result.report = testkit::ReadFile(reportPath);
  std::remove(reportPath.c_str());
  for (const tesu::Profiler::Step& step : profile.Steps()) result.steps.push_back(step.name);
  return result;
}

TEST(ParallelConversion, EachThreadGetsWhatASerialRunGets) {
  tesu::PluginLoadResult loaded;  // the plug-in registers its parser as it does in a host
  std::string error;
  ASSERT_TRUE(tesu::LoadPlugins(ORVANE_PLUGIN_DIR, loaded, error)) << error;
  const std::vector<Case> cases = Cases();
  const std::string reports = ::testing::TempDir() + "parallel_" + std::to_string(getpid());

  // Four threads convert every model twice, each starting at another one. They run before the
  // serial conversions, so that they are the ones to meet every attribute name first.
  constexpr size_t kThreads = 4;
  std::vector<std::vector<Result>> parallel(kThreads);
  std::vector<std::thread> threads;
  for (size_t t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (size_t k = 0; k < 2 * cases.size(); ++k) {
        parallel[t].push_back(Convert(cases[(t + k) % cases.size()], reports + std::to_string(t)));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();

  std::vector<Result> serial;
  for (const Case& c : cases) serial.push_back(Convert(c, reports));
  // Success, and refusals by the support check, a converter and the loader, the last two logged.
  const tesu::Status expected[] = {tesu::SUCCESS, tesu::SUCCESS, tesu::FAILED, 3,
                                   tov::GRAPH_MODEL_INVALID};
  for (size_t i = 0; i < cases.size(); ++i) {
    EXPECT_EQ(serial[i].status, expected[i]) << "case " << i;
    EXPECT_FALSE(serial[i].steps.empty()) << "case " << i;
    EXPECT_TRUE(i < 3 || !serial[i].log.empty()) << "case " << i;
  }
  for (size_t t = 0; t < kThreads; ++t) {
    for (size_t k = 0; k < parallel[t].size(); ++k) {
      const Result& got = parallel[t][k];
      const Result& want = serial[(t + k) % cases.size()];
      SCOPED_TRACE("case " + std::to_string((t + k) % cases.size()) + ", thread " +
                   std::to_string(t));
      EXPECT_EQ(got.status, want.status);
      EXPECT_TRUE(got.saved == want.saved) << "the saved model differs";
      EXPECT_EQ(got.report, want.report);
      EXPECT_EQ(got.log, want.log);
      EXPECT_EQ(got.steps, want.steps);
    }
  }
}

}  // namespace
