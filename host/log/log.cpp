#include "log/log.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace {

std::atomic<int> g_threshold{AI_LOG_INFO};

// Guards the sink and keeps lines of concurrent callers from interleaving.
std::mutex& OutputMutex() {
  static std::mutex mutex;
  return mutex;
}

tesu::log::Sink& CurrentSink() {
  static tesu::log::Sink sink;
  return sink;
}

const char* LevelName(int level) {
  switch (level) {
    case AI_LOG_DEBUG:
      return "DEBUG";
    case AI_LOG_INFO:
      return "INFO";
    case AI_LOG_WARNING:
      return "WARNING";
    case AI_LOG_ERROR:
      return "ERROR";
    default:
      return "LEVEL?";
  }
}

std::string FormatMessage(const char* fmt, va_list args) {
  va_list measure;
  va_copy(measure, args);
  const int length = std::vsnprintf(nullptr, 0, fmt, measure);
  va_end(measure);
  if (length <= 0) return std::string();
  std::vector<char> buffer(static_cast<size_t>(length) + 1);
  std::vsnprintf(buffer.data(), buffer.size(), fmt, args);
  return std::string(buffer.data(), static_cast<size_t>(length));
}

}  // namespace

namespace tesu {
namespace log {

// The innermost capture of the calling thread, or null.
struct ThreadCaptureAccess {
  static thread_local const ThreadCapture* current;
  static int Threshold(const ThreadCapture& capture) { return capture.threshold_; }
  static const Sink& SinkOf(const ThreadCapture& capture) { return capture.sink_; }
};
thread_local const ThreadCapture* ThreadCaptureAccess::current = nullptr;

}  // namespace log
}  // namespace tesu

extern "C" void AI_Log_Print(int level, const char* module, const char* fmt, ...) {
  using tesu::log::ThreadCaptureAccess;
  const tesu::log::ThreadCapture* capture = ThreadCaptureAccess::current;
  const int threshold = capture != nullptr ? ThreadCaptureAccess::Threshold(*capture)
                                           : g_threshold.load(std::memory_order_relaxed);
  if (level < threshold || fmt == nullptr) return;
  va_list args;
  va_start(args, fmt);
  std::string text = FormatMessage(fmt, args);
  va_end(args);
  const std::string moduleName = module != nullptr ? module : "";
  if (capture != nullptr) {
    const tesu::log::Sink& sink = ThreadCaptureAccess::SinkOf(*capture);
    if (sink) sink(level, moduleName, text);
    return;
  }

  // The sink runs under the lock so that a capturing test sees whole lines in order; a sink
  // therefore must not log itself.
  std::lock_guard<std::mutex> lock(OutputMutex());
  const tesu::log::Sink& sink = CurrentSink();
  if (sink) {
    sink(level, moduleName, text);
    return;
  }
  std::string line = tesu::log::FormatLine(level, moduleName, text);
  if (line.back() != '\n') line += '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);
}

namespace tesu {
namespace log {

void SetLevel(int threshold) {
  g_threshold.store(threshold, std::memory_order_relaxed);
}

std::string FormatLine(int level, const std::string& module, const std::string& text) {
  return "[" + std::string(LevelName(level)) + "] [" + module + "] " + text;
}

int GetLevel() {
  return g_threshold.load(std::memory_order_relaxed);
}

void SetSink(Sink sink) {
  std::lock_guard<std::mutex> lock(OutputMutex());
  CurrentSink() = std::move(sink);
}

ThreadCapture::ThreadCapture(int threshold, Sink sink)
    : threshold_(threshold), sink_(std::move(sink)), outer_(ThreadCaptureAccess::current) {
  ThreadCaptureAccess::current = this;
}

ThreadCapture::~ThreadCapture() {
  ThreadCaptureAccess::current = outer_;
}

}  // namespace log
}  // namespace tesu
