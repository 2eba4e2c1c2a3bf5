// Conversion, loading and the JSON dump, run as the CLI runs them: the same model reading, the
// same plug-ins and parser factory, the same option parsers and exit statuses. The GIL is
// released while the model is read and parsed; the log and the profiler are captured for the
// calling thread only, so conversions on several threads keep their lines and timings apart.
#include <pybind11/stl.h>
#include <stdlib.h>

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "check_report.h"
#include "cli_options.h"
#include "exit_status.h"
#include "framework/model_parser.h"
#include "framework/proto_io.h"
#include "graph/base_buffer.h"
#include "graph_state.h"
#include "log/log.h"
#include "model_file.h"
#include "model_summary.h"
#include "plugins.h"

namespace tesupy {
namespace {

namespace fs = std::filesystem;

struct LogLine {
  int level;
  std::string module;
  std::string text;
};

// What one call produced: a graph, or the status and message of its failure; either way the
// log lines it wrote.
struct Outcome {
  std::shared_ptr<GraphState> graph;
  int status = 0;
  std::string message;
  std::vector<LogLine> log;
  std::optional<std::string> report;  // the check report's JSON text, when one was written
  std::optional<std::string> json;    // the JSON dump

  void Fail(int exitStatus, std::string text) {
    status = exitStatus;
    message = std::move(text);
  }
};

// Captures the calling thread's log lines into the outcome, and its timed steps, for as long as
// it lives. Installed and removed on the same thread, with or without the GIL.
class Capture {
 public:
  Capture(Outcome& outcome, int threshold)
      : log_(threshold, [&outcome](int level, const std::string& module, const std::string& text) {
          outcome.log.push_back({level, module, text});
        }) {}
  std::vector<tesu::Profiler::Step> Timings() const { return profile_.Steps(); }

 private:
  tesu::log::ThreadCapture log_;
  tesu::ProfileCapture profile_;
};

// A model given as a path or as bytes. Bytes are read in place (a Python bytes object never
// changes, and the caller holds it for the whole call); a file, or the JSON form, is read into
// `owned`.
struct ModelSource {
  std::string path;
  const char* data = nullptr;
  size_t size = 0;
  // This host's model format, checked and translated from JSON; another framework's model goes
  // to its plug-in as it is.
  bool modelDef = true;
  std::string owned;
  int failure = tesu::cli::kFailure;  // the exit status of a refused file

  std::string Label() const { return path.empty() ? std::string("<bytes>") : path; }

