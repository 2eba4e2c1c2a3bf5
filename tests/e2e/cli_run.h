// Runs tesu-convert as a process, in a fresh directory per test, with the plug-in that the build
// puts next to it.
#ifndef TESU_TESTS_E2E_CLI_RUN_H
#define TESU_TESTS_E2E_CLI_RUN_H

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "framework/test_files.h"

namespace e2etest {

using frameworktest::ReadFile;
using frameworktest::WriteFile;

inline std::string ShellQuote(const std::string& arg) {
  std::string quoted = "'";
  for (char c : arg) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

struct Result {
  int exitCode = -1;
  std::string out;
  std::string err;
};

class ConvertCliTest : public ::testing::Test {
 protected:
  std::string Path(const std::string& name) const { return dir_.Path(name); }
  // Every file the runs left in the test directory, sorted.
  std::vector<std::string> Files() const { return dir_.Entries(); }

  // Runs the tool in the test directory, so its default report lands there, with
  // TESU_PLUGIN_DIR set to `pluginEnv` or unset.
  Result Run(const std::vector<std::string>& args, const std::string& pluginEnv = "") const {
    std::string command = "cd " + ShellQuote(dir_.Path()) + " && ";
    command += pluginEnv.empty() ? "unset TESU_PLUGIN_DIR; "
                                 : "export TESU_PLUGIN_DIR=" + ShellQuote(pluginEnv) + "; ";
    command += ShellQuote(TESU_CONVERT_PATH);
    for (const std::string& arg : args) command += " " + ShellQuote(arg);
    const std::string out = Path("stdout.txt");
    const std::string err = Path("stderr.txt");
    command += " >" + ShellQuote(out) + " 2>" + ShellQuote(err);
    const int raw = std::system(command.c_str());
    Result result{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, ReadFile(out), ReadFile(err)};
    std::filesystem::remove(out);
    std::filesystem::remove(err);
    return result;
  }

  frameworktest::TempDir dir_;
};

}  // namespace e2etest

#endif
