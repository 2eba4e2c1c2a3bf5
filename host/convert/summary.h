// The short report printed after a successful conversion.
#ifndef TESU_TOOLS_SUMMARY_H
#define TESU_TOOLS_SUMMARY_H

#include <cstddef>
#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "framework/profiler.h"
#include "graph/compute_graph.h"

namespace tesu {
namespace cli {

// Operator type to node count; a std::map so that the listing is sorted.
using OpCounts = std::map<std::string, size_t>;

OpCounts CountOps(const tov::ComputeGraph& graph);
// The number of nodes the counts add up to.
size_t TotalOps(const OpCounts& counts);

// Counts operator types one node at a time. A model has a few types over many nodes, and
// neighbouring nodes often share one, so the counts live in a short list searched from the type
// met last, and become an OpCounts once at the end.
class OpTally {
 public:
  void Add(std::string_view type);
  OpCounts Counts() const;

 private:
  std::vector<std::pair<std::string, size_t>> counts_;
  size_t last_ = 0;
};

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
