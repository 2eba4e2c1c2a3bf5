// The whole parse through the plug-in, default options, on arbitrary bytes. A parse that fails
// must leave the caller's graph alone; one that succeeds must hand back a graph that the host
// can save, as the command line does with every converted model.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "framework/model_parser.h"
#include "fuzz_support.h"
#include "graph/base_buffer.h"
#include "graph/graph.h"
#include "graph/model.h"
#include "orvane_parser.h"

namespace {
const char* const kReportFile = "check_result.json";
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzsupport::SilenceLog();
  (void)fuzzsupport::ScratchDir();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tesu::OrvaneModelParser parser;
  tesu::ParserOptions options;
  // An unsupported operator saves the check report; keep it out of the working directory.
  options.checkReportPath = fuzzsupport::ScratchDir() + "/" + kReportFile;
  std::vector<tov::BaseBuffer> buffers{tov::BaseBuffer(data, size)};
  tov::Graph graph;
  const tesu::Status status = parser.ParseFromMemory(options, buffers, graph);
  if (status != tesu::SUCCESS) {
    if (graph.IsValid()) fuzzsupport::Fail("a failed parse handed back a graph");
    return 0;
  }
  if (!graph.IsValid()) fuzzsupport::Fail("a successful parse handed back no graph");
  std::string bytes;
  if (tov::Model("converted", graph).Save(bytes) != tov::GRAPH_SUCCESS) {
    fuzzsupport::Fail("a converted graph does not save");
  }
  return 0;
}
