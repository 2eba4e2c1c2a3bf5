// Conversion, loading and the JSON dump through the conversion library: a request is filled from
// Python values and the library's result is handed back as it is. The GIL is released while the
// model is read and parsed; the library captures the log and the timed steps of the calling
// thread only, so conversions on several threads keep their lines and timings apart.
#include <pybind11/stl.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "convert/conversion.h"
#include "convert/option_values.h"
#include "convert/plugins.h"
#include "graph_state.h"
#include "log/log.h"
#include "plugins.h"
#include "status.h"

namespace tesupy {
namespace {

namespace convert = tesu::convert;

// Text that may hold any bytes (a path, a node name): undecodable bytes are kept as surrogate
// escapes, as os.fsdecode keeps them.
py::str Text(const std::string& text) {
  PyObject* decoded =
      PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogateescape");
  if (decoded == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(decoded);
}

void Refuse(const char* keyword, const std::string& reason) {
  if (!reason.empty()) throw py::value_error(std::string(keyword) + ": " + reason);
}

// A request as Python fills it: paths come as bytes (os.fsencode), names and values as Python
// gives them, each value checked by the library as it is set.
struct PyRequest {
  convert::Request request;
  std::string pluginDir;  // as the caller gave it; resolved when the request runs

  void SetInputShape(const std::string& name, const std::vector<int64_t>& dims) {
    Refuse("input_shape", convert::CheckShape(name, dims));
    request.options.inputShapes[name] = dims;
  }
  void SetInputType(const std::string& name, const std::string& value) {
    tov::DataType type = tov::DT_UNDEFINED;
    const std::string reason = convert::ParseDataType(value, type);
    Refuse("input_type", reason.empty() ? reason : reason + " for " + convert::Quote(name));
    request.options.inputDataTypes[name] = {type, true};
  }
  void SetInputFormat(const std::string& name, const std::string& value) {
    tov::Format format = tov::FORMAT_RESERVED;
    const std::string reason = convert::ParseFormat(value, format);
    Refuse("input_format", reason.empty() ? reason : reason + " for " + convert::Quote(name));
    request.options.inputFormats[name] = format;
  }
  void AddOutNode(const std::string& name, int64_t index) {
    Refuse("out_nodes", convert::CheckOutputIndex(name, index));
    request.options.outputNodes[name].push_back(static_cast<int32_t>(index));
  }
  void AddOutputFormat(const std::string& value) {
    tesu::TrelTensorFormat format = tesu::TREL_FORMAT_RESERVED;
    Refuse("output_format", convert::ParseOutputFormat(value, format));
    request.options.outputFormats.push_back(format);
  }
};

// What one call produced: the library's result, and the graph as Python sees it.
struct Outcome {
  convert::Result result;
  std::shared_ptr<GraphState> graph;
};

// Runs `step` on the request without the GIL; `model` is the model's bytes, or None when the
// request names a file. The bytes object is held by the caller for the whole call.
template <typename Step>
Outcome Run(PyRequest& py, const py::object& model, Step step) {
  convert::Request& request = py.request;
  if (!model.is_none()) {
    char* data = nullptr;
    Py_ssize_t size = 0;
    if (PyBytes_AsStringAndSize(model.ptr(), &data, &size) != 0) throw py::error_already_set();
    request.modelBytes = std::string_view(data, static_cast<size_t>(size));
  }
  request.pluginDir = PluginDirectoryFor(py.pluginDir);
  Outcome outcome;
  {
    py::gil_scoped_release release;
    outcome.result = step(request);
  }
  request.modelBytes.reset();
  const convert::Result& result = outcome.result;
  if (result.graph != nullptr && result.error.empty()) {
    outcome.graph =
        std::make_shared<GraphState>(result.model, request.options.outputNodes, result.steps);
    if (!result.checkReport.is_null()) outcome.graph->checkReport = result.checkReport.dump();
  }
  return outcome;
}

const char* FailureName(convert::Failure failure) {
  switch (failure) {
    case convert::Failure::kNone:
      return "";
    case convert::Failure::kModelFile:
      return "model_file";
    case convert::Failure::kPlugins:
      return "plugins";
    case convert::Failure::kNoParser:
      return "no_parser";
    case convert::Failure::kParse:
      return "parse";
    case convert::Failure::kScratch:
      return "scratch";
  }
  return "";
}

std::vector<int> RegisteredTypes() {
  std::vector<int> types;
  for (tesu::FrameworkType type : tesu::ModelParserFactory::Instance()->RegisteredTypes()) {
    types.push_back(static_cast<int>(type));
  }
  return types;
}

// The framework types of the plug-ins in `pluginDir`, or the reason the directory could not be
// read.
py::tuple Frameworks(const std::string& pluginDir) {
  const convert::PluginDirectory& plugins =
      convert::LoadPluginDirectory(PluginDirectoryFor(pluginDir));
  if (!plugins.listed) return py::make_tuple(py::none(), Text(plugins.error));
  return py::make_tuple(RegisteredTypes(), plugins.path);
}

void BindRequest(py::module_& module) {
  py::class_<PyRequest>(module, "_Request")
      .def(py::init<>())
      .def_property(
          "model_path", [](const PyRequest& r) { return py::bytes(r.request.modelPath); },
          [](PyRequest& r, const py::bytes& path) { r.request.modelPath = path; })
      .def_property(
          "framework",
          [](const PyRequest& r) -> std::optional<int> {
            if (!r.request.framework) return std::nullopt;
            return static_cast<int>(*r.request.framework);
          },
          [](PyRequest& r, std::optional<int> type) {
            if (type) {
              r.request.framework = static_cast<tesu::FrameworkType>(*type);
            } else {
              r.request.framework.reset();
            }
          })
      .def_property(
          "check_report",
          [](const PyRequest& r) { return py::bytes(r.request.options.checkReportPath); },
          [](PyRequest& r, const py::bytes& path) { r.request.options.checkReportPath = path; })
      .def_property(
          "save_check_report", [](const PyRequest& r) { return r.request.options.saveCheckReport; },
          [](PyRequest& r, bool save) { r.request.options.saveCheckReport = save; })
      .def_property(
          "plugin_dir", [](const PyRequest& r) { return py::bytes(r.pluginDir); },
          [](PyRequest& r, const py::bytes& dir) { r.pluginDir = dir; })
      .def_property(
          "log_level", [](const PyRequest& r) { return r.request.logLevel; },
          [](PyRequest& r, int level) { r.request.logLevel = level; })
      .def("set_input_shape", &PyRequest::SetInputShape)
      .def("set_input_type", &PyRequest::SetInputType)
      .def("set_input_format", &PyRequest::SetInputFormat)
      .def("add_out_node", &PyRequest::AddOutNode)
      .def("add_output_format", &PyRequest::AddOutputFormat);
}

void BindResult(py::module_& module) {
  py::class_<Outcome>(module, "_Result")
      .def_readonly("graph", &Outcome::graph)
      .def_property_readonly("status", [](const Outcome& o) { return o.result.status; })
      .def_property_readonly("exit_code", [](const Outcome& o) { return o.result.exitCode; })
      .def_property_readonly("failure",
                             [](const Outcome& o) { return FailureName(o.result.failure); })
      .def_property_readonly("error", [](const Outcome& o) { return Text(o.result.error); })
      .def_property_readonly("file_error", [](const Outcome& o) { return o.result.fileError; })
      .def_property_readonly("model", [](const Outcome& o) { return Text(o.result.modelLabel); })
      .def_property_readonly("check_report",
                             [](const Outcome& o) -> std::optional<std::string> {
                               if (o.result.checkReport.is_null()) return std::nullopt;
                               return o.result.checkReport.dump();
                             })
      .def_property_readonly(
          "unsupported_types",
          [](const Outcome& o) { return Text(convert::UnsupportedTypes(o.result.checkReport)); })
      .def_property_readonly("json", [](const Outcome& o) { return o.result.json; })
      .def_property_readonly("registered", [](const Outcome&) { return RegisteredTypes(); })
      .def_property_readonly("warnings",
                             [](const Outcome& o) {
                               py::list lines;
                               for (const std::string& line : o.result.warnings) {
                                 lines.append(Text(line));
                               }
                               return lines;
                             })
      .def_property_readonly("log", [](const Outcome& o) {
        py::list lines;
        for (const convert::LogLine& line : o.result.log) {
          lines.append(
              py::make_tuple(line.level, Text(line.module), Text(line.text),
                             Text(tesu::log::FormatLine(line.level, line.module, line.text))));
        }
        return lines;
      });
}

}  // namespace

void BindConvert(py::module_& module) {
  BindRequest(module);
  BindResult(module);
  module.def(
      "_convert",
      [](PyRequest& request, const py::object& model) {
        return Run(request, model, [](const convert::Request& r) { return convert::Convert(r); });
      },
      py::arg("request"), py::arg("model"));
  module.def(
      "_load",
      [](PyRequest& request, const py::object& model) {
        return Run(request, model, [](const convert::Request& r) { return convert::Load(r); });
      },
      py::arg("request"), py::arg("model"));
  module.def(
      "_to_json",
      [](PyRequest& request, const py::object& model) {
        return Run(request, model,
                   [](const convert::Request& r) { return convert::DumpJson(r, std::string()); });
      },
      py::arg("request"), py::arg("model"));
  module.def(
      "_frameworks", [](const py::bytes& dir) { return Frameworks(dir); }, py::arg("plugin_dir"));
  module.def("_exit_statuses", [] {
    py::list statuses;
    for (const tesu::ExitStatusName& status : tesu::kExitStatusNames) {
      statuses.append(py::make_tuple(status.code, status.name, status.meaning));
    }
    return statuses;
  });
  // The check report of a successful conversion asked for with save_check_report.
  py::reinterpret_borrow<py::class_<GraphState, std::shared_ptr<GraphState>>>(module.attr("Graph"))
      .def_property_readonly(
          "check_report",
          [](const GraphState& graph) -> py::object {
            if (graph.checkReport.empty()) return py::none();
            return py::module_::import("json").attr("loads")(graph.checkReport);
          },
          "The operator support report as a dict, when the conversion wrote one "
          "(save_check_report=True), else None.");
}

}  // namespace tesupy
