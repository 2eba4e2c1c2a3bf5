#ifndef TESU_FRAMEWORK_MODEL_PARSER_H
#define TESU_FRAMEWORK_MODEL_PARSER_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "graph/base_buffer.h"
#include "graph/compute_graph.h"
#include "graph/graph.h"
#include "graph/types.h"
#include "status.h"

namespace tesu {

// Source frameworks a parser can be registered for. Only the values that plug-ins of this host
// use are named; the host itself decides nothing by a framework's number, only by what its
// plug-in declared when it registered (ModelInput).
enum FrameworkType : int32_t {
  FRAMEWORK_ORVANE = 6,
  FRAMEWORK_MAX = 64,
};

// What a parser reads, as its plug-in declares when it registers.
enum class ModelInput : int32_t {
  // A format of the plug-in's own: the host hands the model file's bytes over as they are, and
  // ToJson the file as it is.
  kOwnFormat = 0,
  // The host's model format, a serialised ModelDef: the host checks a file's framing before the
  // parser sees it and turns the model's JSON form into the binary form.
  kHostModel = 1,
};

// Tensor formats the host uses for graph outputs.
enum TrelTensorFormat : int32_t {
  TREL_FORMAT_NCHW = 0,
  TREL_FORMAT_NHWC = 1,
  TREL_FORMAT_ND = 2,
  TREL_FORMAT_NC1HWC0 = 3,
  TREL_FORMAT_RESERVED = 4,
};

// Parse options. The host fills them; parsers only read them.
struct ParserOptions {
  std::map<std::string, std::vector<int32_t>> outputNodes;
  std::unordered_map<std::string, std::pair<tov::DataType, bool>> inputDataTypes;
  std::vector<TrelTensorFormat> outputFormats;
  std::string checkReportPath;
  bool saveCheckReport = false;
  std::unordered_map<std::string, tov::Format> inputFormats;
  std::unordered_map<std::string, std::vector<int64_t>> inputShapes;
  // Host-only members follow; parsers do not read them.
  std::string modelFile;
};

// A model parser for one source framework.
class ModelParser {
 public:
  ModelParser() = default;
  virtual ~ModelParser() = default;

  virtual Status Parse(const char* modelFile, std::shared_ptr<tov::ComputeGraph> graph) {
    (void)modelFile;
    (void)graph;
    return SUCCESS;
  }
  // The two raw-data overloads keep their slots for hosts that call them, but a parser
  // overrides only the options-and-buffers overload below. A parser that does so hides these two
  // by name, as intended, so -Woverloaded-virtual is kept quiet about them here rather than in
  // every plug-in (GCC reports a hidden function at its own declaration).
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Woverloaded-virtual"
  virtual Status ParseFromMemory(const char* data, uint32_t size,
                                 std::shared_ptr<tov::ComputeGraph> graph) {
    (void)data;
    (void)size;
    (void)graph;
    return SUCCESS;
  }
  virtual Status ParseFromMemory(const char* data, uint32_t size, tov::Graph& graph) {
    (void)data;
    (void)size;
    (void)graph;
    return SUCCESS;
  }
#pragma GCC diagnostic pop
  virtual Status ParseFromMemory(ParserOptions& options, std::vector<tov::BaseBuffer>& modelBuffer,
                                 tov::Graph& graph) = 0;
  virtual Status ToJson(const char* modelFile, const char* jsonFile) = 0;
};

using ModelParserCreator = std::function<std::shared_ptr<ModelParser>()>;

// The process-wide registry of parser creators, filled by plug-ins as they load.
class ModelParserFactory {
 public:
  static ModelParserFactory* Instance();

  // Registers the creator for a framework. A second creator for the same framework is refused
  // (returns false) and the first stays.
  bool RegisterCreator(FrameworkType type, ModelParserCreator creator);
  // The same, with the framework's name as users see it (for example in a list of the
  // frameworks that the loaded plug-ins serve) and what its parser reads (a format of its own
  // unless it says otherwise). Name and input are kept only if the creator is.
  bool RegisterCreator(FrameworkType type, ModelParserCreator creator, const std::string& name,
                       ModelInput input = ModelInput::kOwnFormat);
  // A new parser, or null when no creator is registered or the creator failed.
  std::shared_ptr<ModelParser> CreateModelParser(FrameworkType type) const;
  bool IsRegistered(FrameworkType type) const;
  // Registered framework types, ascending.
  std::vector<FrameworkType> RegisteredTypes() const;
  // The name registered with the framework's creator; empty when it came without one.
  std::string FrameworkName(FrameworkType type) const;
  // What the framework's parser reads; kOwnFormat when none is registered.
  ModelInput InputOf(FrameworkType type) const;
  // Order of registration, for start-up diagnostics.
  size_t RegistrationCount() const;
  // Drops every creator; for tests.
  void Clear();

 private:
  ModelParserFactory() = default;
  std::map<FrameworkType, ModelParserCreator> creators_;
  struct Declared {
    std::string name;
    ModelInput input;
  };
  std::map<FrameworkType, Declared> declared_;
  size_t registrations_ = 0;
};

// Creates a T with the non-throwing allocation. The result's object is null when that
// allocation failed. A failure to allocate the reference count still throws; the shared
// pointer's constructor then deletes the object itself.
template <typename T, typename... Args>
std::shared_ptr<T> make_shared_nothrow(Args&&... args) {
  return std::shared_ptr<T>(new (std::nothrow) T(std::forward<Args>(args)...));
}

}  // namespace tesu

#endif
