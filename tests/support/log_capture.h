// Captures the lines that AI_Log_Print writes while in scope, and spells the lines the plug-in
// writes: "<source> <function>(<line>)::<message>".
#ifndef TESU_TESTS_SUPPORT_LOG_CAPTURE_H
#define TESU_TESTS_SUPPORT_LOG_CAPTURE_H

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "log/log.h"

namespace testkit {

struct LogLine {
  int level;
  std::string module;
  std::string text;
};

class LogCapture {
 public:
  LogCapture() {
    previousLevel_ = tesu::log::GetLevel();
    tesu::log::SetLevel(AI_LOG_DEBUG);
    tesu::log::SetSink([this](int level, const std::string& module, const std::string& text) {
      lines_.push_back({level, module, text});
    });
  }
  ~LogCapture() {
    tesu::log::SetSink(nullptr);
    tesu::log::SetLevel(previousLevel_);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  const std::vector<LogLine>& Lines() const { return lines_; }
  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const auto& line : lines_) texts.push_back(line.text);
    return texts;
  }
  bool Contains(const std::string& fragment) const {
    for (const auto& line : lines_) {
      if (line.text.find(fragment) != std::string::npos) return true;
    }
    return false;
  }

 private:
  std::vector<LogLine> lines_;
  int previousLevel_;
};

// A line of the plug-in's parser source, and of its converter source.
inline std::string ParserLine(const std::string& function, int line, const std::string& message) {
  return "orvane_parser " + function + "(" + std::to_string(line) + ")::" + message;
}
inline std::string UtilLine(const std::string& function, int line, const std::string& message) {
  return "orvane_util " + function + "(" + std::to_string(line) + ")::" + message;
}
inline std::string Quoted(const std::string& text) {
  return "\"" + text + "\"";
}

// The captured lines whose text starts with `source` ("orvane_parser ", ...).
inline std::vector<LogLine> LinesFrom(const LogCapture& logs, const std::string& source) {
  std::vector<LogLine> lines;
  for (const auto& line : logs.Lines()) {
    if (line.text.rfind(source, 0) == 0) lines.push_back(line);
  }
  return lines;
}

// Exactly one line was logged: an error under `module` with that text.
inline void ExpectOnlyLine(const LogCapture& logs, const std::string& module,
                           const std::string& text) {
  ASSERT_EQ(logs.Lines().size(), 1u) << ::testing::PrintToString(logs.Texts());
  EXPECT_EQ(logs.Lines()[0].level, AI_LOG_ERROR);
  EXPECT_EQ(logs.Lines()[0].module, module);
  EXPECT_EQ(logs.Lines()[0].text, text);
}

}  // namespace testkit

#endif
