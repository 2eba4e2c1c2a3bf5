#include "cli_options.h"

#include <charconv>
#include <functional>
#include <set>

#include <CLI/CLI.hpp>

#include "convert/option_values.h"

namespace tesu {
namespace cli {
namespace {

constexpr const char* kDefaultCheckReport = "check_result.json";

using convert::Quote;

std::string Trim(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return std::string();
  const size_t last = text.find_last_not_of(" \t");
  return text.substr(first, last - first + 1);
}

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (true) {
    const size_t end = text.find(separator, start);
    parts.push_back(Trim(text.substr(start, end - start)));
    if (end == std::string::npos) return parts;
    start = end + 1;
  }
}

template <typename Int>
bool ParseInt(const std::string& text, Int& out) {
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, out);
  return !text.empty() && result.ec == std::errc() && result.ptr == end;
}

// Calls `handle` with the name and value of every "name:value" item of a ';'-separated list.
// Empty items are skipped so that a trailing ';' is harmless; a name may appear once.
std::string ForEachItem(
    const std::string& text,
    const std::function<std::string(const std::string&, const std::string&)>& handle) {
  std::set<std::string> seen;
  for (const std::string& item : Split(text, ';')) {
    if (item.empty()) continue;
    const size_t colon = item.rfind(':');
    if (colon == std::string::npos) return "item " + Quote(item) + " is not NAME:VALUE";
    const std::string name = Trim(item.substr(0, colon));
    if (name.empty()) return "item " + Quote(item) + " has no name";
    if (!seen.insert(name).second) return "name " + Quote(name) + " is given twice";
    const std::string reason = handle(name, Trim(item.substr(colon + 1)));
    if (!reason.empty()) return reason;
  }
  if (seen.empty()) return "no NAME:VALUE item";
  return std::string();
}

template <typename Int>
std::string ParseIntList(const std::string& text, const std::string& what, std::vector<Int>& out) {
  out.clear();
  if (text.empty()) return std::string();
  for (const std::string& part : Split(text, ',')) {
    Int value{};
    if (!ParseInt(part, value)) return what + " " + Quote(part) + " is not an integer";
    out.push_back(value);
  }
  return std::string();
}

const char* LogLevelName(int32_t level) {
  static const char* const kNames[] = {"debug", "info", "warning", "error"};
  return level >= AI_LOG_DEBUG && level <= AI_LOG_ERROR ? kNames[level] : "";
}

}  // namespace

std::string ParseInputShapes(const std::string& text,
                             std::unordered_map<std::string, std::vector<int64_t>>& out) {
  out.clear();
  return ForEachItem(text, [&out](const std::string& name, const std::string& value) {
    std::vector<int64_t> dims;
    std::string reason = ParseIntList<int64_t>(value, "dimension", dims);
    if (!reason.empty()) return reason + " in the shape of " + Quote(name);
    reason = convert::CheckShape(name, dims);
    if (!reason.empty()) return reason;
    out[name] = std::move(dims);
    return std::string();
  });
}

std::string ParseInputTypes(const std::string& text,
                            std::unordered_map<std::string, std::pair<tov::DataType, bool>>& out) {
  out.clear();
  return ForEachItem(text, [&out](const std::string& name, const std::string& value) {
    tov::DataType type = tov::DT_UNDEFINED;
    std::string reason = convert::ParseDataType(value, type);
    if (!reason.empty()) return reason + " for " + Quote(name);
    out[name] = {type, true};
    return std::string();
  });
}

std::string ParseInputFormats(const std::string& text,
                              std::unordered_map<std::string, tov::Format>& out) {
  out.clear();
  return ForEachItem(text, [&out](const std::string& name, const std::string& value) {
    tov::Format format = tov::FORMAT_RESERVED;
    std::string reason = convert::ParseFormat(value, format);
    if (!reason.empty()) return reason + " for " + Quote(name);
    out[name] = format;
    return std::string();
  });
}

std::string ParseOutNodes(const std::string& text,
                          std::map<std::string, std::vector<int32_t>>& out) {
  out.clear();
  return ForEachItem(text, [&out](const std::string& name, const std::string& value) {
    if (value.empty()) return "node " + Quote(name) + " names no output index";
    std::vector<int32_t> indices;
    std::string reason = ParseIntList<int32_t>(value, "output index", indices);
    if (!reason.empty()) return reason + " of node " + Quote(name);
    for (const int32_t index : indices) {
      reason = convert::CheckOutputIndex(name, index);
      if (!reason.empty()) return reason;
    }
    out[name] = std::move(indices);
    return std::string();
  });
}

