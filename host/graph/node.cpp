#include "graph/node.h"

#include <new>
#include <type_traits>

#include "graph/compute_graph.h"
#include "graph/graph.h"

namespace tov {

LegacyNode::LegacyNode(OpDescPtr opDesc, ComputeGraph* graph)
    : opDesc_(std::move(opDesc)), arena_(graph->Arena()), graph_(graph) {}

std::pmr::memory_resource* LegacyNode::AnchorMemory() const {
  return arena_->Resource(GraphArena::kAnchors);
}

void LegacyNode::CreateAnchors() {
  const size_t inputs = opDesc_->GetInputsSize();
  const size_t outputs = opDesc_->GetOutputsSize();
  inAnchors_.reserve(inputs, AnchorMemory());
  outAnchors_.reserve(outputs, AnchorMemory());
  for (size_t i = 0; i < inputs; ++i) AppendInputAnchor();
  for (size_t i = 0; i < outputs; ++i) AppendOutputAnchor();
}

// Anchors and their lists are trivially destructible and their memory goes with the arena, so a
// node's death does not touch them: handles to them share the node's ownership, so none is left.
LegacyNode::~LegacyNode() = default;

namespace {
const std::vector<Node*>& NoNodes() {
  static const std::vector<Node*> none;
  return none;
}
}  // namespace

const std::vector<Node*>& LegacyNode::InControl() const {
  return control_ != nullptr ? control_->in : NoNodes();
}

const std::vector<Node*>& LegacyNode::OutControl() const {
  return control_ != nullptr ? control_->out : NoNodes();
}

LegacyNode::ControlEdges& LegacyNode::MutableControl() {
  if (control_ == nullptr) control_ = std::make_unique<ControlEdges>();
  return *control_;
}

template <typename T>
T& LegacyNode::NewAnchor(size_t index) {
  static_assert(std::is_trivially_destructible_v<T>, "anchors are never destroyed one by one");
  void* memory = AnchorMemory()->allocate(sizeof(T), alignof(T));
  return *new (memory) T(static_cast<Node*>(this), static_cast<int>(index));
}

InDataAnchor& LegacyNode::AppendInputAnchor() {
  InDataAnchor& anchor = NewAnchor<InDataAnchor>(inAnchors_.size());
  inAnchors_.push_back(&anchor, AnchorMemory());
  return anchor;
}

OutDataAnchor& LegacyNode::AppendOutputAnchor() {
  OutDataAnchor& anchor = NewAnchor<OutDataAnchor>(outAnchors_.size());
  outAnchors_.push_back(&anchor, AnchorMemory());
  return anchor;
}

InDataAnchor& LegacyNode::AppendInput(const TensorDesc& desc) {
  opDesc_->AddInputDesc(desc);
  return AppendInputAnchor();
}

InDataAnchorPtr LegacyNode::GetInDataAnchor(int index) const {
  if (index < 0 || static_cast<size_t>(index) >= inAnchors_.size()) return nullptr;
  return Anchor::Share(*inAnchors_[static_cast<size_t>(index)]);
}

OutDataAnchorPtr LegacyNode::GetOutDataAnchor(int index) const {
  if (index < 0 || static_cast<size_t>(index) >= outAnchors_.size()) return nullptr;
  return Anchor::Share(*outAnchors_[static_cast<size_t>(index)]);
}

namespace {
// Handles to every anchor of a list, each sharing the node's ownership.
template <typename T>
std::vector<std::shared_ptr<T>> ShareAll(const std::shared_ptr<Node>& node,
                                         const ArenaVector<T*>& anchors) {
  std::vector<std::shared_ptr<T>> handles;
  handles.reserve(anchors.size());
  for (T* anchor : anchors) handles.emplace_back(node, anchor);
  return handles;
}
}  // namespace

RangeVistor<InDataAnchorPtr, std::shared_ptr<Node>> LegacyNode::GetAllInDataAnchors() const {
  auto self = const_cast<Node*>(static_cast<const Node*>(this))->shared_from_this();
  return RangeVistor<InDataAnchorPtr, std::shared_ptr<Node>>(self, ShareAll(self, inAnchors_));
}

RangeVistor<OutDataAnchorPtr, std::shared_ptr<Node>> LegacyNode::GetAllOutDataAnchors() const {
  auto self = const_cast<Node*>(static_cast<const Node*>(this))->shared_from_this();
  return RangeVistor<OutDataAnchorPtr, std::shared_ptr<Node>>(self, ShareAll(self, outAnchors_));
}

const std::string& NodeSpec::Name() const {
  return Self().GetName();
}
const std::string& NodeSpec::Type() const {
  return Self().GetType();
}
tov::OpDesc& NodeSpec::OpDesc() const {
  return *Self().opDesc_;
}

size_t NodeSpec::InDataEdgeSize() const {
  size_t count = 0;
  for (const auto& anchor : Self().inAnchors_)
    count += anchor->GetPeerOutAnchorRaw() != nullptr ? 1 : 0;
  return count;
}

size_t NodeSpec::OutDataEdgeSize() const {
  size_t count = 0;
  for (const auto& anchor : Self().outAnchors_) count += anchor->GetPeersRaw().size();
  return count;
}

size_t NodeSpec::OutEdgeSize() const {
  return OutDataEdgeSize() + Self().OutControl().size();
}
size_t NodeSpec::InControlEdgeSize() const {
  return Self().InControl().size();
}
size_t NodeSpec::OutControlEdgeSize() const {
  return Self().OutControl().size();
}

Node* NodeWalker::OutDataNode(size_t outIndex, size_t edgeIndex) const {
  if (outIndex >= Self().outAnchors_.size()) return nullptr;
  const InDataAnchor* consumer = Self().outAnchors_[outIndex]->ConsumerAt(edgeIndex);
  return consumer == nullptr ? nullptr : consumer->GetOwnerNodeRaw();
}

Node* NodeWalker::InDataNode(size_t inIndex) const {
  if (inIndex >= Self().inAnchors_.size()) return nullptr;
  OutDataAnchor* peer = Self().inAnchors_[inIndex]->GetPeerOutAnchorRaw();
  return peer == nullptr ? nullptr : peer->GetOwnerNodeRaw();
}

const std::vector<Node*>& NodeWalker::InControlNodes() const {
  return Self().InControl();
}
const std::vector<Node*>& NodeWalker::OutControlNodes() const {
  return Self().OutControl();
}

graphStatus NodeCompatibler::RemoveSpecificInput(size_t index) {
  auto& anchors = Self().inAnchors_;
  if (index >= anchors.size()) return GRAPH_PARAM_INVALID;
  InDataAnchor& anchor = *anchors[index];
  Node* producer = nullptr;
  if (OutDataAnchor* peer = anchor.GetPeerOutAnchorRaw()) {
    producer = peer->GetOwnerNodeRaw();
    GraphUtils::RemoveEdge(*peer, anchor);
  }
  anchor.owner_ = nullptr;
  anchors.erase(index);
  for (size_t i = index; i < anchors.size(); ++i) anchors[i]->index_ = static_cast<int>(i);
  Self().opDesc_->RemoveInputDesc(static_cast<uint32_t>(index));

  if (producer != nullptr && Self().graph_ != nullptr) {
    std::vector<Node*> candidates{producer};
    Self().graph_->RemoveOrphanedConsts(candidates);
  }
  return GRAPH_SUCCESS;
}

}  // namespace tov
