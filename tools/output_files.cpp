#include "output_files.h"

#include <set>

#include <nlohmann/json.hpp>

#include "framework/proto_io.h"

namespace tesu {
namespace cli {

std::vector<OutputFile> PlannedOutputs(const CliOptions& options) {
  std::vector<OutputFile> outputs;
  if (!options.outputFile.empty()) {
    outputs.push_back({"model", "--output", options.outputFile, WriteModelFile});
  }
  if (!options.jsonFile.empty()) {
    outputs.push_back({"json", "--json", options.jsonFile, WriteModelJson});
  }
  return outputs;
}

Status WriteModelFile(const ConversionResult& result, const std::string& path) {
  std::string bytes;
  const Status status = result.converted.Save(bytes);
  if (status != SUCCESS) return status;
  return WriteFileAtomically(path, bytes);
}

Status WriteModelJson(const ConversionResult& result, const std::string& path) {
  tesu::proto::ModelDef model;
  const Status status = result.converted.Save(model);
  if (status != SUCCESS) return status;
  nlohmann::json json;
  Pb2Json::Message2Json(model, {"data"}, json, false);
  return ModelSaver::SaveJsonToFile(path.c_str(), json);
}

}  // namespace cli
}  // namespace tesu
