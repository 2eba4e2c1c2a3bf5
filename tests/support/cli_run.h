// Runs tesu-convert as a process, in a fresh directory per test, with the plug-in that the build
// puts next to it.
#ifndef TESU_TESTS_SUPPORT_CLI_RUN_H
#define TESU_TESTS_SUPPORT_CLI_RUN_H

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "files.h"

namespace testkit {

struct CliResult {
  int exitCode = -1;
  std::string out;
  std::string err;
};

// A sample model the build generates.
std::string SamplePath(const std::string& name);

class CliTest : public ::testing::Test {
 protected:
  std::string Path(const std::string& name) const { return dir_.Path(name); }
  // Every file the runs left in the test directory, sorted.
  std::vector<std::string> Files() const { return dir_.Entries(); }
  // Runs the tool in the test directory, so its default report lands there, with
  // TESU_PLUGIN_DIR unset.
  CliResult Run(const std::vector<std::string>& args) const;

  TempDir dir_;
};

}  // namespace testkit

#endif