std::string ParseOutputFormats(const std::string& text, std::vector<TrelTensorFormat>& out) {
  out.clear();
  if (Trim(text).empty()) return "no format given";
  for (const std::string& part : Split(text, ',')) {
    TrelTensorFormat format = TREL_FORMAT_RESERVED;
    std::string reason = convert::ParseOutputFormat(part, format);
    if (!reason.empty()) return reason;
    out.push_back(format);
  }
  return std::string();
}

std::string ParseLogLevel(const std::string& text, int& out) {
  int32_t level = 0;
  if (ParseInt(text, level) && *LogLevelName(level) != '\0') {
    out = level;
    return std::string();
  }
  for (level = AI_LOG_DEBUG; level <= AI_LOG_ERROR; ++level) {
    if (text == LogLevelName(level)) {
      out = level;
      return std::string();
    }
  }
  return "expected debug, info, warning, error or 0-3";
}

namespace {

// The flags whose values need parsing: their help, the raw text CLI11 stores and the parser
// that converts it once the whole line has been read.
struct ValueFlag {
  const char* name;
  const char* typeName;
  const char* help;
  std::function<std::string(const std::string&)> convert;
  std::string text = std::string();
};

std::vector<ValueFlag> ValueFlags(CliOptions& options) {
  ParserOptions& parser = options.parser;
  return {
      {"--input_shape", "LIST",
       "Shape per input, NAME:D1,D2,... separated by ';' (-1: unknown; empty: no dimensions). "
       "Example: --input_shape \"data:1,3,224,224;mask:\"",
       [&parser](const std::string& t) { return ParseInputShapes(t, parser.inputShapes); }},
      {"--input_type", "LIST",
       "Data type per input, NAME:TYPE (FLOAT, FLOAT16, INT8, INT32, UINT8, INT16, UINT32, INT64, "
       "BOOL, DOUBLE, or the number). Example: --input_type \"data:FLOAT16;ids:INT32\"",
       [&parser](const std::string& t) { return ParseInputTypes(t, parser.inputDataTypes); }},
      {"--input_format", "LIST",
       "Format per input, NAME:FORMAT (NCHW, NHWC, ND, ..., or the number). "
       "Example: --input_format \"data:NHWC\"",
       [&parser](const std::string& t) { return ParseInputFormats(t, parser.inputFormats); }},
      {"--out_nodes", "LIST",
       "Nodes whose outputs become the graph outputs, NAME:INDEX,... "
       "Example: --out_nodes \"conv1:0;split:0,2\"",
       [&parser](const std::string& t) { return ParseOutNodes(t, parser.outputNodes); }},
      {"--output_format", "LIST",
       "Format per graph output, by ordinal (0 NCHW, 1 NHWC, 2 ND, 3 NC1HWC0). "
       "Example: --output_format 3,0",
       [&parser](const std::string& t) { return ParseOutputFormats(t, parser.outputFormats); }},
      {"--log-level", "LEVEL",
       "Least level printed: debug, info, warning, error or 0-3. Example: --log-level warning",
       [&options](const std::string& t) { return ParseLogLevel(t, options.logLevel); }},
  };
}

constexpr const char* kExamples = R"(Examples:
  tesu-convert --model net.pb --output net.host.pb
  tesu-convert --model net.json --output out.pb --json out.json --log-level debug
  tesu-convert --model net.pb --output out.pb --input_shape "data:1,3,224,224" \
      --input_type "data:FLOAT16" --out_nodes "conv1:0" --output_format 3
  tesu-convert --model net.pb --output out.pb --check_report reports/ --save_check_report
  tesu-convert --model net.pb --output out.pb --dot out.dot --dot-source in.dot --profile
  tesu-convert --model net.pb --output out.pb --report net.report.html
  tesu-convert --model net.pb --output out.pb --weights out.weights
  tesu-convert --to-json --model net.pb --json net.json
  tesu-convert --list-frameworks --plugin-dir build/bin/plugins
Plug-ins are loaded from --plugin-dir, else $TESU_PLUGIN_DIR, else <executable dir>/plugins,
else <executable dir>/../lib/tesu/plugins (an installed tesu-convert).
A failed conversion exits with the parser's status (1-255) and writes no output file; a refused
command line exits with 2.)";

