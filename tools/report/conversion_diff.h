// What a conversion did to each node, worked out by comparing the source graph with the
// converted one. Nodes are matched by name: a converter that replaces a node builds the new node
// under the old name, and nodes that a pass removes simply are not in the converted graph.
#ifndef TESU_TOOLS_REPORT_CONVERSION_DIFF_H
#define TESU_TOOLS_REPORT_CONVERSION_DIFF_H

#include <cstdint>
#include <string>
#include <string_view>
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

// One node of either graph: its two sides (null where absent) and what changed between them.
struct NodeComparison {
  const ViewNode* before = nullptr;
  const ViewNode* after = nullptr;
  // The node's changes in Comparison::changes; 0, the empty list, when nothing changed.
  uint32_t changes = 0;
  // Lower is more worth showing: replaced, fused, removed or added nodes before nodes merely
  // retyped or renamed; nodes without changes last.
  int weight = kUnchanged;

  static constexpr int kMajor = 1;
  static constexpr int kMinor = 2;
  static constexpr int kUnchanged = 3;

  std::string_view Name() const { return before != nullptr ? before->name : after->name; }
  // The nodes the graph pictures highlight.
  bool Changed() const { return changes != 0; }
};

struct Comparison {
  std::vector<NodeComparison> rows;
  // Each node's changes as lines "kind\ttext\n". Nodes of one type with one set of attributes
  // usually change alike (every Conv2D is retyped the same way), so a list is kept once; the
  // first is the empty list.
  TextTable changes;
};

// Every source node in graph order, then the nodes only the converted graph has. Without a
// converted graph (the conversion failed) the source nodes come with no changes. The views must
// outlive the result.
Comparison CompareGraphs(const GraphView& source, const GraphView* converted);

// Source types whose converter builds a new node rather than editing the node in place; the
// operator table of docs/operators.md says "replaced" for exactly these.
bool IsReplacedByItsConverter(const std::string& sourceType);

}  // namespace report
}  // namespace cli
}  // namespace tesu

#endif
