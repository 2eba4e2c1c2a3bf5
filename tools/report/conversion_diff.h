// What a conversion did to each node, worked out by comparing the source graph with the
// converted one. Nodes are matched by name: a converter that replaces a node builds the new node
// under the old name, and nodes that a pass removes simply are not in the converted graph.
#ifndef TESU_TOOLS_REPORT_CONVERSION_DIFF_H
#define TESU_TOOLS_REPORT_CONVERSION_DIFF_H

#include <string>
#include <vector>

#include "graph_view.h"

namespace tesu {
namespace cli {
namespace report {

// Kinds of change, as the page filters them.
namespace change {
constexpr const char kType[] = "type";              // operator type changed in place
constexpr const char kReplaced[] = "replaced";      // a new node took the name
constexpr const char kRenamed[] = "renamed";        // attributes renamed, value kept
constexpr const char kAttributes[] = "attributes";  // attribute values changed
constexpr const char kInputs[] = "inputs";          // inputs added or removed
constexpr const char kFused[] = "fused";            // node folded into its producer
constexpr const char kRemoved[] = "removed";        // node gone, constants included
constexpr const char kAdded[] = "added";            // node only in the converted graph
constexpr const char kOutputFormat[] = "output format";
}  // namespace change

struct Change {
  std::string kind;  // one of the change:: kinds
  std::string text;  // what happened, for a person
};

// One node of either graph: its two sides (null where absent) and what changed between them.
struct NodeComparison {
  const ViewNode* before = nullptr;
  const ViewNode* after = nullptr;
  std::vector<Change> changes;

  const std::string& Name() const { return before != nullptr ? before->name : after->name; }
  // The nodes the graph pictures highlight.
  bool Changed() const { return !changes.empty(); }
  // Lower is more worth showing: replaced, fused, removed or added nodes before nodes merely
  // retyped or renamed; nodes without such changes last.
  int Weight() const;
};

// Every source node in graph order, then the nodes only the converted graph has. Without a
// converted graph (the conversion failed) the source nodes come with no changes. The views must
// outlive the result.
std::vector<NodeComparison> CompareGraphs(const GraphView& source, const GraphView* converted);

// Source types whose converter builds a new node rather than editing the node in place; the
// README's operator table says "replaced" for exactly these.
bool IsReplacedByItsConverter(const std::string& sourceType);

}  // namespace report
}  // namespace cli
}  // namespace tesu

#endif
