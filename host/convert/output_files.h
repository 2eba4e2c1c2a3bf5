// The files a conversion's result is written to, by any front end.
#ifndef TESU_TOOLS_OUTPUT_FILES_H
#define TESU_TOOLS_OUTPUT_FILES_H

#include <string>

#include <nlohmann/json.hpp>

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
