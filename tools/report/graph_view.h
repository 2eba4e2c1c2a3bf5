// A plain view of a graph, the same for the source model message and for the converted compute
// graph, so that the report compares, lists and draws both with one piece of code.
#ifndef TESU_TOOLS_REPORT_GRAPH_VIEW_H
#define TESU_TOOLS_REPORT_GRAPH_VIEW_H

#include <cstddef>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "graph/compute_graph.h"

namespace tesu {
namespace proto {
class GraphDef;
}
}  // namespace tesu

namespace tesu {
namespace cli {
namespace report {

// An attribute as the report shows it: its name and a short rendering of its value (numbers,
// strings, lists of up to a few values; tensors as data type and shape).
using AttrText = std::pair<std::string, std::string>;

struct ViewNode {
  std::string name;
  std::string type;
  std::vector<AttrText> attrs;  // sorted by name
  // One entry per input in the model file's form: "producer:k" for a data input, "" for an
  // unconnected one, "producer:-1" for a control edge.
  std::vector<std::string> inputs;
};

struct GraphView {
  std::vector<ViewNode> nodes;                    // in graph order
  std::unordered_map<std::string, size_t> index;  // node name to its position (first namesake)

  const ViewNode* Find(const std::string& name) const;
  // Fills `index`; called once the nodes are in place.
  void IndexNames();
};

// The producer's name of an input entry: "conv1:0" -> "conv1"; "" for an unconnected input.
std::string ProducerOf(const std::string& input);
bool IsControlInput(const std::string& input);

// The first graph of a model message as a view.
GraphView ViewOf(const tesu::proto::GraphDef& graph);
// The first graph of serialised ModelDef bytes; empty when they do not parse or hold no graph.
GraphView SourceViewOf(const std::string& serialisedModel);
// A compute graph as a view, inputs written the way the model file writes them.
GraphView ViewOf(const tov::ComputeGraph& graph);

}  // namespace report
}  // namespace cli
}  // namespace tesu

#endif
