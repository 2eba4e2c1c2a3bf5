#include "cli_run.h"
#include "model_builder.h"

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>

namespace testkit {

namespace {

std::string ShellQuote(const std::string& arg) {
  std::string quoted = "'";
  for (char c : arg) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

}  // namespace

std::string SamplePath(const std::string& name) {
  return std::string(TESU_SAMPLES_DIR) + "/" + name;
}

CliResult CliTest::Run(const std::vector<std::string>& args) const {
  std::string command = "cd " + ShellQuote(dir_.Path()) + " && unset TESU_PLUGIN_DIR; ";
  command += ShellQuote(TESU_CONVERT_PATH);
  for (const std::string& arg : args) command += " " + ShellQuote(arg);
  const std::string out = Path("stdout.txt");
  const std::string err = Path("stderr.txt");
  command += " >" + ShellQuote(out) + " 2>" + ShellQuote(err);
  const int raw = std::system(command.c_str());
  CliResult result{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, ReadFile(out), ReadFile(err)};
  std::filesystem::remove(out);
  std::filesystem::remove(err);
  return result;
}

}  // namespace testkit
