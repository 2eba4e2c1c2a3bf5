#include "convert/designations.h"

#include <set>

namespace tesu {
namespace convert {
namespace {

constexpr const char* kDataType = "Data";

std::string Quote(const std::string& text) {
  return "\"" + text + "\"";
}

// The inputs named in `designated` that are no Data node, in name order.
template <typename Map>
void CheckInputs(const Map& designated, const char* what, const tov::ComputeGraph& graph,
                 std::vector<std::string>& lines) {
  const std::set<std::string> names = [&designated] {
    std::set<std::string> sorted;
    for (const auto& entry : designated) sorted.insert(entry.first);
    return sorted;
  }();
  for (const std::string& name : names) {
    const tov::Node* node = graph.FindNodeRaw(name);
    if (node != nullptr && node->GetType() == kDataType) continue;
    lines.push_back(std::string(what) + " given for " + Quote(name) +
                    (node == nullptr ? ", which is not in the graph"
                                     : ", whose type is " + node->GetType() + ", not Data") +
                    ": it is not used");
  }
}

}  // namespace

std::vector<std::string> UnmatchedDesignations(const ParserOptions& options,
                                               const tov::ComputeGraph& graph) {
  std::vector<std::string> lines;
  CheckInputs(options.inputShapes, "input shape", graph, lines);
  CheckInputs(options.inputDataTypes, "input type", graph, lines);
  CheckInputs(options.inputFormats, "input format", graph, lines);
  for (const auto& [name, indices] : options.outputNodes) {
    const tov::Node* node = graph.FindNodeRaw(name);
    if (node == nullptr) {
      lines.push_back("output node " + Quote(name) + " is not in the graph: it is not an output");
      continue;
    }
    const size_t outputs = node->GetAllOutDataAnchorsSize();
    for (const int32_t index : std::set<int32_t>(indices.begin(), indices.end())) {
      if (index >= 0 && static_cast<size_t>(index) < outputs) continue;
      lines.push_back("output " + std::to_string(index) + " of node " + Quote(name) +
                      " is beyond its " + std::to_string(outputs) +
                      (outputs == 1 ? " output" : " outputs") + ": it is not an output");
    }
  }
  return lines;
}

}  // namespace convert
}  // namespace tesu
