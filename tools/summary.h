// The short report printed after a successful conversion.
#ifndef TESU_TOOLS_SUMMARY_H
#define TESU_TOOLS_SUMMARY_H

#include <cstddef>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "framework/profiler.h"
#include "graph/compute_graph.h"

namespace tesu {
namespace cli {

// Operator type to node count; a std::map so that the listing is sorted.
using OpCounts = std::map<std::string, size_t>;

OpCounts CountOps(const tov::ComputeGraph& graph);

struct WrittenFile {
  std::string what;  // "model", "json", "check report"
  std::string path;
};

struct Summary {
  std::string modelFile;
  OpCounts before;
  OpCounts after;
  std::vector<WrittenFile> written;
};

// Node totals, then one line per operator type seen before or after with both counts, then the
// files written.
void PrintSummary(const Summary& summary, std::ostream& out);

// One line per timed step, then the total.
void PrintProfile(const std::vector<Profiler::Step>& steps, std::ostream& out);

}  // namespace cli
}  // namespace tesu

#endif
