#include "output_plan.h"

namespace tesu {
namespace cli {

std::vector<OutputFile> PlannedOutputs(const CliOptions& options) {
  std::vector<OutputFile> outputs;
  if (!options.outputFile.empty()) {
    outputs.push_back(
        {"model", "--output", options.outputFile,
         [weights = options.weightsFile](const ConversionResult& result, const std::string& path) {
           return WriteModelFile(result.converted, path, weights);
         }});
  }
  if (!options.weightsFile.empty()) {
    // Written with the model, both or neither; listed so that its path is checked and shown.
    outputs.push_back({"weights", "--weights", options.weightsFile,
                       [](const ConversionResult&, const std::string&) { return SUCCESS; }});
  }
  if (!options.jsonFile.empty()) {
    outputs.push_back({"json", "--json", options.jsonFile,
                       [](const ConversionResult& result, const std::string& path) {
                         return WriteModelJson(result, path);
                       }});
  }
  if (!options.dotFile.empty()) {
    outputs.push_back({"picture", "--dot", options.dotFile, WriteGraphDot});
  }
  if (!options.dotSourceFile.empty()) {
    outputs.push_back({"source picture", "--dot-source", options.dotSourceFile, WriteSourceDot});
  }
  return outputs;
}

}  // namespace cli
}  // namespace tesu