void AddFlags(CLI::App& app, CliOptions& options, std::vector<ValueFlag>& valueFlags) {
  app.add_option("--model", options.modelFile,
                 "Model to convert: a binary ModelDef, or its JSON form. Example: --model net.pb")
      ->type_name("FILE");
  app.add_option("--output", options.outputFile,
                 "Write the converted model (binary ModelDef). Example: --output net.host.pb")
      ->type_name("FILE");
  app.add_option("--weights", options.weightsFile,
                 "With --output, write every tensor of 1 KiB or more to this weights file "
                 "(in the output's folder or below it), each at an offset aligned to 64 bytes; "
                 "the model names it. Example: --output net.pb --weights net.weights")
      ->type_name("FILE");
  app.add_option("--json", options.jsonFile,
                 "Write the converted model as JSON, tensor data left out; with --to-json, the "
                 "JSON of the input model. Example: --json net.json")
      ->type_name("FILE");
  app.add_option("--dot", options.dotFile,
                 "Write the converted graph as Graphviz DOT. Example: --dot net.dot")
      ->type_name("FILE");
  app.add_option("--dot-source", options.dotSourceFile,
                 "Write the source graph, before conversion, as Graphviz DOT. "
                 "Example: --dot-source net.source.dot")
      ->type_name("FILE");
  app.add_option("--report", options.reportFile,
                 "Write a conversion report, one self-contained HTML page, also when the "
                 "conversion fails. Example: --report net.report.html")
      ->type_name("FILE");
  app.add_flag("--profile", options.profile,
               "Print the time spent reading, in each parser step and writing each file. "
               "Example: --profile");
  app.add_flag("--to-json", options.toJson,
               "Only dump --model (binary) as JSON to --json through the parser. "
               "Example: --to-json --model net.pb --json net.json");
  app.add_option("--framework", options.framework,
                 "Framework type of the model's parser (see --list-frameworks); by default the "
                 "one whose plug-in reads this host's model format. Example: --framework 7")
      ->check(CLI::Range(0, FRAMEWORK_MAX - 1));
  app.add_option("--plugin-dir", options.pluginDir,
                 "Directory whose lib*.so parser plug-ins are loaded. "
                 "Example: --plugin-dir build/bin/plugins")
      ->type_name("DIR");
  app.add_option("--check_report", options.parser.checkReportPath,
                 "Where the operator support report goes: a file, or a directory that gets "
                 "check_result.json. Example: --check_report reports/")
      ->type_name("PATH")
      ->capture_default_str();
  app.add_flag("--save_check_report", options.parser.saveCheckReport,
               "Write the support report even when every operator is supported. "
               "Example: --save_check_report");
  app.add_flag("--list-frameworks", options.listFrameworks,
               "Load the plug-ins, list the framework types they serve and exit. "
               "Example: --list-frameworks");
  app.add_flag("--version", options.version,
               "Print the version and the plug-ins found with their framework types, and exit. "
               "Example: --version");
  for (ValueFlag& flag : valueFlags) {
    app.add_option(flag.name, flag.text, flag.help)->type_name(flag.typeName);
  }
  app.footer(kExamples);
}

// Rules that span several flags.
std::string CheckCombination(const CliOptions& options) {
  if (options.listFrameworks || options.version) return std::string();
  if (options.modelFile.empty()) return "--model is required";
  if (options.toJson && options.jsonFile.empty()) return "--to-json needs --json FILE";
  if (options.toJson &&
      !(options.outputFile.empty() && options.dotFile.empty() && options.dotSourceFile.empty())) {
    return "--output, --dot and --dot-source cannot be combined with --to-json";
  }
  if (options.toJson && !options.reportFile.empty()) return "--report needs a conversion";
  if (!options.weightsFile.empty() && options.outputFile.empty()) {
    return "--weights needs --output FILE";
  }
  return std::string();
}

}  // namespace

CommandLine ParseCommandLine(int argc, const char* const* argv, CliOptions& options,
                             std::ostream& out, std::ostream& err) {
  CLI::App app{"Converts a model into the host's operator set with a parser plug-in.",
               "tesu-convert"};
  options.parser.checkReportPath = kDefaultCheckReport;
  std::vector<ValueFlag> valueFlags = ValueFlags(options);
  AddFlags(app, options, valueFlags);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int code = app.exit(e, out, err);
    return CommandLine{false, code == 0 ? 0 : kUsageError};
  }
  for (ValueFlag& flag : valueFlags) {
    if (app.count(flag.name) == 0) continue;
    const std::string reason = flag.convert(flag.text);
    if (!reason.empty()) {
      err << "tesu-convert: invalid " << flag.name << " value " << Quote(flag.text) << ": "
          << reason << "\n";
      return CommandLine{false, kUsageError};
    }
  }
  const std::string reason = CheckCombination(options);
  if (!reason.empty()) {
    err << "tesu-convert: " << reason << " (see --help)\n";
    return CommandLine{false, kUsageError};
  }
  options.parser.modelFile = options.modelFile;
  return CommandLine{true, 0};
}

}  // namespace cli
}  // namespace tesu
