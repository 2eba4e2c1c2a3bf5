// Command line of tesu-convert: the flags, and the parsers that turn their values into parse
// options. Every value is checked here, before any plug-in or model is loaded.
#ifndef TESU_TOOLS_CLI_OPTIONS_H
#define TESU_TOOLS_CLI_OPTIONS_H

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "framework/model_parser.h"
#include "graph/types.h"
#include "log/log.h"
#include "status.h"

namespace tesu {
namespace cli {

// --framework not given: the framework whose plug-in reads this host's model format.
constexpr int32_t kDefaultFramework = -1;

struct CliOptions {
  std::string modelFile;
  std::string outputFile;     // converted model, binary
  std::string weightsFile;    // with outputFile: the converted model's tensors of 1 KiB or more
  std::string jsonFile;       // converted model as JSON, or the --to-json target
  std::string dotFile;        // converted graph as Graphviz DOT
  std::string dotSourceFile;  // source graph as Graphviz DOT
  std::string reportFile;     // conversion report, HTML
  bool profile = false;
  std::string pluginDir;  // empty: $TESU_PLUGIN_DIR, then beside the executable
  int32_t framework = kDefaultFramework;
  bool toJson = false;
  bool listFrameworks = false;
  bool version = false;
  int logLevel = AI_LOG_INFO;
  ParserOptions parser;
};

struct CommandLine {
  bool run = false;  // false: stop now with exitCode (help printed, or the line refused)
  int exitCode = 0;
};

// Reads argv into `options`. Help goes to `out`; a refused line gets one message on `err`.
CommandLine ParseCommandLine(int argc, const char* const* argv, CliOptions& options,
                             std::ostream& out, std::ostream& err);

// Value parsers. Each returns an empty string on success, otherwise the reason the value was
// refused; `out` is then unspecified. Lists are "name:value;name:value"; blanks around items are
// ignored.

// "data:1,3,224,224;mask:" -> dimensions per input (an empty list is allowed, -1 is unknown).
std::string ParseInputShapes(const std::string& text,
                             std::unordered_map<std::string, std::vector<int64_t>>& out);
// "data:FLOAT16;ids:3" -> data type per input, by name or number.
std::string ParseInputTypes(const std::string& text,
                            std::unordered_map<std::string, std::pair<tov::DataType, bool>>& out);
// "data:NHWC;ids:0" -> format per input, by name or number.
std::string ParseInputFormats(const std::string& text,
                              std::unordered_map<std::string, tov::Format>& out);
// "conv1:0;split:0,2" -> output indices per node.
std::string ParseOutNodes(const std::string& text,
                          std::map<std::string, std::vector<int32_t>>& out);
// "3,0" or "NC1HWC0,NCHW" -> format per graph output, by ordinal.
std::string ParseOutputFormats(const std::string& text, std::vector<TrelTensorFormat>& out);
// "debug", "info", "warning", "error" or 0-3.
std::string ParseLogLevel(const std::string& text, int& out);

}  // namespace cli
}  // namespace tesu

#endif
