// A conversion interrupted while it writes its outputs leaves no temporary file and ends as the
// signal ends a process. The run is held mid-write deterministically: the report page waits in
// its temporary file for the run's summary while --json blocks on a FIFO that nobody reads.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "files.h"
#include "model_builder.h"

namespace {

bool HasTemporaryFile(const testkit::TempDir& dir) {
  for (const std::string& name : dir.Entries()) {
    if (name.find(".tmp.") != std::string::npos) return true;
  }
  return false;
}

// The model file is written and the page waits in its temporary file.
bool HeldMidWrite(const testkit::TempDir& dir) {
  bool model = false;
  bool page = false;
  for (const std::string& name : dir.Entries()) {
    model = model || name == "o.pb";
    page = page || name.rfind(".o.html.tmp.", 0) == 0;
  }
  return model && page;
}

pid_t StartConversion(const testkit::TempDir& dir) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  // The signals' default actions, whatever the test runner set.
  signal(SIGINT, SIG_DFL);
  signal(SIGTERM, SIG_DFL);
  unsetenv("TESU_PLUGIN_DIR");
  if (chdir(dir.Path().c_str()) != 0) _exit(127);
  execl(TESU_CONVERT_PATH, TESU_CONVERT_PATH, "--model", "model.pb", "--output", "o.pb", "--report",
        "o.html", "--json", "fifo", "--log-level", "error", static_cast<char*>(nullptr));
  _exit(127);
}

TEST(InterruptedRunTest, SignalsMidWriteRemoveTemporaryFilesAndEndTheProcessBySignal) {
  for (const int signalNumber : {SIGTERM, SIGINT}) {
    SCOPED_TRACE(strsignal(signalNumber));
    const testkit::TempDir dir;
    testkit::WriteFile(dir.Path("model.pb"), testkit::ReluChainModel(1000).Bytes());
    ASSERT_EQ(mkfifo(dir.Path("fifo").c_str(), 0600), 0);
    const pid_t pid = StartConversion(dir);
    ASSERT_GT(pid, 0);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!HeldMidWrite(dir) && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_TRUE(HeldMidWrite(dir));
    kill(pid, signalNumber);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signalNumber) << status;
    EXPECT_FALSE(HasTemporaryFile(dir));
    EXPECT_EQ(dir.Entries(), (std::vector<std::string>{"fifo", "model.pb", "o.pb"}));
  }
}

}  // namespace
