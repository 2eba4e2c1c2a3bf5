#include "framework/profiler.h"

#include <atomic>
#include <mutex>

namespace tesu {
namespace {
std::atomic<bool> g_enabled{false};
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
  return g_enabled;
}

void Profiler::Record(const std::string& name, double milliseconds) {
  std::lock_guard<std::mutex> lock(g_mutex);
  Steps().push_back({name, milliseconds});
}

std::vector<Profiler::Step> Profiler::Take() {
  std::lock_guard<std::mutex> lock(g_mutex);
  std::vector<Step> steps;
  steps.swap(Steps());
  return steps;
}

}  // namespace tesu
