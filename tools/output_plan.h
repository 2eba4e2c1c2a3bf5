// The files tesu-convert writes, as its flags ask for them. Each kind of output is one entry of
// the plan, so a new output flag adds one entry here and nothing else in the flow.
#ifndef TESU_TOOLS_OUTPUT_PLAN_H
#define TESU_TOOLS_OUTPUT_PLAN_H

#include <functional>
#include <string>
#include <vector>

#include "cli_options.h"
#include "output_files.h"

namespace tesu {
namespace cli {

struct OutputFile {
  std::string what;  // shown in messages: "model", "json"
  std::string flag;  // the flag that asked for it
  std::string path;
  // Writes the whole file or leaves the path as it was; returns a status.
  std::function<Status(const ConversionResult&, const std::string&)> write;
};

// The outputs the options ask for, in the order they are written.
std::vector<OutputFile> PlannedOutputs(const CliOptions& options);

}  // namespace cli
}  // namespace tesu

#endif
