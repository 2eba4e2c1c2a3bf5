// The host log: line prefix, threshold and the capture sink.
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "framework/profiler.h"
#include "log/log.h"
#include "log_capture.h"

namespace {

TEST(LogTest, StderrLineNamesLevelAndModuleAndTheThresholdDropsLowerLevels) {
  const int previous = tesu::log::GetLevel();
  const std::pair<int, std::string> prefixes[] = {{AI_LOG_DEBUG, "[DEBUG]"},
                                                  {AI_LOG_INFO, "[INFO]"},
                                                  {AI_LOG_WARNING, "[WARNING]"},
                                                  {AI_LOG_ERROR, "[ERROR]"}};
  for (int threshold : {AI_LOG_DEBUG, AI_LOG_WARNING}) {
    tesu::log::SetLevel(threshold);
    for (const auto& [level, prefix] : prefixes) {
      ::testing::internal::CaptureStderr();
      AI_Log_Print(level, "MOD", "%s %s(%d)::\"%s\"", "orvane_parser", "ToJson", 459, "x");
      EXPECT_EQ(::testing::internal::GetCapturedStderr(),
                level < threshold ? "" : prefix + " [MOD] orvane_parser ToJson(459)::\"x\"\n");
    }
  }
  tesu::log::SetLevel(previous);
}

TEST(LogTest, SinkGetsWholeTextWithoutPrefixAndNothingReachesStderr) {
  ::testing::internal::CaptureStderr();
  {
    testkit::LogCapture capture;
    const std::string longText(5000, 'z');
    AI_Log_Print(AI_LOG_ERROR, "AI_INFRA", "%s", longText.c_str());
    ASSERT_EQ(capture.Lines().size(), 1u);
    EXPECT_EQ(capture.Lines()[0].text, longText);
    EXPECT_EQ(capture.Lines()[0].module, "AI_INFRA");
    EXPECT_EQ(capture.Lines()[0].level, AI_LOG_ERROR);
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

// Two threads log at once, each under its own capture with its own threshold, while the
// process-wide sink is installed: each capture holds exactly its thread's lines, in order, and
// the process-wide sink only the lines of a thread without a capture. Each thread's timed steps
// likewise stay in its own capture.
TEST(LogTest, ThreadCapturesKeepConcurrentThreadsApart) {
  testkit::LogCapture global;
  constexpr int kLines = 2000;
  struct Worker {
    std::string module;
    int threshold;
    std::vector<std::string> lines;
    std::vector<tesu::Profiler::Step> steps;
  };
  std::vector<Worker> workers = {{"A", AI_LOG_DEBUG, {}, {}}, {"B", AI_LOG_WARNING, {}, {}}};
  std::vector<std::thread> threads;
  for (Worker& worker : workers) {
    threads.emplace_back([&worker] {
      tesu::ProfileCapture profile;
      tesu::log::ThreadCapture capture(
          worker.threshold, [&worker](int, const std::string& module, const std::string& text) {
            worker.lines.push_back(module + " " + text);
          });
      for (int i = 0; i < kLines; ++i) {
        AI_Log_Print(i % 2 == 0 ? AI_LOG_DEBUG : AI_LOG_ERROR, worker.module.c_str(), "%d", i);
      }
      { tesu::ProfileScope step(worker.module.c_str()); }
      worker.steps = profile.Steps();
    });
  }
  AI_Log_Print(AI_LOG_ERROR, "MAIN", "outside");
  for (std::thread& thread : threads) thread.join();

  for (const Worker& worker : workers) {
    std::vector<std::string> expected;
    for (int i = 0; i < kLines; ++i) {
      if (i % 2 == 1 || worker.threshold == AI_LOG_DEBUG) {
        expected.push_back(worker.module + " " + std::to_string(i));
      }
    }
    EXPECT_EQ(worker.lines, expected) << worker.module;
    ASSERT_EQ(worker.steps.size(), 1u) << worker.module;
    EXPECT_EQ(worker.steps[0].name, worker.module);
  }
  EXPECT_EQ(global.Texts(), std::vector<std::string>{"outside"});
  EXPECT_TRUE(tesu::Profiler::Take().empty());
}

}  // namespace
