#include "output_plan.h"

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
