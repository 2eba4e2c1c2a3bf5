#ifndef TESU_LOG_LOG_H
#define TESU_LOG_LOG_H

#include <functional>
#include <string>

// Log levels; a message is printed when its level is at or above the threshold.
#define AI_LOG_DEBUG 0
#define AI_LOG_INFO 1
#define AI_LOG_WARNING 2
#define AI_LOG_ERROR 3

// Prints one line on stderr: a prefix naming the level and the module, then the message
// formatted printf-style, exactly as formatted.
extern "C" void AI_Log_Print(int level, const char* module, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));

namespace tesu {
namespace log {

void SetLevel(int threshold);
int GetLevel();

// A line as printed on stderr, without the newline: "[LEVEL] [module] text".
std::string FormatLine(int level, const std::string& module, const std::string& text);

// Receives every line at or above the threshold instead of stderr while installed; tests use
// it to capture lines. An empty function restores stderr.
using Sink = std::function<void(int level, const std::string& module, const std::string& text)>;
void SetSink(Sink sink);

// Takes over the log of the calling thread while it lives: lines logged on this thread go to
// `sink` (never to the process-wide sink or stderr) and `threshold` replaces the process-wide
// threshold for them. Other threads are unaffected, so two conversions running at once on two
// threads each see only their own lines. The sink runs without any lock, on the logging
// thread. Captures nest; the innermost one receives.
class ThreadCapture {
 public:
  ThreadCapture(int threshold, Sink sink);
  ~ThreadCapture();
  ThreadCapture(const ThreadCapture&) = delete;
  ThreadCapture& operator=(const ThreadCapture&) = delete;

 private:
  int threshold_;
  Sink sink_;
  const ThreadCapture* outer_;
  friend struct ThreadCaptureAccess;
};

}  // namespace log
}  // namespace tesu

#endif
