#ifndef TOV_GRAPH_OP_DESC_UTILS_H
#define TOV_GRAPH_OP_DESC_UTILS_H

#include <vector>

#include "graph/node.h"
#include "graph/tensor.h"

namespace tov {

// Weights are constant inputs: a node's weight is the "value" tensor of a "Const" node that
// feeds one of its inputs.
class OpDescUtils {
 public:
  // The tensors of the node's Const producers, in input order. They are the Const nodes' own
  // tensors, so changes through them stick.
  static std::vector<TensorPtr> MutableWeights(const Node& node);
  // Makes `weights` the node's weights in that order. A tensor already held by a Const node of
  // the graph is fed from that node; any other gets a new Const node placed before the node.
  // Const inputs beyond the list are removed, and new inputs (with their descriptions) are
  // appended after the existing ones. Constness flags are left to the caller.
  static graphStatus SetWeights(Node& node, const std::vector<TensorPtr>& weights);
  // The Const producers, in input order.
  static std::vector<NodePtr> GetConstInputs(const Node& node);
  // Inputs not fed by a Const node (unconnected inputs included).
  static size_t GetNonConstInputsSize(const Node& node);
  // True when the node is a Const holding a "value" tensor.
  static bool IsConstNode(const Node& node);

 private:
  // The Const node that feeds `tensor`: the one already holding it, or a new one placed right
  // before `consumer`.
  static Node* HolderFor(const TensorPtr& tensor, Node& consumer, size_t inputIndex);
};

}  // namespace tov

#endif
