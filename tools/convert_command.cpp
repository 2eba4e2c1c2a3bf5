#include "convert_command.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "conversion_report.h"
#include "convert/conversion.h"
#include "convert/plugins.h"
#include "framework/output_clash.h"
#include "framework/pre_checker.h"
#include "framework/profiler.h"
#include "framework/version.h"
#include "graph/dot_writer.h"
#include "graph/graph.h"
#include "graph/model.h"
#include "output_plan.h"
#include "status.h"
#include "summary.h"

namespace tesu {
namespace cli {
namespace {

constexpr const char* kProgram = "tesu-convert: ";

// Loads the plug-ins, and tells which into `loaded` when given; false when the plug-in
// directory cannot be read.
bool LoadAllPlugins(const CliOptions& options, std::ostream& err,
                    const convert::PluginDirectory** loaded = nullptr) {
  bool loadedNow = false;
  const convert::PluginDirectory& plugins =
      convert::LoadPluginDirectory(options.pluginDir, &loadedNow);
  if (!plugins.listed) {
    err << kProgram << plugins.error << "\n";
    return false;
  }
  for (const std::string& failure : plugins.loaded.errors) {
    err << kProgram << "warning: cannot load plug-in: " << failure << "\n";
  }
  if (loaded != nullptr) *loaded = &plugins;
  return true;
}

// The conversion the options ask for; its log lines are printed as they come.
convert::Request RequestOf(const CliOptions& options, std::ostream& err) {
  convert::Request request;
  request.modelPath = options.modelFile;
  if (options.framework != kDefaultFramework) {
    request.framework = static_cast<FrameworkType>(options.framework);
  }
  request.options = options.parser;
  request.pluginDir = options.pluginDir;
  request.logLevel = options.logLevel;
  request.onLog = [&err](const convert::LogLine& line) {
    err << log::FormatLine(line.level, line.module, line.text) << "\n";
  };
  return request;
}

void PrintWarnings(const convert::Result& result, std::ostream& err) {
  for (const std::string& warning : result.warnings) {
    err << kProgram << "warning: " << warning << "\n";
  }
}

// Prints what failed: the model that could not be read (with the status a file that is no model
// gets), the missing parser, or the parser's status and the operators it refused.
void PrintFailure(const convert::Result& result, std::ostream& err) {
  err << kProgram << result.error;
  if (result.failure == convert::Failure::kModelFile && result.exitCode != kFailure) {
    err << " (status " << result.exitCode << ")";
  }
  if (result.failure == convert::Failure::kNoParser) err << " (see --list-frameworks)";
  err << "\n";
  if (result.checkReportFile.empty()) return;
  err << kProgram << "check report written to " << result.checkReportFile;
  const std::string refused = convert::UnsupportedTypes(result.checkReport);
  if (!refused.empty()) err << "; unsupported operator types: " << refused;
  err << "\n";
}

// Every file a conversion may write, the report included.
std::vector<OutputFile> AllOutputs(const CliOptions& options) {
  std::vector<OutputFile> outputs = PlannedOutputs(options);
  if (!options.reportFile.empty())
    outputs.push_back({"report", "--report", options.reportFile, {}});
  return outputs;
}

// An output must never replace the model being read.
// Refuses, before anything is read, outputs that would land on one file or on the model: one
// of them would be lost, or the model overwritten. The check report counts, since it is written
// whenever an operator is unsupported.
bool OutputsClash(const CliOptions& options, std::vector<FlaggedPath> outputs, std::ostream& err) {
  const std::string clash = FindOutputClash({"--model", options.modelFile}, outputs);
  if (clash.empty()) return false;
  err << kProgram << clash << "\n";
  return true;
}

bool OutputsClash(const CliOptions& options, std::ostream& err) {
  std::vector<FlaggedPath> outputs;
  for (const OutputFile& output : AllOutputs(options))
    outputs.push_back({output.flag, output.path});
  if (!options.parser.checkReportPath.empty()) {
    outputs.push_back({"--check_report", PreChecker::ReportFile(options.parser.checkReportPath)});
  }
  return OutputsClash(options, std::move(outputs), err);
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
    out << convert::FrameworkLabel(type) << "\n";
  }
  return 0;
}

// The version, then each plug-in found with the framework types it registered. A plug-in
// directory that cannot be read is reported but does not fail the command.
int PrintVersion(const CliOptions& options, std::ostream& out, std::ostream& err) {
  out << "tesu-convert " << TESU_VERSION << "\n";
  const convert::PluginDirectory* plugins = nullptr;
  if (!LoadAllPlugins(options, err, &plugins)) return 0;
  const PluginLoadResult& result = plugins->loaded;
  out << "plug-ins in " << plugins->path << ":" << (result.loaded.empty() ? " none" : "") << "\n";
  for (size_t i = 0; i < result.loaded.size(); ++i) {
    out << "  " << std::filesystem::path(result.loaded[i]).filename().string() << ":";
    const char* separator = " ";
    for (FrameworkType type : result.frameworks[i]) {
      out << separator << convert::FrameworkLabel(type);
      separator = ", ";
    }
    out << (result.frameworks[i].empty() ? " no parser registered\n" : "\n");
  }
  return 0;
}

int DumpJson(const CliOptions& options, std::ostream& out, std::ostream& err) {
  if (OutputsClash(options, {{"--json", options.jsonFile}}, err)) return kUsageError;
  if (!OutputPathsUsable({{"json", "--json", options.jsonFile, {}}}, err)) return kFailure;
  const convert::Result result = convert::DumpJson(RequestOf(options, err), options.jsonFile);
  PrintWarnings(result, err);
  if (!result.error.empty()) {
    PrintFailure(result, err);
    return result.exitCode;
  }
  out << "wrote json: " << options.jsonFile << "\n";
  return 0;
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

// What the command line does alongside the parser: the report reads the source graph, and the
// source graph is drawn as DOT when --dot-source asks for it, before the parse changes it.
class SourceWatch : public convert::Observer {
 public:
  SourceWatch(const CliOptions& options, report::ConversionReport& page)
      : wantsDot_(!options.dotSourceFile.empty()), page_(page) {}
  void ModelRead(std::string_view bytes, const convert::OpCounts& before) override {
    page_.ModelRead(bytes, before);
    if (!wantsDot_) return;
    ProfileScope step("source picture");
    tov::Model source;
    if (source.Load(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()) != SUCCESS) {
      return;  // the parse reports what is wrong with the model
    }
    const auto graph = tov::GraphUtils::GetComputeGraph(source.GetGraph());
    if (graph != nullptr) dot_ = tov::ToDot(*graph);
  }
  void Parsed() override { page_.Parsed(); }
  const std::string& Dot() const { return dot_; }

 private:
  bool wantsDot_;
  report::ConversionReport& page_;
  std::string dot_;
};

// Writes --report, when asked for, with the steps timed so far. Prints why it failed.
bool WriteReport(report::RunFacts facts, report::ConversionReport& page,
                 std::vector<Profiler::Step>& steps, std::ostream& err) {
  if (!page.Wanted()) return true;
  page.Wait();
  const std::vector<Profiler::Step> later = Profiler::Take();
  steps.insert(steps.end(), later.begin(), later.end());
  facts.steps = steps;
  const Status status = page.Write(facts);
  if (status != SUCCESS) {
    err << kProgram << "cannot write report " << page.Path() << ": status " << status << "\n";
  }
  return status == SUCCESS;
}

// The steps of the whole run: those the report took, then any timed since.
void PrintSteps(const CliOptions& options, std::vector<Profiler::Step>& steps, std::ostream& out) {
  if (!options.profile) return;
  const std::vector<Profiler::Step> later = Profiler::Take();
  steps.insert(steps.end(), later.begin(), later.end());
  PrintProfile(steps, out);
}

int Convert(const CliOptions& options, std::ostream& out, std::ostream& err) {
  if (OutputsClash(options, err)) return kUsageError;
  if (!OutputPathsUsable(AllOutputs(options), err)) return kFailure;
  // The report shows the same timed steps as --profile.
  if (!options.reportFile.empty()) Profiler::Enable(true);
  report::ConversionReport page(options.reportFile);
  SourceWatch source(options, page);
  convert::Request request = RequestOf(options, err);
  request.report = &source;
  const convert::Result result = convert::Convert(request);
  PrintWarnings(result, err);
  std::vector<Profiler::Step> steps = result.steps;
  if (!result.Converted()) {
    PrintFailure(result, err);
    // A model that could not be read gets no report: there is nothing to show.
    if (result.failure != convert::Failure::kModelFile) {
      page.Compare(result);
      WriteReport(report::FactsOf(result), page, steps, err);
    }
    return result.exitCode;
  }

  KeepUntilExit(result.model.GetGraph());
  // The report reads, compares and draws the converted graph while the outputs are written.
  page.Compare(result);
  Summary summary{options.modelFile, result.before, result.after, {}};
  if (!WriteOutputs(options, ConversionResult{result.model, source.Dot()}, summary, err)) {
    // The outputs written stay, so the report shows the conversion it made.
    report::RunFacts facts = report::FactsOf(result);
    facts.status = FILE_WRITE_FAILED;
    facts.exitCode = kFailure;
    facts.outcome = report::OutcomeOf(FILE_WRITE_FAILED);
    WriteReport(facts, page, steps, err);
    return kFailure;
  }
  if (!result.checkReportFile.empty()) {
    summary.written.push_back({"check report", result.checkReportFile});
  }
  if (!WriteReport(report::FactsOf(result), page, steps, err)) return kFailure;
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
