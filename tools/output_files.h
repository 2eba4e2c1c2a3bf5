// The files a conversion writes from its result. Each kind of output is one entry of the plan,
// so a new output flag adds one entry here and nothing else in the flow.
#ifndef TESU_TOOLS_OUTPUT_FILES_H
#define TESU_TOOLS_OUTPUT_FILES_H

#include <functional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli_options.h"
#include "framework/model_parser.h"
#include "graph/model.h"

namespace tesu {
namespace cli {

// What an output is made from: the converted model, and the source graph's picture when one
// was asked for.
struct ConversionResult {
  const tov::Model& converted;
  const std::string& sourceDot;
};

struct OutputFile {
  std::string what;  // shown in messages: "model", "json"
  std::string flag;  // the flag that asked for it
  std::string path;
  // Writes the whole file or leaves the path as it was; returns a status.
  std::function<Status(const ConversionResult&, const std::string&)> write;
};

// The outputs the options ask for, in the order they are written.
std::vector<OutputFile> PlannedOutputs(const CliOptions& options);

// The converted model as a binary ModelDef.
Status WriteModelFile(const ConversionResult& result, const std::string& path);
// A model as JSON, tensor data left out; the same form as the parser's JSON dump.
Status ModelToJson(const tov::Model& model, nlohmann::json& json);
// The converted model as JSON (ModelToJson).
Status WriteModelJson(const ConversionResult& result, const std::string& path);
// The converted graph, or the source graph, as Graphviz DOT.
Status WriteGraphDot(const ConversionResult& result, const std::string& path);
Status WriteSourceDot(const ConversionResult& result, const std::string& path);

}  // namespace cli
}  // namespace tesu

#endif
