// A plain view of a graph, the same for the source model's bytes and for the converted compute
// graph, so that the report compares, lists and draws both with one piece of code. A view of a
// 100k-node graph is built in a few tens of milliseconds: each node's attributes and inputs are
// kept as one string rather than as many small ones.
#ifndef TESU_TOOLS_REPORT_GRAPH_VIEW_H
#define TESU_TOOLS_REPORT_GRAPH_VIEW_H

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "graph/compute_graph.h"

namespace tesu {
namespace cli {
namespace report {

// Separators of the entries of ViewNode::attrs and ViewNode::inputs, and of the records of one
// node each where the report puts many nodes' texts in one string.
constexpr char kEntryEnd = '\n';
constexpr char kNameEnd = '\t';
constexpr char kRecordEnd = '\x1e';

struct ViewNode {
  std::string name;
  std::string type;
  // One line per attribute, sorted by name: "name\tvalue\n". The value is a short rendering:
  // numbers, quoted strings (newlines and tabs escaped), lists of up to 16 values, tensors as
  // data type and shape.
  std::string attrs;
  // One line per input in the model file's form: "producer:k\n" for a data input, "\n" for an
  // unconnected one, "producer:-1\n" for a control edge.
  std::string inputs;
};

struct GraphView {
  std::vector<ViewNode> nodes;  // in graph order
  // Node name to position (first namesake). Only views that are looked up by name (the
  // converted graph's) have one: indexing 100k names is not free.
  std::unordered_map<std::string_view, size_t> index;

  GraphView() = default;
  // The index refers to the nodes' names, so a view moves but does not copy.
  GraphView(GraphView&&) = default;
  GraphView& operator=(GraphView&&) = default;
  GraphView(const GraphView&) = delete;
  GraphView& operator=(const GraphView&) = delete;

  const ViewNode* Find(std::string_view name) const;
  // Fills `index`; called once the nodes are in place.
  void IndexNames();
};

// Calls `entry(line)` for each line of an attrs or inputs string, without the line end.
template <typename Entry>
void ForEachEntry(std::string_view lines, Entry entry) {
  size_t start = 0;
  while (start < lines.size()) {
    size_t end = lines.find(kEntryEnd, start);
    if (end == std::string_view::npos) end = lines.size();
    entry(lines.substr(start, end - start));
    start = end + 1;
  }
}

// The producer's name of an input entry: "conv1:0" -> "conv1"; "" for an unconnected input.
std::string_view ProducerOf(std::string_view input);
bool IsControlInput(std::string_view input);

// The first graph of serialised ModelDef bytes, without an index; empty when they do not parse
// or hold no graph. Read field by field from the bytes: the message is never built, so tensor
// data is neither parsed nor copied.
GraphView SourceViewOf(const std::string& serialisedModel);
// A compute graph as a view, indexed, inputs written the way the model file writes them.
GraphView ViewOf(const tov::ComputeGraph& graph);

}  // namespace report
}  // namespace cli
}  // namespace tesu

#endif
