#include "convert/conversion.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <utility>

#include "check_report.h"
#include "convert/designations.h"
#include "convert/plugins.h"
#include "framework/input_file.h"
#include "framework/proto_io.h"
#include "graph/base_buffer.h"
#include "graph/model_limits.h"
#include "model_file.h"
#include "model_summary.h"
#include "summary.h"

namespace tesu {
namespace convert {
namespace {

namespace fs = std::filesystem;

// Captures the calling thread's log lines and timed steps into the result for as long as it
// lives; the steps are handed over when it ends.
class Capture {
 public:
  Capture(const Request& request, Result& result)
      : result_(result),
        log_(request.logLevel,
             [&request, &result](int level, const std::string& module, const std::string& text) {
               result.log.push_back({level, module, text});
               if (request.onLog) request.onLog(result.log.back());
             }) {}
  ~Capture() { result_.steps = profile_.Steps(); }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

 private:
  Result& result_;
  log::ThreadCapture log_;
  ProfileCapture profile_;
};

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

void Fail(Result& result, Failure failure, int exitCode, std::string error) {
  result.failure = failure;
  result.exitCode = exitCode;
  if (result.status == SUCCESS) result.status = FAILED;
  result.error = std::move(error);
}

// The error number a path's failure corresponds to, for front ends whose errors carry one.
int FileErrorOf(const std::string& path) {
  struct stat info {};
  if (stat(path.c_str(), &info) != 0) return errno;
  if (S_ISDIR(info.st_mode)) return EISDIR;
  if (access(path.c_str(), R_OK) != 0) return errno == EACCES ? EACCES : 0;
  return 0;
}

void FailModelFile(Result& result, int exitCode, const std::string& error, const Request& request) {
  Fail(result, Failure::kModelFile, exitCode, "cannot read " + result.modelLabel + ": " + error);
  if (!request.modelBytes) result.fileError = FileErrorOf(request.modelPath);
}

// The parser for the request's framework, after loading the plug-ins; null, with the failure in
// the result, when there is none.
std::shared_ptr<ModelParser> ObtainParser(const Request& request, Result& result) {
  bool loadedNow = false;
  const PluginDirectory& plugins = LoadPluginDirectory(request.pluginDir, &loadedNow);
  if (!plugins.listed) {
    Fail(result, Failure::kPlugins, kFailure, plugins.error);
    return nullptr;
  }
  if (loadedNow) {
    for (const std::string& failure : plugins.loaded.errors) {
      result.warnings.push_back("cannot load plug-in: " + failure);
    }
  }
  std::string error;
  const std::optional<FrameworkType> type = ChooseFramework(request.framework, plugins, error);
  if (!type) {
    Fail(result, Failure::kNoParser, kFailure, error);
    return nullptr;
  }
  result.framework = *type;
  result.frameworkName = ModelParserFactory::Instance()->FrameworkName(*type);
  std::shared_ptr<ModelParser> parser = ModelParserFactory::Instance()->CreateModelParser(*type);
  if (parser == nullptr) {
    Fail(result, Failure::kNoParser, kFailure,
         "no parser for framework " + std::to_string(static_cast<int>(*type)) + " in " +
             plugins.path);
  }
  return parser;
}

// The model's bytes as the parser takes them: read from the file, or the caller's, and for a
// parser of the host's model format checked and turned from the JSON form into the binary one.
// A model file is mapped, not read, so the graph's tensors refer to its bytes.
bool ReadModel(const Request& request, bool hostModel, cli::ModelBytes& mapped, std::string& owned,
               std::string_view& bytes, Result& result) {
  ProfileScope step("read model");
  std::string error;
  int failure = kFailure;
  if (!request.modelBytes) {
    if (!cli::ReadModelFile(request.modelPath, mapped, error, failure, hostModel)) {
      FailModelFile(result, failure, error, request);
      return false;
    }
    std::error_code ec;
    result.modelSize = fs::file_size(request.modelPath, ec);
    bytes = mapped;
    return true;
  }
  bytes = *request.modelBytes;
  result.modelSize = bytes.size();
  if (!hostModel || !cli::IsJsonModel(bytes.data(), bytes.size())) return true;
  owned.assign(bytes.data(), bytes.size());
  if (!cli::JsonModelToBinary(owned, error)) {
    FailModelFile(result, kFailure, error, request);
    return false;
  }
  bytes = owned;
  return true;
}

// The buffer a parser or the graph library loads: a mapped file carries its mapping, so that
// tensors refer to it; the caller's bytes are handed over as they are.
tov::BaseBuffer BufferOf(const Request& request, const cli::ModelBytes& mapped,
                         std::string_view bytes) {
  return request.modelBytes
             ? tov::BaseBuffer(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size())
             : mapped.Buffer();
}

// Runs the parser on the bytes; the report, when there is one, reads them meanwhile.
Status Parse(const Request& request, ModelParser& parser, ParserOptions& options,
             const cli::ModelBytes& mapped, std::string_view bytes, const OpCounts& before,
             tov::Graph& graph) {
  if (request.report != nullptr) request.report->ModelRead(bytes, before);
  std::vector<tov::BaseBuffer> buffers{BufferOf(request, mapped, bytes)};
  const Status status = parser.ParseFromMemory(options, buffers, graph);
  if (request.report != nullptr) request.report->Parsed();
  return status;
}

}  // namespace

Result Convert(const Request& request) {
  Result result;
  Capture capture(request, result);
  result.modelLabel = request.modelBytes ? std::string("<bytes>") : request.modelPath;
  const std::shared_ptr<ModelParser> parser = ObtainParser(request, result);
  if (parser == nullptr) return result;
  const bool hostModel =
      ModelParserFactory::Instance()->InputOf(result.framework) == ModelInput::kHostModel;
  cli::ModelBytes mapped;
  std::string owned;
  std::string_view bytes;
  if (!ReadModel(request, hostModel, mapped, owned, bytes, result)) return result;
  std::string modelName;
  {
    ProfileScope step("count source operators");
    cli::SummarizeModel(bytes, modelName, result.before);
  }

  // Without a report path of the caller's, the check report goes to a scratch directory and
  // comes back in the result only: a conversion writes no file the caller did not ask for.
  ParserOptions options = request.options;
  options.modelFile = result.modelLabel;
  std::optional<ScratchDirectory> scratch;
  if (options.checkReportPath.empty()) {
    scratch.emplace();
    if (!scratch->Valid()) {
      Fail(result, Failure::kScratch, kFailure, "cannot create a temporary directory");
      return result;
    }
    options.checkReportPath = scratch->Path();
  }
  const CheckReportWatch report(options.checkReportPath);
  tov::Graph graph;
  Status status = Parse(request, *parser, options, mapped, bytes, result.before, graph);
  // The graph holds what it needs of the bytes now; give the rest back.
  std::string().swap(owned);
  mapped.Release();
  if (report.Written()) {
    result.checkReport = ReadCheckReport(report.File());
    if (!scratch) result.checkReportFile = report.File();
  }
  const auto computeGraph = tov::GraphUtils::GetComputeGraph(graph);
  if (status == SUCCESS && computeGraph == nullptr) status = FAILED;
  if (status != SUCCESS) {
    result.status = status;
    Fail(result, Failure::kParse, ExitCodeFor(status),
         "failed to convert " + result.modelLabel + ": status " + std::to_string(status));
    return result;
  }
  result.graph = computeGraph;
  result.model = tov::Model(modelName, graph);
  result.after = cli::CountOps(*computeGraph);
  for (std::string& line : UnmatchedDesignations(options, *computeGraph)) {
    result.warnings.push_back(std::move(line));
  }
  return result;
}

Result Load(const Request& request) {
  Result result;
  Capture capture(request, result);
  result.modelLabel = request.modelBytes ? std::string("<bytes>") : request.modelPath;
  cli::ModelBytes mapped;
  std::string owned;
  std::string_view bytes;
  if (!ReadModel(request, true, mapped, owned, bytes, result)) return result;
  const tov::BaseBuffer buffer = BufferOf(request, mapped, bytes);
  const tov::graphStatus status = result.model.Load(buffer.data(), buffer.size());
  result.graph = tov::GraphUtils::GetComputeGraph(result.model.GetGraph());
  if (status != tov::GRAPH_SUCCESS || result.graph == nullptr) {
    result.status = status != tov::GRAPH_SUCCESS ? status : FAILED;
    result.graph.reset();
    Fail(result, Failure::kParse, ExitCodeFor(result.status),
         "cannot load " + result.modelLabel + ": status " + std::to_string(status));
  }
  return result;
}

Result DumpJson(const Request& request, const std::string& jsonFile) {
  Result result;
  Capture capture(request, result);
  result.modelLabel = request.modelBytes ? std::string("<bytes>") : request.modelPath;
  const std::shared_ptr<ModelParser> parser = ObtainParser(request, result);
  if (parser == nullptr) return result;
  ScratchDirectory scratch;
  const bool needsScratch = request.modelBytes || jsonFile.empty();
  if (needsScratch && !scratch.Valid()) {
    Fail(result, Failure::kScratch, kFailure, "cannot create a temporary directory");
    return result;
  }
  std::string modelFile = request.modelPath;
  std::string error;
  if (request.modelBytes) {
    modelFile = scratch.Path("model.pb");
    if (WriteFileAtomically(modelFile, std::string(*request.modelBytes)) != SUCCESS) {
      Fail(result, Failure::kScratch, kFailure, "cannot write a temporary model file");
      return result;
    }
  } else {
    // Only what any parser needs of a path is checked: the plug-in judges the content.
    InputFile file;
    const bool opened = file.Open(modelFile, tov::kMaxModelBytes, error);
    if (!opened || file.Size() == 0) {
      FailModelFile(result, kFailure, opened ? "the file is empty" : error, request);
      return result;
    }
    result.modelSize = file.Size();
  }
  const std::string target = jsonFile.empty() ? scratch.Path("model.json") : jsonFile;
  const Status status = parser->ToJson(modelFile.c_str(), target.c_str());
  if (status != SUCCESS) {
    result.status = status;
    Fail(result, Failure::kParse, ExitCodeFor(status),
         "failed to write " + result.modelLabel + " as JSON: status " + std::to_string(status));
  } else if (jsonFile.empty() && !ReadFileBytes(target, result.json, error)) {
    Fail(result, Failure::kScratch, kFailure, error);
  }
  return result;
}

}  // namespace convert
}  // namespace tesu
