#include "convert_command.h"

#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "check_report.h"
#include "conversion_report.h"
#include "exit_status.h"
#include "framework/plugin_loader.h"
#include "framework/profiler.h"
#include "framework/proto_io.h"
#include "framework/version.h"
#include "graph/base_buffer.h"
#include "graph/dot_writer.h"
#include "graph/graph.h"
#include "graph/model.h"
#include "model_file.h"
#include "model_summary.h"
#include "output_files.h"
#include "summary.h"

namespace tesu {
namespace cli {
namespace {

constexpr const char* kProgram = "tesu-convert: ";

// A framework type as users see it: its number, then the name its plug-in registered, if any.
std::string FrameworkLabel(FrameworkType type) {
  const std::string name = ModelParserFactory::Instance()->FrameworkName(type);
  return std::to_string(static_cast<int>(type)) + (name.empty() ? "" : " " + name);
}

// Loads the plug-ins, and tells which into `loaded` when given; false when the plug-in
// directory cannot be read.
bool LoadAllPlugins(const CliOptions& options, std::ostream& err,
                    PluginLoadResult* loaded = nullptr) {
  const std::string dir = ResolvePluginDirectory(options.pluginDir);
  PluginLoadResult result;
  std::string error;
  if (!LoadPlugins(dir, result, error)) {
    err << kProgram << error << "\n";
    return false;
  }
  for (const std::string& failure : result.errors) {
    err << kProgram << "warning: cannot load plug-in: " << failure << "\n";
  }
  if (loaded != nullptr) *loaded = std::move(result);
  return true;
}

std::shared_ptr<ModelParser> ObtainParser(const CliOptions& options, std::ostream& err) {
  if (!LoadAllPlugins(options, err)) return nullptr;
  const auto type = static_cast<FrameworkType>(options.framework);
  std::shared_ptr<ModelParser> parser = ModelParserFactory::Instance()->CreateModelParser(type);
  if (parser == nullptr) {
    err << kProgram << "no parser for framework " << options.framework << " in "
        << ResolvePluginDirectory(options.pluginDir) << " (see --list-frameworks)\n";
  }
  return parser;
}

// Prints why the model file was refused before any parser saw it; returns the exit status. A
// file that holds no model names the status, as a parser's refusal does.
int ModelRefused(const std::string& file, const std::string& error, int failure,
                 std::ostream& err) {
  err << kProgram << "cannot read " << file << ": " << error;
  if (failure != kFailure) err << " (status " << failure << ")";
  err << "\n";
  return failure;
}

// Every file a conversion may write, the report included.
std::vector<OutputFile> AllOutputs(const CliOptions& options) {
  std::vector<OutputFile> outputs = PlannedOutputs(options);
  if (!options.reportFile.empty())
    outputs.push_back({"report", "--report", options.reportFile, {}});
  return outputs;
}

// An output must never replace the model being read.
bool WouldOverwriteInput(const CliOptions& options, std::ostream& err) {
  for (const OutputFile& output : AllOutputs(options)) {
    std::error_code ec;
    if (std::filesystem::equivalent(options.modelFile, output.path, ec) && !ec) {
      err << kProgram << output.flag << " " << output.path << " would overwrite the input model\n";
      return true;
    }
  }
  return false;
}

// Each output must be able to exist: its path names no directory and its directory exists.
// Checked before anything is read, so a mistyped path does not cost a whole conversion.
bool OutputPathsUsable(const std::vector<OutputFile>& outputs, std::ostream& err) {
  namespace fs = std::filesystem;
  for (const OutputFile& output : outputs) {
    const fs::path path(output.path);
    std::error_code ec;
    std::string problem;
    if (!path.has_filename() || fs::is_directory(path, ec)) {
      problem = "names a directory, not a file";
    } else {
      const fs::path dir = path.has_parent_path() ? path.parent_path() : fs::path(".");
      const fs::file_status status = fs::status(dir, ec);
      if (!fs::exists(status)) {
        problem = "is in directory " + dir.string() + ", which does not exist";
      } else if (!fs::is_directory(status)) {
        problem = "is in " + dir.string() + ", which is not a directory";
      }
    }
    if (!problem.empty()) {
      err << kProgram << "cannot write " << output.what << " " << output.path << ": it " << problem
          << "\n";
      return false;
    }
  }
  return true;
}

int ListFrameworks(const CliOptions& options, std::ostream& out, std::ostream& err) {
  if (!LoadAllPlugins(options, err)) return kFailure;
  for (FrameworkType type : ModelParserFactory::Instance()->RegisteredTypes()) {
    out << FrameworkLabel(type) << "\n";
  }
  return 0;
}

// The version, then each plug-in found with the framework types it registered. A plug-in
// directory that cannot be read is reported but does not fail the command.
int PrintVersion(const CliOptions& options, std::ostream& out, std::ostream& err) {
  out << "tesu-convert " << TESU_VERSION << "\n";
  const std::string dir = ResolvePluginDirectory(options.pluginDir);
  PluginLoadResult result;
  if (!LoadAllPlugins(options, err, &result)) return 0;
  out << "plug-ins in " << dir << ":" << (result.loaded.empty() ? " none" : "") << "\n";
  for (size_t i = 0; i < result.loaded.size(); ++i) {
    out << "  " << std::filesystem::path(result.loaded[i]).filename().string() << ":";
    const char* separator = " ";
    for (FrameworkType type : result.frameworks[i]) {
      out << separator << FrameworkLabel(type);
      separator = ", ";
    }
    out << (result.frameworks[i].empty() ? " no parser registered\n" : "\n");
  }
  return 0;
}

int DumpJson(const CliOptions& options, std::ostream& out, std::ostream& err) {
  std::error_code ec;
  if (std::filesystem::equivalent(options.modelFile, options.jsonFile, ec) && !ec) {
    err << kProgram << "--json " << options.jsonFile << " would overwrite the input model\n";
    return kUsageError;
  }
  std::string error;
  int failure = kFailure;
  if (!CheckModelFile(options.modelFile, error, failure)) {
    return ModelRefused(options.modelFile, error, failure, err);
  }
  if (!OutputPathsUsable({{"json", "--json", options.jsonFile, {}}}, err)) return kFailure;
  std::shared_ptr<ModelParser> parser = ObtainParser(options, err);
  if (parser == nullptr) return kFailure;
  const Status status = parser->ToJson(options.modelFile.c_str(), options.jsonFile.c_str());
  if (status != SUCCESS) {
    err << kProgram << "failed to write " << options.modelFile << " as JSON: status " << status
        << "\n";
    return ExitCodeFor(status);
  }
  out << "wrote json: " << options.jsonFile << "\n";
  return 0;
}

void ReportParseFailure(const CliOptions& options, Status status, const CheckReportWatch& report,
                        std::ostream& err) {
  err << kProgram << "failed to convert " << options.modelFile << ": status " << status << "\n";
  if (!report.Written()) return;
  err << kProgram << "check report written to " << report.File();
  const std::string refused = UnsupportedTypesOf(report.File());
  if (!refused.empty()) err << "; unsupported operator types: " << refused;
  err << "\n";
}

// Writes every planned output; on a failure the outputs already written stay, each whole.
bool WriteOutputs(const CliOptions& options, const ConversionResult& result, Summary& summary,
                  std::ostream& err) {
  for (const OutputFile& output : PlannedOutputs(options)) {
    const std::string step = "write " + output.what;
    ProfileScope timer(step.c_str());
    const Status status = output.write(result, output.path);
    if (status != SUCCESS) {
      err << kProgram << "cannot write " << output.what << " " << output.path << ": status "
          << status << "\n";
      return false;
    }
    summary.written.push_back({output.what, output.path});
  }
  return true;
}

// The process is about to exit: freeing a large graph node by node would only cost time, so the
// converted graph is kept (reachable, not leaked) until the process ends.
void KeepUntilExit(const tov::Graph& graph) {
  static auto* kept = new std::vector<tov::Graph>();
  kept->push_back(graph);
}

// The source graph as DOT, when --dot-source asks for it; built before the parse changes it.
std::string SourcePicture(const CliOptions& options, const std::string& bytes) {
  if (options.dotSourceFile.empty()) return std::string();
  ProfileScope step("source picture");
  tov::Model source;
  if (source.Load(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()) != SUCCESS) {
    return std::string();  // the parse reports what is wrong with the model
  }
  const auto graph = tov::GraphUtils::GetComputeGraph(source.GetGraph());
  return graph == nullptr ? std::string() : tov::ToDot(*graph);
}

// What a status means, for the report's reader.
std::string OutcomeOf(Status status) {
  std::string meaning;
  if (status == FAILED) {
    meaning = "the parser refused the model";
  } else if (status == 3) {
    meaning = "a converter refused a node's weights or inputs";
  } else if (status >= 10 && status <= 13) {
    meaning = "the graph library refused the model";
  } else if (status == FILE_WRITE_FAILED) {
    meaning = "a file could not be written";
  }
  return "status " + std::to_string(status) + (meaning.empty() ? "" : ": " + meaning);
}

// The run as the report shows it; the graphs come separately.
struct ReportRun {
  Status status;
  int exitCode;
  std::string outcome;
  const OpCounts& before;
  const OpCounts* after;  // null when the conversion failed
};

// Writes --report, when asked for, with the steps timed so far. Prints why it failed.
bool WriteReport(const CliOptions& options, const ReportRun& run, report::ConversionReport& page,
                 std::vector<Profiler::Step>& steps, std::ostream& err) {
  if (!page.Wanted()) return true;
  page.Wait();
  const std::vector<Profiler::Step> earlier = Profiler::Take();
  steps.insert(steps.end(), earlier.begin(), earlier.end());
  report::RunFacts facts;
  facts.modelFile = options.modelFile;
  std::error_code ec;
  facts.modelSize = std::filesystem::file_size(options.modelFile, ec);
  facts.framework = options.framework;
  facts.frameworkName =
      ModelParserFactory::Instance()->FrameworkName(static_cast<FrameworkType>(options.framework));
  facts.status = run.status;
  facts.exitCode = run.exitCode;
  facts.outcome = run.outcome;
  facts.opsBefore = run.before;
  if (run.after != nullptr) facts.opsAfter = *run.after;
  facts.steps = steps;
  const Status status = page.Write(facts);
  if (status != SUCCESS) {
    err << kProgram << "cannot write report " << page.Path() << ": status " << status << "\n";
  }
  return status == SUCCESS;
}

// The check report this run wrote, for the HTML report; null when it wrote none.
nlohmann::json CheckReportOf(const CheckReportWatch& checks) {
  return checks.Written() ? ReadCheckReport(checks.File()) : nlohmann::json();
}

// The steps of the whole run: those the report took, then any timed since.
void PrintSteps(const CliOptions& options, std::vector<Profiler::Step>& steps, std::ostream& out) {
  if (!options.profile) return;
  const std::vector<Profiler::Step> later = Profiler::Take();
  steps.insert(steps.end(), later.begin(), later.end());
  PrintProfile(steps, out);
}

int Convert(const CliOptions& options, std::ostream& out, std::ostream& err) {
  if (WouldOverwriteInput(options, err)) return kUsageError;
  if (!OutputPathsUsable(AllOutputs(options), err)) return kFailure;
  // The report shows the same timed steps as --profile.
  if (!options.reportFile.empty()) Profiler::Enable(true);
  std::vector<Profiler::Step> steps;
  std::string bytes;
  std::string error;
  {
    ProfileScope step("read model");
    int failure = kFailure;
    // Only this host's own model format is checked and translated from JSON here; a file for
    // another framework goes to its plug-in as it is.
    const bool modelDef = options.framework == FRAMEWORK_ORVANE;
    if (!ReadModelFile(options.modelFile, bytes, error, failure, modelDef)) {
      return ModelRefused(options.modelFile, error, failure, err);
    }
  }
  Summary summary{options.modelFile, {}, {}, {}};
  std::string modelName;
  {
    ProfileScope step("count source operators");
    SummarizeModel(bytes, modelName, summary.before);
  }
  // The parser and the report's reading of the source graph share the bytes; both only read.
  report::ConversionReport page(options.reportFile);
  page.ReadSource(bytes, TotalOps(summary.before));
  const CheckReportWatch report(options.parser.checkReportPath);
  std::shared_ptr<ModelParser> parser = ObtainParser(options, err);
  if (parser == nullptr) {
    const ReportRun run{FAILED, kFailure,
                        "no parser for framework " + std::to_string(options.framework),
                        summary.before, nullptr};
    WriteReport(options, run, page, steps, err);
    return kFailure;
  }
  const std::string sourceDot = SourcePicture(options, bytes);

  ParserOptions parserOptions = options.parser;
  std::vector<tov::BaseBuffer> buffers{
      tov::BaseBuffer(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size())};
  tov::Graph graph;
  const Status status = parser->ParseFromMemory(parserOptions, buffers, graph);
  page.SourceRead();
  std::string().swap(bytes);  // the graph holds everything now; give the memory back
  const auto computeGraph = tov::GraphUtils::GetComputeGraph(graph);
  if (status != SUCCESS || computeGraph == nullptr) {
    const Status failure = status != SUCCESS ? status : FAILED;
    ReportParseFailure(options, failure, report, err);
    const ReportRun run{failure, ExitCodeFor(failure), OutcomeOf(failure), summary.before, nullptr};
    page.Compare(nullptr, CheckReportOf(report));
    WriteReport(options, run, page, steps, err);
    return ExitCodeFor(failure);
  }

  KeepUntilExit(graph);
  // The report reads, compares and draws the converted graph while the outputs are written.
  page.Compare(computeGraph.get(), CheckReportOf(report));
  const tov::Model converted(modelName, graph);
  summary.after = CountOps(*computeGraph);
  if (!WriteOutputs(options, ConversionResult{converted, sourceDot}, summary, err)) {
    // The outputs written stay, so the report shows the conversion it made.
    const ReportRun run{FILE_WRITE_FAILED, kFailure, OutcomeOf(FILE_WRITE_FAILED), summary.before,
                        &summary.after};
    WriteReport(options, run, page, steps, err);
    return kFailure;
  }
  if (report.Written()) summary.written.push_back({"check report", report.File()});
  const ReportRun run{SUCCESS, 0, "converted", summary.before, &summary.after};
  if (!WriteReport(options, run, page, steps, err)) {
    return kFailure;
  }
  if (!options.reportFile.empty()) summary.written.push_back({"report", options.reportFile});
  PrintSummary(summary, out);
  PrintSteps(options, steps, out);
  return 0;
}

}  // namespace

int Run(const CliOptions& options, std::ostream& out, std::ostream& err) {
  if (options.version) return PrintVersion(options, out, err);
  if (options.listFrameworks) return ListFrameworks(options, out, err);
  if (options.toJson) return DumpJson(options, out, err);
  return Convert(options, out, err);
}

}  // namespace cli
}  // namespace tesu
