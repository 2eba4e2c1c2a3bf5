// A conversion that runs out of memory ends with one line naming what was under way and its own
// exit status, leaves no temporary file and no thread waiting. Memory is bounded with an address
// space limit in the child process, at sizes from too small to start to enough to finish, so
// that allocations fail at every stage of the run in turn.
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "files.h"
#include "model_builder.h"
#include "status.h"

namespace {

struct Outcome {
  bool exited = false;  // ended by exit, not by a signal or the test's deadline
  int code = -1;
  std::string err;
};

Outcome ConvertWithin(const testkit::TempDir& dir, rlim_t bytes) {
  const pid_t pid = fork();
  if (pid == 0) {
    const rlimit limit{bytes, bytes};
    unsetenv("TESU_PLUGIN_DIR");
    if (chdir(dir.Path().c_str()) != 0 || setrlimit(RLIMIT_AS, &limit) != 0 ||
        freopen("err.txt", "w", stderr) == nullptr ||
        freopen("/dev/null", "w", stdout) == nullptr) {
      _exit(127);
    }
    execl(TESU_CONVERT_PATH, TESU_CONVERT_PATH, "--model", "model.pb", "--output", "o.pb", "--json",
          "o.json", "--log-level", "error", static_cast<char*>(nullptr));
    _exit(127);
  }
  Outcome outcome;
  int status = 0;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
  while (waitpid(pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      return outcome;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  outcome.exited = WIFEXITED(status);
  outcome.code = outcome.exited ? WEXITSTATUS(status) : -1;
  std::ifstream in(dir.Path("err.txt"));
  std::ostringstream text;
  text << in.rdbuf();
  outcome.err = text.str();
  return outcome;
}

TEST(OutOfMemoryTest, EveryLimitEndsCleanlyWithItsOwnStatus) {
  const testkit::TempDir dir;
  testkit::WriteFile(dir.Path("model.pb"), testkit::ReluChainModel(100000).Bytes());
  int outOfMemory = 0;
  for (rlim_t megabytes = 48; megabytes <= 1024; megabytes += megabytes / 4) {
    SCOPED_TRACE(std::to_string(megabytes) + " MiB");
    const Outcome outcome = ConvertWithin(dir, megabytes << 20);
    ASSERT_TRUE(outcome.exited) << outcome.err;
    for (const std::string& name : dir.Entries()) {
      EXPECT_EQ(name.find(".tmp."), std::string::npos) << name;
    }
    if (outcome.code == tesu::kOutOfMemory) {
      ++outOfMemory;
      EXPECT_NE(outcome.err.find("tesu-convert: out of memory while "), std::string::npos)
          << outcome.err;
    } else if (outcome.code != 0) {
      // Too little memory to load the plug-in or map the model is an ordinary failure.
      EXPECT_EQ(outcome.code, tesu::kFailure) << outcome.err;
    }
  }
  EXPECT_GT(outOfMemory, 0);
}

}  // namespace
