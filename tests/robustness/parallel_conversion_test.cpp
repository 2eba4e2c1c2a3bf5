// Conversions of different models on several threads of one process at once, as the Python
// package runs them from a thread pool. Each must produce exactly what the same conversion
// produces alone: the saved model, the check report, its own log lines and its own timed steps.
// Any state the conversions share by mistake shows up here as a difference, and under
// ThreadSanitizer as a reported race.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "framework/model_parser.h"
#include "framework/plugin_loader.h"
#include "framework/profiler.h"
#include "graph/base_buffer.h"
#include "graph/graph.h"
#include "graph/model.h"
#include "log/log.h"
#include "model_builder.h"
#include "modelkit/net_builder.h"

namespace {

using testkit::ModelBuilder;

struct Case {
  const char* label;
  std::string bytes;
  tesu::ParserOptions options;
};

// What one conversion produced; compared as a whole.
struct Result {
  bool parserFound = false;
  tesu::Status status = 0;
  std::string saved;   // the converted model, binary; empty when the parse failed
  std::string report;  // the check report's text
  std::vector<std::string> log;
  std::vector<std::string> steps;  // names of the timed steps, in order
};

// Every converter, the fusion, designated input types and formats, chosen outputs.
Case EveryConverter() {
  modelkit::NetBuilder net("every_converter", 3);
  std::string x = net.Data("image", {2, 3, 8, 8});
  x = net.Unary("relu", "Relu", net.BatchNorm("bn", net.Conv("conv", x, 4, 3, 1)));
  std::string dw = net.Conv("dw", x, 8, 3, 1, /*depthwise=*/true);
  dw = net.Unary("abs", "Abs", net.BatchNorm("bn_ext", dw, "BatchNormExt2"));
  x = net.Concat("cat", {dw, net.Conv("pw", dw, 8, 1, 1)});
  x = net.BatchToSpace("b2s", x, 2);
  x = net.MaxPool("pool", x, 2, 2);
  x = net.Dense("fc", net.GlobalPoolFlatten("gap", x), 4);
  net.Squeeze("squeeze", net.Cast("half", x, 1), 0);
  Case c{"every converter", net.Model().Bytes(), {}};
  c.options.inputDataTypes["image"] = {tov::DT_FLOAT16, true};
  c.options.inputFormats["image"] = tov::FORMAT_NHWC;
  c.options.inputShapes["image"] = {2, 3, 8, 8};
  c.options.outputNodes["squeeze"] = {0};
  c.options.outputFormats = {tesu::TREL_FORMAT_NC1HWC0};
  return c;
}

// A long chain whose nodes carry attribute names no other model uses, so that threads intern
// new names while others read theirs.
Case LongChain() {
  ModelBuilder model("chain");
  model.Data("x");
  std::string previous = "x";
  for (int i = 0; i < 1500; ++i) {
    const std::string name = "n" + std::to_string(i);
    model.Unary(name, i % 2 == 0 ? "Relu" : "Abs", previous)
        .Attr("chain_attr_" + std::to_string(i % 97), int64_t{i});
    previous = name;
  }
  return {"long chain", model.Bytes(), {}};
}

Case Unsupported() {
  ModelBuilder model("unsupported");
  model.Data("x");
  model.Unary("gelu", "Gelu", "x");
  model.Unary("swish", "Swish", "gelu");
  model.Unary("relu", "Relu", "swish");
  return {"unsupported operators", model.Bytes(), {}};
}

// Refused by a converter: a DepthwiseConv2D without its weight.
Case RefusedWeights() {
  ModelBuilder model("refused");
  model.Data("x");
  model.Unary("relu", "Relu", "x");
  model.Unary("dw", "DepthwiseConv2D", "relu")
      .Attr("strides", std::vector<int64_t>{1, 1, 1, 1})
      .Attr("dilations", std::vector<int64_t>{1, 1, 1, 1});
  return {"refused weights", model.Bytes(), {}};
}

// Refused by the loader: a model cut off in the middle of an op.
Case Truncated() {
  Case c = EveryConverter();
  c.label = "truncated model";
  c.bytes.resize(c.bytes.size() / 2);
  return c;
}

std::vector<Case> Cases() {
  return {EveryConverter(), LongChain(), Unsupported(), RefusedWeights(), Truncated()};
}

std::string ReadAndRemove(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::remove(path.c_str());
  return text;
}

// One conversion as a host runs it, with the calling thread's log and profiler captured.
Result Convert(const Case& c, const std::string& reportPath) {
  Result result;
  tesu::log::ThreadCapture log(
      AI_LOG_DEBUG, [&result](int level, const std::string& module, const std::string& text) {
        result.log.push_back(tesu::log::FormatLine(level, module, text));
      });
  tesu::ProfileCapture profile;
  std::shared_ptr<tesu::ModelParser> parser =
      tesu::ModelParserFactory::Instance()->CreateModelParser(tesu::FRAMEWORK_ORVANE);
  if (parser == nullptr) return result;
  result.parserFound = true;
  tesu::ParserOptions options = c.options;
  options.checkReportPath = reportPath;
  options.saveCheckReport = true;
  std::vector<tov::BaseBuffer> buffers{
      tov::BaseBuffer(reinterpret_cast<const uint8_t*>(c.bytes.data()), c.bytes.size())};
  tov::Graph graph;
  result.status = parser->ParseFromMemory(options, buffers, graph);
  if (result.status == tesu::SUCCESS &&
      tov::Model(c.label, graph).Save(result.saved) != tov::GRAPH_SUCCESS) {
    result.saved = "<not saved>";
  }
  result.report = ReadAndRemove(reportPath);
  for (const tesu::Profiler::Step& step : profile.Steps()) result.steps.push_back(step.name);
  return result;
}

std::string ReportPath(const std::string& tag) {
  return ::testing::TempDir() + "parallel_" + std::to_string(getpid()) + "_" + tag + ".json";
}

TEST(ParallelConversion, EachThreadGetsWhatASerialRunGets) {
  // The plug-in is loaded as a host loads it, so its parser registers with the process's factory.
  tesu::PluginLoadResult loaded;
  std::string error;
  ASSERT_TRUE(tesu::LoadPlugins(ORVANE_PLUGIN_DIR, loaded, error)) << error;
  ASSERT_TRUE(loaded.errors.empty()) << loaded.errors.front();

  // Each thread converts every model twice, starting at a different one, so that at any moment
  // different models are in flight. The threads run first, so that they are the ones that meet
  // every attribute name for the first time.
  const std::vector<Case> cases = Cases();
  constexpr size_t kThreads = 4;
  constexpr size_t kRounds = 2;
  std::vector<std::vector<Result>> parallel(kThreads);
  std::vector<std::thread> threads;
  for (size_t t = 0; t < kThreads; ++t) {
    threads.emplace_back([&cases, &parallel, t] {
      for (size_t k = 0; k < kRounds * cases.size(); ++k) {
        const size_t index = (t + k) % cases.size();
        parallel[t].push_back(Convert(cases[index], ReportPath("thread" + std::to_string(t))));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();

  std::vector<Result> serial;
  for (size_t i = 0; i < cases.size(); ++i) {
    serial.push_back(Convert(cases[i], ReportPath("serial")));
    SCOPED_TRACE(cases[i].label);
    ASSERT_TRUE(serial.back().parserFound) << "no parser registered for the framework";
    EXPECT_FALSE(serial.back().steps.empty());
  }
  // The cases cover success and the three kinds of refusal, with log lines to keep apart.
  EXPECT_EQ(serial[0].status, tesu::SUCCESS);
  EXPECT_EQ(serial[1].status, tesu::SUCCESS);
  EXPECT_FALSE(serial[2].report.empty());
  EXPECT_NE(serial[2].status, tesu::SUCCESS);
  EXPECT_NE(serial[3].status, tesu::SUCCESS);
  EXPECT_FALSE(serial[3].log.empty());
  EXPECT_NE(serial[4].status, tesu::SUCCESS);
  EXPECT_FALSE(serial[4].log.empty());

  for (size_t t = 0; t < kThreads; ++t) {
    for (size_t k = 0; k < parallel[t].size(); ++k) {
      const size_t index = (t + k) % cases.size();
      const Result& got = parallel[t][k];
      const Result& want = serial[index];
      SCOPED_TRACE(std::string(cases[index].label) + " on thread " + std::to_string(t));
      EXPECT_TRUE(got.parserFound);
      EXPECT_EQ(got.status, want.status);
      EXPECT_TRUE(got.saved == want.saved) << "the saved model differs";
      EXPECT_EQ(got.report, want.report);
      EXPECT_EQ(got.log, want.log);
      EXPECT_EQ(got.steps, want.steps);
    }
  }
}

}  // namespace
