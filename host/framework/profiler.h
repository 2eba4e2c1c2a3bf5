#ifndef TESU_FRAMEWORK_PROFILER_H
#define TESU_FRAMEWORK_PROFILER_H

#include <chrono>
#include <exception>
#include <string>
#include <vector>

namespace tesu {

// Collects how long named steps of a conversion take, for users who want to see where the time
// of a slow model goes. Off by default; while off, a step costs one flag test.
class Profiler {
 public:
  struct Step {
    std::string name;
    double milliseconds;
  };
  static void Enable(bool enabled);
  static bool Enabled();
  static void Record(const std::string& name, double milliseconds);
  // The steps recorded so far, in order; clears them.
  static std::vector<Step> Take();
};

// Takes over the profiler on the calling thread while it lives: steps timed on this thread are
// recorded here, whether or not the process-wide profiler is enabled, and never reach the
// process-wide list. Other threads are unaffected, so conversions running at once on several
// threads each get their own steps. Captures nest; the innermost one records.
class ProfileCapture {
 public:
  ProfileCapture();
  ~ProfileCapture();
  ProfileCapture(const ProfileCapture&) = delete;
  ProfileCapture& operator=(const ProfileCapture&) = delete;
  const std::vector<Profiler::Step>& Steps() const { return steps_; }

 private:
  friend class Profiler;
  std::vector<Profiler::Step> steps_;
  ProfileCapture* outer_;
};

// The innermost step an exception left on the calling thread, for a message that says what was
// under way when, say, memory ran out; null when none did.
const char* FailedStep();

// Records the time from its construction to its destruction as one step, and the step's name
// when an exception leaves it (FailedStep).
class ProfileScope {
 public:
  explicit ProfileScope(const char* name)
      : step_(name),
        name_(Profiler::Enabled() ? name : nullptr),
        exceptions_(std::uncaught_exceptions()),
        start_(std::chrono::steady_clock::now()) {}
  ~ProfileScope() {
    if (std::uncaught_exceptions() > exceptions_) NoteFailedStep(step_);
    if (name_ == nullptr) return;
    const std::chrono::duration<double, std::milli> elapsed =
        std::chrono::steady_clock::now() - start_;
    Profiler::Record(name_, elapsed.count());
  }
  ProfileScope(const ProfileScope&) = delete;
  ProfileScope& operator=(const ProfileScope&) = delete;

 private:
  static void NoteFailedStep(const char* step);
  const char* step_;
  const char* name_;
  int exceptions_;
  std::chrono::steady_clock::time_point start_;
};

}  // namespace tesu

#endif
