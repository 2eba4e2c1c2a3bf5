// The data of the conversion report page: one JSON object that the page's script renders.
#ifndef TESU_TOOLS_REPORT_REPORT_DATA_H
#define TESU_TOOLS_REPORT_REPORT_DATA_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "framework/model_parser.h"
#include "framework/profiler.h"
#include "graph_pictures.h"
#include "graph_view.h"
#include "report_page.h"

namespace tesu {
namespace cli {
namespace report {

// What the command line knows about a run, apart from the graphs.
struct RunFacts {
  std::string modelFile;
  uintmax_t modelSize = 0;  // bytes of the model file
  int32_t framework = 0;
  std::string frameworkName;
  Status status = SUCCESS;  // the parser's, or the failed write's
  int exitCode = 0;
  std::string outcome;  // one line: "converted", or what failed
  // Operator type to node count, before and after (after stays empty on a failed run).
  std::map<std::string, size_t> opsBefore;
  std::map<std::string, size_t> opsAfter;
  std::vector<Profiler::Step> steps;  // the timed steps, as --profile prints them
};

// The page's data:
//   summary   the run's facts, operator counts and timed steps
//   support   the check report's unsupported nodes grouped by operator type
//   nodes     every node of either graph, in columns, since a large graph has 100k of them:
//               count
//               names    the names
//               marks    per node "unsupported", "changed" or ""
//               changes  per node one line "kind\ttext" per change
//               before, after: per node of that graph
//                 types, attrs  (attrs in the line form of ViewNode); null without the node
//                 inputs        per node its inputs, in ViewNode's line form
//             Marks, changes, types and attrs are positions in `strings`.
//   strings   the texts that nodes share (a text may occur more than once)
//   pictures  source and converted SVG, and whether they show the whole graph
// The data is built in two parts, so that the costly one can run while the command line writes
// its other outputs, and the summary still shows how long those took.

// The column of the nodes' names, as one JSON array.
class NameColumn {
 public:
  // Makes room for about `rows` names of `bytes` bytes in all.
  void Reserve(size_t rows, size_t bytes);
  void Add(std::string_view name);
  // Moves the column to the end of `pieces`.
  void MoveTo(std::vector<std::string>& pieces);

 private:
  std::string text_;
  size_t rows_ = 0;
};

// One side (before or after) of the nodes' columns, written as JSON text row by row.
class SideColumns {
 public:
  // `textsAt`: where the texts of the node's view begin in the data's "strings".
  // Makes room for about `rows` rows whose inputs take `bytes` bytes in all.
  void Reserve(size_t rows, size_t bytes);
  void Add(const ViewNode* node, size_t textsAt);
  // Moves the columns, as one JSON object, to the end of `pieces`.
  void MoveTo(std::vector<std::string>& pieces);

 private:
  std::string types_;  // numbers and nulls, without the brackets
  std::string attrs_;
  std::string inputs_;  // JSON strings, without the brackets
  size_t rows_ = 0;
};

// What the data takes from the source graph alone, worked out while the parser still works on
// the same model: the view, and the names and before side of the source nodes, which are the
// first rows.
struct SourceData {
  GraphView view;
  NameColumn names;
  SideColumns before;
};

SourceData PrepareSource(GraphView view);

// Everything but the summary; `nodes` and `strings`, most of a large graph's data, come written
// as JSON text. `converted` is empty when the conversion failed; `checkReport` is the operator
// support report the run wrote, as read back from its file, or null. The views are taken, so
// that they are freed wherever the body is built.
PageData BuildReportBody(SourceData source, std::optional<GraphView> converted,
                         const nlohmann::json& checkReport, const PictureLimits& limits = {});

// The summary of a run; `converted`: whether the run has a converted graph.
nlohmann::json ReportSummary(const RunFacts& run, bool converted);

// Adds the summary to a body.
void AddSummary(PageData& body, const RunFacts& run);

}  // namespace report
}  // namespace cli
}  // namespace tesu

#endif
