// The command line of tesu-convert on arbitrary bytes. The bytes become the arguments after the
// program name: split on NUL when there is one (so an argument may hold blanks), otherwise on
// blanks and newlines. Parsing must not crash or throw; a line it accepts must be one the
// conversion can run, and a line it refuses must say why. Nothing is loaded or written.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <sstream>
#include <string>
#include <vector>

#include "cli_options.h"
#include "fuzz_support.h"

namespace {

std::vector<std::string> SplitArguments(const char* data, size_t size) {
  const bool byNul = std::memchr(data, '\0', size) != nullptr;
  const auto separates = [byNul](char c) {
    return byNul ? c == '\0' : c == ' ' || c == '\t' || c == '\n' || c == '\r';
  };
  std::vector<std::string> arguments;
  std::string current;
  for (size_t i = 0; i < size; ++i) {
    if (!separates(data[i])) {
      current += data[i];
    } else if (!current.empty() || byNul) {
      arguments.push_back(current);  // between NULs an empty argument is still an argument
      current.clear();
    }
  }
  if (!current.empty()) arguments.push_back(current);
  return arguments;
}

// What an accepted line promises the conversion that follows it.
void CheckAccepted(const tesu::cli::CliOptions& options) {
  if (!options.listFrameworks && !options.version && options.modelFile.empty()) {
    fuzzsupport::Fail("a line without --model was accepted for a conversion");
  }
  if (options.parser.modelFile != options.modelFile) {
    fuzzsupport::Fail("the parse options name another model than --model");
  }
  for (const auto& shape : options.parser.inputShapes) {
    for (const int64_t dim : shape.second) {
      if (dim < -1) fuzzsupport::Fail("an accepted shape has a dimension below -1");
    }
  }
  for (const auto& node : options.parser.outputNodes) {
    if (node.second.empty()) fuzzsupport::Fail("an accepted output node has no index");
    for (const int32_t index : node.second) {
      if (index < 0) fuzzsupport::Fail("an accepted output index is negative");
    }
  }
  if (options.logLevel < AI_LOG_DEBUG || options.logLevel > AI_LOG_ERROR) {
    fuzzsupport::Fail("an accepted log level is out of range");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzsupport::SilenceLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<std::string> arguments = SplitArguments(reinterpret_cast<const char*>(data), size);
  std::vector<const char*> argv{"tesu-convert"};
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());
  argv.push_back(nullptr);

  tesu::cli::CliOptions options;
  std::ostringstream out;
  std::ostringstream err;
  tesu::cli::CommandLine line;
  try {
    line = tesu::cli::ParseCommandLine(static_cast<int>(argv.size() - 1), argv.data(), options, out,
                                       err);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "exception: %s\n", e.what());
    fuzzsupport::Fail("an exception left the command-line parser");
  } catch (...) {
    fuzzsupport::Fail("an exception left the command-line parser");
  }
  if (line.run) {
    if (line.exitCode != 0) fuzzsupport::Fail("an accepted line carries a failing status");
    CheckAccepted(options);
  } else if (line.exitCode == tesu::kUsageError) {
    if (err.str().empty()) fuzzsupport::Fail("a refused line printed no reason");
  } else if (line.exitCode != 0) {
    fuzzsupport::Fail("a refused line exits with neither 0 nor the usage status");
  }
  return 0;
}
