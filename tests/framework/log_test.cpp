// The host log: line prefix, threshold and the capture sink.
#include <string>

#include <gtest/gtest.h>

#include "log/log.h"
#include "log_capture.h"

namespace {

class LogTest : public ::testing::Test {
 protected:
  void SetUp() override { previous_ = tesu::log::GetLevel(); }
  void TearDown() override { tesu::log::SetLevel(previous_); }
  int previous_ = AI_LOG_INFO;
};

TEST_F(LogTest, StderrLineNamesLevelAndModuleThenTheFormattedText) {
  struct Case {
    int level;
    const char* prefix;
  };
  const Case cases[] = {{AI_LOG_DEBUG, "[DEBUG] [MOD] "},
                        {AI_LOG_INFO, "[INFO] [MOD] "},
                        {AI_LOG_WARNING, "[WARNING] [MOD] "},
                        {AI_LOG_ERROR, "[ERROR] [MOD] "}};
  tesu::log::SetLevel(AI_LOG_DEBUG);
  for (const Case& c : cases) {
    ::testing::internal::CaptureStderr();
    AI_Log_Print(c.level, "MOD", "%s %s(%d)::\"%s\"", "orvane_parser", "ToJson", 459, "x");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              std::string(c.prefix) + "orvane_parser ToJson(459)::\"x\"\n");
  }
}

TEST_F(LogTest, MessagesBelowTheThresholdAreDropped) {
  testkit::LogCapture capture;
  tesu::log::SetLevel(AI_LOG_WARNING);
  AI_Log_Print(AI_LOG_INFO, "AI_FMK", "dropped");
  AI_Log_Print(AI_LOG_WARNING, "AI_FMK", "kept %d", 1);
  AI_Log_Print(AI_LOG_ERROR, "AI_INFRA", "kept %d", 2);
  ASSERT_EQ(capture.Lines().size(), 2u);
  EXPECT_EQ(capture.Lines()[0].text, "kept 1");
  EXPECT_EQ(capture.Lines()[1].level, AI_LOG_ERROR);
  EXPECT_EQ(capture.Lines()[1].module, "AI_INFRA");
}

TEST_F(LogTest, SinkGetsTextWithoutPrefixAndNothingReachesStderr) {
  ::testing::internal::CaptureStderr();
  {
    testkit::LogCapture capture;
    const std::string longText(5000, 'z');
    AI_Log_Print(AI_LOG_ERROR, "AI_FMK", "%s", longText.c_str());
    ASSERT_EQ(capture.Lines().size(), 1u);
    EXPECT_EQ(capture.Lines()[0].text, longText);
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

}  // namespace