  // Reads the file, or converts JSON bytes; called without the GIL.
  bool Materialise(std::string& error) {
    if (!path.empty()) {
      if (!tesu::cli::ReadModelFile(path, owned, error, failure, modelDef)) return false;
    } else if (modelDef && tesu::cli::IsJsonModel(data, size)) {
      owned.assign(data, size);
      if (!tesu::cli::JsonModelToBinary(owned, error)) return false;
    } else {
      return true;
    }
    data = owned.data();
    size = owned.size();
    return true;
  }
};

ModelSource SourceOf(const py::object& model) {
  ModelSource source;
  if (py::isinstance<py::bytes>(model)) {
    char* data = nullptr;
    Py_ssize_t size = 0;
    if (PyBytes_AsStringAndSize(model.ptr(), &data, &size) != 0) throw py::error_already_set();
    source.data = data;
    source.size = static_cast<size_t>(size);
  } else {
    source.path = model.cast<std::string>();
  }
  return source;
}

// Turns a flag-syntax value into parse options with the CLI's parser; a refused value raises
// ValueError naming the keyword and quoting the value.
template <typename Target>
void ParseOption(const char* keyword, const std::optional<std::string>& text,
                 std::string (*parse)(const std::string&, Target&), Target& target) {
  if (!text) return;
  const std::string reason = parse(*text, target);
  if (!reason.empty()) throw py::value_error(std::string(keyword) + ": " + reason);
}

// The plug-ins of the requested directory, loaded once; nullptr, with the failure in `outcome`,
// when the directory cannot be read.
const PluginDirectory* Plugins(const std::string& pluginDir, Outcome& outcome) {
  const PluginDirectory& plugins = LoadPluginsOnce(pluginDir);
  if (!plugins.listed) {
    outcome.Fail(tesu::cli::kFailure, plugins.error);
    return nullptr;
  }
  return &plugins;
}

std::string RegisteredList() {
  std::string list;
  for (tesu::FrameworkType type : tesu::ModelParserFactory::Instance()->RegisteredTypes()) {
    list += (list.empty() ? "" : ", ") + std::to_string(static_cast<int>(type));
  }
  return list.empty() ? "none" : list;
}

// A parser for `framework`; ValueError when no plug-in serves it.
std::shared_ptr<tesu::ModelParser> ParserFor(int framework, const PluginDirectory& plugins) {
  const auto type = static_cast<tesu::FrameworkType>(framework);
  std::shared_ptr<tesu::ModelParser> parser =
      tesu::ModelParserFactory::Instance()->CreateModelParser(type);
  if (parser == nullptr) {
    throw py::value_error("framework " + std::to_string(framework) + ": no parser in " +
                          plugins.path + " (registered: " + RegisteredList() + ")");
  }
  return parser;
}

// A directory of our own, removed with everything in it when this goes out of scope.
class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::error_code ec;
    std::string pattern = (fs::temp_directory_path(ec) / "tesu-XXXXXX").string();
    if (!ec && mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~ScratchDirectory() {
    std::error_code ec;
    if (!path_.empty()) fs::remove_all(path_, ec);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  bool Valid() const { return !path_.empty(); }
  std::string Path(const std::string& name = "") const { return (fs::path(path_) / name).string(); }

 private:
  std::string path_;
};

void Parse(tesu::ModelParser& parser, ModelSource& source, tesu::ParserOptions& options,
           const Capture& capture, Outcome& outcome) {
  std::string error;
  if (!source.Materialise(error)) {
    return outcome.Fail(source.failure, "cannot read " + source.Label() + ": " + error);
  }
  std::string modelName;
  tesu::cli::OpCounts sourceCounts;
  tesu::cli::SummarizeModel(std::string_view(source.data, source.size), modelName, sourceCounts);

  // Without a report path of the caller's, the report goes to a scratch directory and comes back
  // as text only: a conversion writes no file the caller did not ask for.
  std::optional<ScratchDirectory> scratch;
  if (options.checkReportPath.empty()) {
    scratch.emplace();
    if (!scratch->Valid()) {
      return outcome.Fail(tesu::cli::kFailure, "cannot create a temporary directory");
    }
    options.checkReportPath = scratch->Path();
  }
  const tesu::cli::CheckReportWatch report(options.checkReportPath);

  std::vector<tov::BaseBuffer> buffers{
      tov::BaseBuffer(reinterpret_cast<const uint8_t*>(source.data), source.size)};
  tov::Graph graph;
  tesu::Status status = parser.ParseFromMemory(options, buffers, graph);
  std::string().swap(source.owned);  // the graph holds everything now
  if (status == tesu::SUCCESS && tov::GraphUtils::GetComputeGraph(graph) == nullptr) {
    status = tesu::FAILED;
  }
  if (report.Written()) {
    std::string text;
    if (tesu::ReadFileBytes(report.File(), text, error)) outcome.report = std::move(text);
  }
  if (status != tesu::SUCCESS) {
    std::string message =
        "failed to convert " + source.Label() + ": status " + std::to_string(status);
    const std::string refused = tesu::cli::UnsupportedTypesOf(report.File());
    if (report.Written() && !refused.empty()) message += "; unsupported operator types: " + refused;
    return outcome.Fail(tesu::cli::ExitCodeFor(status), std::move(message));
  }
  outcome.graph = std::make_shared<GraphState>(tov::Model(modelName, graph), options.outputNodes,
                                               capture.Timings());
}

Outcome Convert(const py::object& model, const std::optional<std::string>& inputShape,
                const std::optional<std::string>& inputType,
                const std::optional<std::string>& inputFormat,
                const std::optional<std::string>& outNodes,
                const std::optional<std::string>& outputFormat, int framework,
                const std::optional<std::string>& checkReport, const std::string& pluginDir,
                int threshold) {
  tesu::ParserOptions options;
  ParseOption("input_shape", inputShape, tesu::cli::ParseInputShapes, options.inputShapes);
  ParseOption("input_type", inputType, tesu::cli::ParseInputTypes, options.inputDataTypes);
  ParseOption("input_format", inputFormat, tesu::cli::ParseInputFormats, options.inputFormats);
  ParseOption("out_nodes", outNodes, tesu::cli::ParseOutNodes, options.outputNodes);
  ParseOption("output_format", outputFormat, tesu::cli::ParseOutputFormats, options.outputFormats);
  if (checkReport) {
    if (checkReport->empty()) throw py::value_error("check_report: empty path \"\"");
    options.checkReportPath = *checkReport;
  }
  ModelSource source = SourceOf(model);
  source.modelDef = framework == tesu::FRAMEWORK_ORVANE;
  options.modelFile = source.Label();

  Outcome outcome;
  {
    const Capture capture(outcome, threshold);
    const PluginDirectory* plugins = Plugins(pluginDir, outcome);
    if (plugins == nullptr) return outcome;
    const std::shared_ptr<tesu::ModelParser> parser = ParserFor(framework, *plugins);
    py::gil_scoped_release release;
    Parse(*parser, source, options, capture, outcome);
  }
  return outcome;
}

Outcome Load(const py::object& model, int threshold) {
  ModelSource source = SourceOf(model);
  Outcome outcome;
  py::gil_scoped_release release;
  const Capture capture(outcome, threshold);
  std::string error;
  if (!source.Materialise(error)) {
    outcome.Fail(source.failure, "cannot read " + source.Label() + ": " + error);
    return outcome;
  }
  tov::Model loaded;
  const tov::graphStatus status =
      loaded.Load(reinterpret_cast<const uint8_t*>(source.data), source.size);
  if (status != tov::GRAPH_SUCCESS ||
      tov::GraphUtils::GetComputeGraph(loaded.GetGraph()) == nullptr) {
    outcome.Fail(tesu::cli::ExitCodeFor(status != tov::GRAPH_SUCCESS ? status : tesu::FAILED),
                 "cannot load " + source.Label() + ": status " + std::to_string(status));
    return outcome;
  }
  outcome.graph = std::make_shared<GraphState>(
      std::move(loaded), std::map<std::string, std::vector<int32_t>>{}, capture.Timings());
  return outcome;
}

// The plug-in's JSON dump, which reads a model file and writes a JSON file: bytes go through a
// scratch file, and the JSON comes back as text.
Outcome ToJson(const py::object& model, int framework, const std::string& pluginDir,
               int threshold) {
  const ModelSource source = SourceOf(model);
  Outcome outcome;
  const Capture capture(outcome, threshold);
  // A file is checked as the CLI checks it before the plug-in reads it, for the same statuses.
  std::string error;
  int failure = tesu::cli::kFailure;
  if (!source.path.empty() && !tesu::cli::CheckModelFile(source.path, error, failure)) {
    outcome.Fail(failure, "cannot read " + source.Label() + ": " + error);
    return outcome;
  }
  const PluginDirectory* plugins = Plugins(pluginDir, outcome);
  if (plugins == nullptr) return outcome;
  const std::shared_ptr<tesu::ModelParser> parser = ParserFor(framework, *plugins);
  py::gil_scoped_release release;
  ScratchDirectory scratch;
  if (!scratch.Valid()) {
    outcome.Fail(tesu::cli::kFailure, "cannot create a temporary directory");
    return outcome;
  }
  std::string modelFile = source.path;
  if (modelFile.empty()) {
    modelFile = scratch.Path("model.pb");
    if (tesu::WriteFileAtomically(modelFile, std::string(source.data, source.size)) !=
        tesu::SUCCESS) {
      outcome.Fail(tesu::cli::kFailure, "cannot write a temporary model file");
      return outcome;
    }
  }
  const std::string jsonFile = scratch.Path("model.json");
  const tesu::Status status = parser->ToJson(modelFile.c_str(), jsonFile.c_str());
  std::string text;
  if (status != tesu::SUCCESS) {
    outcome.Fail(tesu::cli::ExitCodeFor(status), "failed to write " + source.Label() +
                                                     " as JSON: status " + std::to_string(status));
  } else if (!tesu::ReadFileBytes(jsonFile, text, error)) {
    outcome.Fail(tesu::cli::kFailure, error);
  } else {
    outcome.json = std::move(text);
  }
  return outcome;
}

std::vector<int> Frameworks(const std::string& pluginDir) {
  Outcome outcome;
  if (Plugins(pluginDir, outcome) == nullptr) throw std::runtime_error(outcome.message);
  std::vector<int> types;
  for (tesu::FrameworkType type : tesu::ModelParserFactory::Instance()->RegisteredTypes()) {
    types.push_back(static_cast<int>(type));
  }
  return types;
}

}  // namespace

void BindConvert(py::module_& module) {
  py::class_<Outcome>(module, "_Outcome")
      .def_readonly("graph", &Outcome::graph)
      .def_readonly("status", &Outcome::status)
      .def_readonly("message", &Outcome::message)
      .def_readonly("report", &Outcome::report)
      .def_readonly("json", &Outcome::json)
      .def_property_readonly("log", [](const Outcome& outcome) {
        py::list lines;
        for (const LogLine& line : outcome.log) {
          lines.append(py::make_tuple(line.level, line.module, line.text,
                                      tesu::log::FormatLine(line.level, line.module, line.text)));
        }
        return lines;
      });
  module.def("_convert", &Convert, py::arg("model"), py::arg("input_shape"), py::arg("input_type"),
             py::arg("input_format"), py::arg("out_nodes"), py::arg("output_format"),
             py::arg("framework"), py::arg("check_report"), py::arg("plugin_dir"),
             py::arg("log_threshold"));
  module.def("_load", &Load, py::arg("model"), py::arg("log_threshold"));
  module.def("_to_json", &ToJson, py::arg("model"), py::arg("framework"), py::arg("plugin_dir"),
             py::arg("log_threshold"));
  module.def("_frameworks", &Frameworks, py::arg("plugin_dir"));
}

}  // namespace tesupy
