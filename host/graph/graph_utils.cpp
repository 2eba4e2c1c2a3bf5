#include <algorithm>

#include "graph/graph.h"

namespace tov {

graphStatus GraphUtils::AddEdge(OutDataAnchor& from, InDataAnchor& to) {
  if (to.peer_ != nullptr) return GRAPH_FAILED;
  Node* producer = from.GetOwnerNodeRaw();
  Node* consumer = to.GetOwnerNodeRaw();
  if (producer == nullptr || consumer == nullptr || producer->graph_ == nullptr ||
      producer->graph_ != consumer->graph_) {
    return GRAPH_PARAM_INVALID;
  }
  from.Link(to);
  return GRAPH_SUCCESS;
}

graphStatus GraphUtils::RemoveEdge(OutDataAnchor& from, InDataAnchor& to) {
  if (to.peer_ != &from) return GRAPH_NOT_FOUND;
  from.Unlink(to);
  return GRAPH_SUCCESS;
}

graphStatus GraphUtils::AddEdge(const OutDataAnchorPtr& from, const InDataAnchorPtr& to) {
  if (from == nullptr || to == nullptr) return GRAPH_PARAM_INVALID;
  return AddEdge(*from, *to);
}

graphStatus GraphUtils::RemoveEdge(const OutDataAnchorPtr& from, const InDataAnchorPtr& to) {
  if (from == nullptr || to == nullptr) return GRAPH_PARAM_INVALID;
  return RemoveEdge(*from, *to);
}

graphStatus GraphUtils::AddControlEdge(Node& from, Node& to) {
  if (from.graph_ == nullptr || from.graph_ != to.graph_) return GRAPH_PARAM_INVALID;
  auto& successors = from.MutableControl().out;
  if (std::find(successors.begin(), successors.end(), &to) != successors.end()) {
    return GRAPH_SUCCESS;
  }
  successors.push_back(&to);
  to.MutableControl().in.push_back(&from);
  return GRAPH_SUCCESS;
}

graphStatus GraphUtils::RemoveControlEdge(Node& from, Node& to) {
  if (from.control_ == nullptr || to.control_ == nullptr) return GRAPH_NOT_FOUND;
  auto& successors = from.control_->out;
  auto it = std::find(successors.begin(), successors.end(), &to);
  if (it == successors.end()) return GRAPH_NOT_FOUND;
  successors.erase(it);
  auto& predecessors = to.control_->in;
  predecessors.erase(std::find(predecessors.begin(), predecessors.end(), &from));
  return GRAPH_SUCCESS;
}

}  // namespace tov
