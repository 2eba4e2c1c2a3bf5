#include "graph/op_desc_utils.h"

#include <algorithm>
#include <string>

#include "graph/compute_graph.h"
#include "graph/graph.h"

namespace tov {
namespace {

constexpr char kConstType[] = "Const";
constexpr char kValueAttr[] = "value";

TensorPtr ConstTensor(const Node& node) {
  if (node.GetType() != kConstType) return nullptr;
  const AttrValue* value = node.GetOpDesc()->FindAttr(kValueAttr);
  const TensorPtr* tensor = value == nullptr ? nullptr : value->Get<TensorPtr>();
  return tensor == nullptr ? nullptr : *tensor;
}

Node* ProducerOf(const InDataAnchor& anchor) {
  OutDataAnchor* peer = anchor.GetPeerOutAnchorRaw();
  return peer == nullptr ? nullptr : peer->GetOwnerNodeRaw();
}

std::string UniqueName(const ComputeGraph& graph, const std::string& base) {
  std::string name = base;
  for (size_t suffix = 1; graph.FindNode(name) != nullptr; ++suffix) {
    name = base + "_" + std::to_string(suffix);
  }
  return name;
}

}  // namespace

bool OpDescUtils::IsConstNode(const Node& node) {
  return ConstTensor(node) != nullptr;
}

std::vector<TensorPtr> OpDescUtils::MutableWeights(const Node& node) {
  std::vector<TensorPtr> weights;
  for (const auto& anchor : node.inAnchors_) {
    Node* producer = ProducerOf(*anchor);
    if (producer == nullptr) continue;
    if (TensorPtr tensor = ConstTensor(*producer)) weights.push_back(std::move(tensor));
  }
  return weights;
}

std::vector<NodePtr> OpDescUtils::GetConstInputs(const Node& node) {
  std::vector<NodePtr> inputs;
  for (const auto& anchor : node.inAnchors_) {
    Node* producer = ProducerOf(*anchor);
    if (producer != nullptr && IsConstNode(*producer))
      inputs.push_back(producer->shared_from_this());
  }
  return inputs;
}

size_t OpDescUtils::GetNonConstInputsSize(const Node& node) {
  size_t count = 0;
  for (const auto& anchor : node.inAnchors_) {
    Node* producer = ProducerOf(*anchor);
    if (producer == nullptr || !IsConstNode(*producer)) ++count;
  }
  return count;
}

Node* OpDescUtils::HolderFor(const TensorPtr& tensor, Node& consumer, size_t inputIndex) {
  ComputeGraph& graph = *consumer.GetOwnerComputeGraph();
  NodePtr holder = tensor->holder_.lock();
  if (holder != nullptr && holder->GetOwnerComputeGraph() == &graph &&
      ConstTensor(*holder) == tensor && holder->GetAllOutDataAnchorsSize() > 0) {
    return holder.get();
  }
  // In the graph's arena, with its lists: a conversion adds one for every weight it sets.
  auto opDesc = MakeShared<OpDesc>(graph.Arena(), graph.Arena());
  opDesc->SetName(UniqueName(graph, consumer.GetName() + "_weight_" + std::to_string(inputIndex)));
  opDesc->SetType(kConstType);
  opDesc->AddOutputDesc(tensor->GetTensorDesc());
  opDesc->SetAttr(kValueAttr, AttrValue::CreateFrom(tensor));
  holder = graph.InsertNodeBefore(opDesc, consumer);
  if (holder == nullptr) return nullptr;
  tensor->holder_ = holder;
  return holder.get();
}

graphStatus OpDescUtils::SetWeights(Node& node, const std::vector<TensorPtr>& weights) {
  ComputeGraph* graph = node.GetOwnerComputeGraph();
  if (graph == nullptr) return GRAPH_PARAM_INVALID;
  if (std::any_of(weights.begin(), weights.end(), [](const TensorPtr& t) { return !t; })) {
    return GRAPH_PARAM_INVALID;
  }
  std::vector<size_t> constSlots;
  for (size_t i = 0; i < node.inAnchors_.size(); ++i) {
    Node* producer = ProducerOf(*node.inAnchors_[i]);
    if (producer != nullptr && IsConstNode(*producer)) constSlots.push_back(i);
  }

  std::vector<Node*> replaced;
  const size_t kept = std::min(constSlots.size(), weights.size());
  for (size_t i = 0; i < kept; ++i) {
    InDataAnchor& anchor = *node.inAnchors_[constSlots[i]];
    Node* current = ProducerOf(anchor);
    if (ConstTensor(*current) == weights[i]) continue;
    Node* holder = HolderFor(weights[i], node, constSlots[i]);
    if (holder == nullptr) return GRAPH_FAILED;
    GraphUtils::RemoveEdge(*anchor.GetPeerOutAnchorRaw(), anchor);
    replaced.push_back(current);
    GraphUtils::AddEdge(*holder->outAnchors_[0], anchor);
    node.opDesc_->UpdateInputDesc(static_cast<uint32_t>(constSlots[i]),
                                  weights[i]->GetTensorDesc());
  }
  for (size_t i = kept; i < weights.size(); ++i) {
    Node* holder = HolderFor(weights[i], node, node.inAnchors_.size());
    if (holder == nullptr) return GRAPH_FAILED;
    GraphUtils::AddEdge(*holder->outAnchors_[0], node.AppendInput(weights[i]->GetTensorDesc()));
  }
  for (size_t i = constSlots.size(); i > kept; --i) {
    node.RoleNodeCompatibler().RemoveSpecificInput(constSlots[i - 1]);
  }
  graph->RemoveOrphanedConsts(replaced);
  return GRAPH_SUCCESS;
}

}  // namespace tov
