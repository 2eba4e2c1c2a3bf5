#ifndef TOV_GRAPH_GRAPH_H
#define TOV_GRAPH_GRAPH_H

#include <memory>

#include "graph/compute_graph.h"

namespace tov {

// The public handle of a graph. Copies share one compute graph.
class Graph {
 public:
  Graph() = default;
  bool IsValid() const { return computeGraph_ != nullptr; }

 private:
  friend class GraphUtils;
  std::shared_ptr<ComputeGraph> computeGraph_;
};

class GraphUtils {
 public:
  static std::shared_ptr<ComputeGraph> GetComputeGraph(const Graph& graph) {
    return graph.computeGraph_;
  }
  static Graph CreateGraphFromComputeGraph(std::shared_ptr<ComputeGraph> computeGraph) {
    Graph graph;
    graph.computeGraph_ = std::move(computeGraph);
    return graph;
  }

  // Adds one data edge. Fails when an anchor is null, the input already has a producer, or the
  // two nodes are not in the same graph.
  static graphStatus AddEdge(const OutDataAnchorPtr& from, const InDataAnchorPtr& to);
  // Removes that data edge; GRAPH_NOT_FOUND when the two anchors are not joined.
  static graphStatus RemoveEdge(const OutDataAnchorPtr& from, const InDataAnchorPtr& to);
  static graphStatus AddControlEdge(Node& from, Node& to);
  static graphStatus RemoveControlEdge(Node& from, Node& to);

  // Raw forms used on hot paths.
  static graphStatus AddEdge(OutDataAnchor& from, InDataAnchor& to);
  static graphStatus RemoveEdge(OutDataAnchor& from, InDataAnchor& to);
};

}  // namespace tov

#endif
