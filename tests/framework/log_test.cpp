// The host log: line prefix, threshold and the capture sink.
#include <thread>

#include <gtest/gtest.h>

#include "framework/profiler.h"
#include "log/log.h"
#include "log_capture.h"

namespace {

TEST(LogTest, StderrLineNamesLevelAndModuleAndTheThresholdDropsLowerLevels) {
  const int previous = tesu::log::GetLevel();
  const std::pair<int, std::string> prefixes[] = {
      {AI_LOG_DEBUG, "[DEBUG]"}, {AI_LOG_INFO, "[INFO]"},        {AI_LOG_WARNING, "[WARNING]"},
      {AI_LOG_ERROR, "[ERROR]"}, {AI_LOG_ERROR + 1, "[LEVEL?]"},
  };
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
    // No format prints nothing; no module and an empty message still make a line.
    AI_Log_Print(AI_LOG_ERROR, "AI_INFRA", nullptr);
    AI_Log_Print(AI_LOG_ERROR, nullptr, "%s", "");
    ASSERT_EQ(capture.Lines().size(), 2u);
    EXPECT_EQ(capture.Lines()[1].module + capture.Lines()[1].text, "");
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

// Each thread's capture, with its own threshold, holds exactly that thread's lines and timed
// steps; the process-wide sink gets only the lines of a thread without one.
TEST(LogTest, ThreadCapturesKeepConcurrentThreadsApart) {
  testkit::LogCapture global;
  std::vector<std::string> lines[2];
  std::vector<tesu::Profiler::Step> steps[2];
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&, t] {
      tesu::ProfileCapture profile;
      tesu::log::ThreadCapture capture(
          t == 0 ? AI_LOG_DEBUG : AI_LOG_ERROR,
          [&](int, const std::string&, const std::string& text) { lines[t].push_back(text); });
      for (int i = 0; i < 500; ++i) AI_Log_Print(i % 2 ? AI_LOG_ERROR : AI_LOG_DEBUG, "M", "%d", i);
      { tesu::ProfileScope step(t == 0 ? "a" : "b"); }
      steps[t] = profile.Steps();
    });
  }
  AI_Log_Print(AI_LOG_ERROR, "MAIN", "outside");
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(lines[0].size(), 500u);
  ASSERT_EQ(lines[1].size(), 250u);
  EXPECT_EQ(lines[1].back(), "499");
  ASSERT_EQ(steps[0].size() + steps[1].size(), 2u);
  EXPECT_EQ(steps[1][0].name, "b");
  EXPECT_EQ(global.Texts(), std::vector<std::string>{"outside"});
  EXPECT_TRUE(tesu::Profiler::Take().empty());
}

}  // namespace
