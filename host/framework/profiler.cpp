#include "framework/profiler.h"

#include <atomic>
#include <mutex>

namespace tesu {
namespace {
std::atomic<bool> g_enabled{false};
thread_local ProfileCapture* t_capture = nullptr;
std::mutex g_mutex;
std::vector<Profiler::Step>& Steps() {
  static std::vector<Profiler::Step> steps;
  return steps;
}
}  // namespace

void Profiler::Enable(bool enabled) {
  g_enabled = enabled;
}
bool Profiler::Enabled() {
  return t_capture != nullptr || g_enabled;
}

void Profiler::Record(const std::string& name, double milliseconds) {
  if (t_capture != nullptr) {
    t_capture->steps_.push_back({name, milliseconds});
    return;
  }
  std::lock_guard<std::mutex> lock(g_mutex);
  Steps().push_back({name, milliseconds});
}

std::vector<Profiler::Step> Profiler::Take() {
  std::lock_guard<std::mutex> lock(g_mutex);
  std::vector<Step> steps;
  steps.swap(Steps());
  return steps;
}

ProfileCapture::ProfileCapture() : outer_(t_capture) {
  t_capture = this;
}

ProfileCapture::~ProfileCapture() {
  t_capture = outer_;
}

namespace {
thread_local const char* tFailedStep = nullptr;
}  // namespace

const char* FailedStep() {
  return tFailedStep;
}

// Unwinding passes the innermost step first; the outer ones it leaves keep that one.
void ProfileScope::NoteFailedStep(const char* step) {
  if (tFailedStep == nullptr) tFailedStep = step;
}

}  // namespace tesu
