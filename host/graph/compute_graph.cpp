#include "graph/compute_graph.h"

#include <algorithm>
#include <cstdint>

#include "graph/graph.h"
#include "graph/op_desc_utils.h"

namespace tov {

LegacyGraph::LegacyGraph() : arena_(GraphArena::Create()) {}

LegacyGraph::~LegacyGraph() {
  // Nodes that someone still holds outlive the graph: they leave it without edges, so that they
  // point at no node that is gone. Every other node just goes, in one sweep, without edges being
  // taken apart one by one.
  for (Node *node = first_, *next = nullptr; node != nullptr; node = next) {
    next = node->next_;  // read first: a survivor leaves the list below
    if (owned_[node->sequence_].use_count() == 1) continue;
    for (auto& anchor : node->inAnchors_) {
      if (OutDataAnchor* peer = anchor->peer_) peer->Unlink(*anchor);
    }
    for (auto& anchor : node->outAnchors_) anchor->UnlinkAll();
    node->control_.reset();
    node->graph_ = nullptr;
    node->removed_ = true;
    node->prev_ = node->next_ = nullptr;
  }
}

NodePtr LegacyGraph::InsertAt(OpDescPtr opDesc, Node* next, size_t nameHash) {
  // A node's place in `owned_` is 32 bits wide; no graph that fits in memory adds more nodes.
  if (owned_.size() >= UINT32_MAX) return nullptr;
  auto node = MakeShared<Node>(arena_.get(), std::move(opDesc), static_cast<ComputeGraph*>(this));
  Node* prev = next != nullptr ? next->prev_ : last_;
  node->prev_ = prev;
  node->next_ = next;
  (prev != nullptr ? prev->next_ : first_) = node.get();
  (next != nullptr ? next->prev_ : last_) = node.get();
  node->sequence_ = static_cast<uint32_t>(owned_.size());
  owned_.push_back(node);
  node->indexedName_ = arena_->CopyString(node->GetName());
  if (nameIndex_.Insert(node->indexedName_, nameHash, node.get())) ++namesakes_;
  ++nodeCount_;
  return node;
}

NodePtr LegacyGraph::AddNode(OpDescPtr opDesc) {
  if (opDesc == nullptr) return nullptr;
  const size_t hash = NameIndex::Hash(opDesc->GetName());
  return AddNode(std::move(opDesc), hash);
}

NodePtr LegacyGraph::AddNode(OpDescPtr opDesc, size_t nameHash) {
  if (opDesc == nullptr) return nullptr;
  Node* namesake = nameIndex_.Find(opDesc->GetName(), nameHash);
  return InsertAt(std::move(opDesc), namesake != nullptr ? namesake->next_ : nullptr, nameHash);
}

NodePtr LegacyGraph::InsertNodeBefore(OpDescPtr opDesc, Node& next) {
  if (opDesc == nullptr || next.graph_ != this || next.removed_) return nullptr;
  const size_t hash = NameIndex::Hash(opDesc->GetName());
  return InsertAt(std::move(opDesc), &next, hash);
}

void LegacyGraph::DetachEdges(Node& node, std::vector<Node*>& producers) {
  for (auto& anchor : node.inAnchors_) {
    if (OutDataAnchor* peer = anchor->peer_) {
      producers.push_back(peer->GetOwnerNodeRaw());
      GraphUtils::RemoveEdge(*peer, *anchor);
    }
  }
  for (auto& anchor : node.outAnchors_) anchor->UnlinkAll();
  for (Node* from : std::vector<Node*>(node.InControl())) {
    producers.push_back(from);
    GraphUtils::RemoveControlEdge(*from, node);
  }
  for (Node* to : std::vector<Node*>(node.OutControl())) GraphUtils::RemoveControlEdge(node, *to);
}

void LegacyGraph::Erase(Node& node) {
  if (nameIndex_.Erase(node.indexedName_, NameIndex::Hash(node.indexedName_), &node)) {
    --namesakes_;
  }
  node.indexedName_ = {};
  node.removed_ = true;
  node.graph_ = nullptr;
  --nodeCount_;
  if (walkDepth_ > 0) {
    pendingErase_.push_back(&node);
  } else {
    Unlink(node);
  }
}

void LegacyGraph::Unlink(Node& node) {
  (node.prev_ != nullptr ? node.prev_->next_ : first_) = node.next_;
  (node.next_ != nullptr ? node.next_->prev_ : last_) = node.prev_;
  node.prev_ = node.next_ = nullptr;
  const NodePtr released = std::move(owned_[node.sequence_]);  // may destroy the node on return
}

graphStatus LegacyGraph::RemoveNode(Node& node) {
  if (node.graph_ != this || node.removed_) return GRAPH_NOT_FOUND;
  std::vector<Node*> producers;
  DetachEdges(node, producers);
  Erase(node);
  RemoveOrphanedConsts(producers);
  return GRAPH_SUCCESS;
}

void LegacyGraph::RemoveOrphanedConsts(std::vector<Node*>& candidates) {
  // A worklist rather than recursion: a chain of orphaned producers must not grow the stack.
  while (!candidates.empty()) {
    Node* candidate = candidates.back();
    candidates.pop_back();
    if (candidate->graph_ != this || candidate->removed_) continue;
    if (candidate->GetType() != "Const" || candidate->RoleNodeSpec().OutEdgeSize() != 0) continue;
    DetachEdges(*candidate, candidates);
    Erase(*candidate);
  }
}

void LegacyGraph::EndWalk() {
  if (--walkDepth_ > 0) return;
  std::vector<Node*> pending;
  pending.swap(pendingErase_);
  for (Node* node : pending) Unlink(*node);
}

std::vector<NodePtr> LegacyGraph::GetDirectNode() const {
  std::vector<NodePtr> nodes;
  nodes.reserve(nodeCount_);
  for (Node* node = first_; node != nullptr; node = node->next_) {
    if (!node->removed_) nodes.push_back(owned_[node->sequence_]);
  }
  return nodes;
}

Node* LegacyGraph::FindNodeRaw(std::string_view name) const {
  return nameIndex_.Find(name, NameIndex::Hash(name));
}

Node* LegacyGraph::FindNodeRaw(std::string_view name, size_t nameHash) const {
  return nameIndex_.Find(name, nameHash);
}

NodePtr LegacyGraph::FindNode(std::string_view name) const {
  Node* found = FindNodeRaw(name);
  return found == nullptr ? nullptr : found->shared_from_this();
}

void LegacyGraph::ForEachNode(const std::function<void(Node&)>& callback) const {
  for (Node* node = first_; node != nullptr; node = node->next_) {
    if (!node->removed_) callback(*node);
  }
}

namespace {
// Keeps removed nodes in the list until the outermost walk ends, so the walk's position stays
// valid whatever the callbacks remove.
class WalkScope {
 public:
  explicit WalkScope(std::function<void()> end) : end_(std::move(end)) {}
  ~WalkScope() { end_(); }
  WalkScope(const WalkScope&) = delete;
  WalkScope& operator=(const WalkScope&) = delete;

