// Converting a model with a parser plug-in, in one call: the steps that tesu-convert, the Python
// module and the conversion report share. A request names the model, the framework and the parse
// options; the result holds the converted model or what failed, with the log lines, the check
// report, the timed steps and the operator counts.
//
//   #include <tesu/convert/conversion.h>
//
//   tesu::convert::Request request;
//   request.modelPath = "net.pb";
//   request.options.inputShapes["data"] = {1, 3, 224, 224};
//   const tesu::convert::Result result = tesu::convert::Convert(request);
//   if (!result.Converted()) return result.exitCode;  // result.error says why
//   std::string bytes;
//   result.model.Save(bytes);  // or inspect result.graph, result.after, result.warnings

#ifndef TESU_CONVERT_CONVERSION_H
#define TESU_CONVERT_CONVERSION_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "framework/model_parser.h"
#include "framework/profiler.h"
#include "graph/compute_graph.h"
#include "graph/model.h"
#include "log/log.h"
#include "status.h"

namespace tesu {
namespace convert {

// Operator type to node count, sorted by type.
using OpCounts = std::map<std::string, size_t>;

struct LogLine {
  int level;
  std::string module;
  std::string text;
};

// Work done alongside a conversion, such as a report that reads the source graph while the
// parser works on the same bytes. Called on the converting thread.
class Observer {
 public:
  virtual ~Observer() = default;
  // The model's bytes as the parser gets them, and the operator counts of their graph; the
  // bytes stay valid until Parsed is called.
  virtual void ModelRead(std::string_view bytes, const OpCounts& before) = 0;
  // The parser returned; the bytes are released once this returns.
  virtual void Parsed() = 0;
};

struct Request {
  // The model: a file, or bytes that the caller keeps unchanged during the call (a model in the
  // host's format may be either form, binary or JSON).
  std::string modelPath;
  std::optional<std::string_view> modelBytes;
  // The framework whose parser converts the model. Without one, the framework whose plug-in
  // declared that it reads the host's model format, when exactly one did.
  std::optional<FrameworkType> framework;
  // Designated input shapes, types and formats, output nodes and formats, and the check report:
  // `checkReportPath` is a file, or a directory that gets check_result.json; when empty the
  // report is written nowhere and only returned in the result.
  ParserOptions options;
  // The directory whose plug-ins are loaded (once per directory and process); empty: as
  // ResolvePluginDirectory("") finds it.
  std::string pluginDir;
  // Log lines of the converting thread at or above this level are captured into the result
  // (and not printed); `onLog` sees each one as it is logged.
  int logLevel = AI_LOG_INFO;
  std::function<void(const LogLine&)> onLog;
  // A report built alongside the conversion, or null when none is wanted.
  Observer* report = nullptr;
};

// Which step failed.
enum class Failure {
  kNone,
  kModelFile,  // the model file cannot be read, or holds no model (`fileError` says which)
  kPlugins,    // the plug-in directory cannot be read
  kNoParser,   // no plug-in serves the framework, or none was given and none is the default
  kParse,      // the parser failed (or the JSON dump)
  kScratch,    // no temporary directory for a report or dump the caller did not place
};

struct Result {
  Status status = SUCCESS;  // the parser's status, or FAILED for a failure of the host's
  int exitCode = 0;         // as tesu-convert exits: ExitCodeFor(status), kFailure, kNotAModel
  Failure failure = Failure::kNone;
  std::string error;  // one line naming the model and what failed; empty on success
  int fileError = 0;  // with kModelFile: ENOENT, EISDIR, EACCES when one applies, else 0

  std::string modelLabel;  // the model's path, or "<bytes>"
  uint64_t modelSize = 0;  // bytes of the model as read
  FrameworkType framework = FRAMEWORK_MAX;
  std::string frameworkName;

  tov::Model model;                          // the converted model, named as the source
  std::shared_ptr<tov::ComputeGraph> graph;  // its graph; null unless converted
  OpCounts before;                           // operator counts of the source graph
  OpCounts after;                            // and of the converted graph
  nlohmann::json checkReport;                // the check report this call wrote, or null
  std::string checkReportFile;               // its file, when the caller gave a path
  std::vector<LogLine> log;                  // captured log lines, in order
  std::vector<std::string> warnings;         // names that matched nothing, plug-in failures
  std::vector<Profiler::Step> steps;         // timed steps of the converting thread
  std::string json;                          // DumpJson without a file: the JSON text

  bool Converted() const { return status == SUCCESS && graph != nullptr; }
};

// Reads the model, loads the plug-ins, runs the parser and checks the designated names against
// the converted graph. Never throws for a bad model or path; every failure is in the result.
Result Convert(const Request& request);

// Loads a model of the host's format (binary or JSON form) as it is, without a parser; `model`
// and `graph` hold it. Only the model and the log level of the request are used.
Result Load(const Request& request);

// The parser's JSON dump of the model, which the plug-in reads from the file as it is (bytes go
// through a temporary file). Written to `jsonFile`, or returned in `json` when it is empty. The
// host checks only that the path is a readable regular file that is not empty.
Result DumpJson(const Request& request, const std::string& jsonFile);

// "Foo (2), Bar (1)": the unsupported operator types the check report lists, in its order.
std::string UnsupportedTypes(const nlohmann::json& checkReport);

}  // namespace convert
}  // namespace tesu

#endif
