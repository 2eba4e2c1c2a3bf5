// Captures the lines that AI_Log_Print writes while in scope.
#ifndef TESU_TESTS_SUPPORT_LOG_CAPTURE_H
#define TESU_TESTS_SUPPORT_LOG_CAPTURE_H

#include <string>
#include <vector>

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
  void Clear() { lines_.clear(); }

 private:
  std::vector<LogLine> lines_;
  int previousLevel_;
};

}  // namespace testkit

#endif
