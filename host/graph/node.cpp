#include "graph/node.h"

#include "graph/compute_graph.h"
#include "graph/graph.h"

namespace tov {

LegacyNode::LegacyNode(OpDescPtr opDesc, ComputeGraph* graph)
    : opDesc_(std::move(opDesc)),
      arena_(graph == nullptr ? nullptr : graph->Arena()),
      inAnchors_(ResourceOf(arena_)),
      outAnchors_(ResourceOf(arena_)),
      graph_(graph) {}

void LegacyNode::CreateAnchors() {
  const size_t inputs = opDesc_->GetInputsSize();
  const size_t outputs = opDesc_->GetOutputsSize();
  inAnchors_.reserve(inputs);
  outAnchors_.reserve(outputs);
  for (size_t i = 0; i < inputs; ++i) AppendInputAnchor();
  for (size_t i = 0; i < outputs; ++i) AppendOutputAnchor();
}

LegacyNode::~LegacyNode() {
  // Anchors may outlive the node through shared handles; they must point neither back at it nor
  // at anchors of other nodes, which may be gone too. Nothing else is dereferenced here.
  for (auto& anchor : inAnchors_) {
    anchor->owner_ = nullptr;
    anchor->peer_ = nullptr;
    anchor->prevConsumer_ = anchor->nextConsumer_ = nullptr;
  }
  for (auto& anchor : outAnchors_) {
    anchor->owner_ = nullptr;
    anchor->firstConsumer_ = anchor->lastConsumer_ = nullptr;
    anchor->consumerCount_ = 0;
  }
}

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

InDataAnchorPtr LegacyNode::AppendInputAnchor() {
  auto* self = static_cast<Node*>(this);
  inAnchors_.push_back(MakeShared<InDataAnchor>(arena_, self, static_cast<int>(inAnchors_.size())));
  return inAnchors_.back();
}

OutDataAnchorPtr LegacyNode::AppendOutputAnchor() {
  auto* self = static_cast<Node*>(this);
  outAnchors_.push_back(
      MakeShared<OutDataAnchor>(arena_, self, static_cast<int>(outAnchors_.size())));
  return outAnchors_.back();
}

InDataAnchorPtr LegacyNode::AppendInput(const TensorDesc& desc) {
  opDesc_->AddInputDesc(desc);
  return AppendInputAnchor();
}

InDataAnchorPtr LegacyNode::GetInDataAnchor(int index) const {
  if (index < 0 || static_cast<size_t>(index) >= inAnchors_.size()) return nullptr;
  return inAnchors_[static_cast<size_t>(index)];
}

OutDataAnchorPtr LegacyNode::GetOutDataAnchor(int index) const {
  if (index < 0 || static_cast<size_t>(index) >= outAnchors_.size()) return nullptr;
  return outAnchors_[static_cast<size_t>(index)];
}

RangeVistor<InDataAnchorPtr, std::shared_ptr<Node>> LegacyNode::GetAllInDataAnchors() const {
  auto self = const_cast<Node*>(static_cast<const Node*>(this))->shared_from_this();
  return RangeVistor<InDataAnchorPtr, std::shared_ptr<Node>>(
      self, std::vector<InDataAnchorPtr>(inAnchors_.begin(), inAnchors_.end()));
}

RangeVistor<OutDataAnchorPtr, std::shared_ptr<Node>> LegacyNode::GetAllOutDataAnchors() const {
  auto self = const_cast<Node*>(static_cast<const Node*>(this))->shared_from_this();
  return RangeVistor<OutDataAnchorPtr, std::shared_ptr<Node>>(
      self, std::vector<OutDataAnchorPtr>(outAnchors_.begin(), outAnchors_.end()));
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
  anchors.erase(anchors.begin() + static_cast<std::ptrdiff_t>(index));
  for (size_t i = index; i < anchors.size(); ++i) anchors[i]->index_ = static_cast<int>(i);
  Self().opDesc_->RemoveInputDesc(static_cast<uint32_t>(index));

  if (producer != nullptr && Self().graph_ != nullptr) {
    std::vector<Node*> candidates{producer};
    Self().graph_->RemoveOrphanedConsts(candidates);
  }
  return GRAPH_SUCCESS;
}

}  // namespace tov