 private:
  std::function<void()> end_;
};
}  // namespace

graphStatus GraphListWalker::WalkAllNodes(std::function<graphStatus(Node&)> callback) const {
  return WalkAllNodesModifiable([](Node&) { return true; }, std::move(callback));
}

graphStatus GraphListWalker::WalkAllNodesModifiable(
    const std::function<bool(Node&)>& filter, std::function<graphStatus(Node&)> action) const {
  LegacyGraph& graph = graph_;
  graph.BeginWalk();
  WalkScope scope([&graph] { graph.EndWalk(); });
  const size_t limit = graph.owned_.size();
  for (Node* at = graph.first_; at != nullptr; at = at->next_) {
    Node& node = *at;
    if (node.removed_ || node.sequence_ >= limit) continue;
    if (!filter(node) || node.removed_) continue;
    const graphStatus status = action(node);
    if (status != GRAPH_SUCCESS) return status;
  }
  return GRAPH_SUCCESS;
}

graphStatus GraphBypasser::ByPassNode(const Node& constNode) const {
  if (constNode.GetOwnerComputeGraph() != &graph_) return GRAPH_NOT_FOUND;
  NodePtr node = const_cast<Node&>(constNode).shared_from_this();
  OutDataAnchor* source = nullptr;
  size_t connected = 0;
  for (const auto& anchor : node->InAnchors()) {
    if (OutDataAnchor* peer = anchor->GetPeerOutAnchorRaw()) {
      source = peer;
      ++connected;
    }
  }
  if (connected != 1) return GRAPH_PARAM_INVALID;

  for (const auto& anchor : node->OutAnchors()) {
    const RangeVistor<InDataAnchorPtr, OutDataAnchorPtr> consumers = anchor->GetPeerInDataAnchors();
    for (const InDataAnchorPtr& consumer : consumers) {
      graphStatus status = GraphUtils::RemoveEdge(*anchor, *consumer);
      if (status == GRAPH_SUCCESS) status = GraphUtils::AddEdge(*source, *consumer);
      if (status != GRAPH_SUCCESS) return status;
    }
  }
  const NodeWalker& walker = node->RoleNodeWalker();
  for (Node* from : walker.InControlNodes()) {
    for (Node* to : walker.OutControlNodes()) {
      const graphStatus status = GraphUtils::AddControlEdge(*from, *to);
      if (status != GRAPH_SUCCESS) return status;
    }
  }
  return graph_.RemoveNode(*node);
}

}  // namespace tov
