#ifndef TOV_GRAPH_NODE_H
#define TOV_GRAPH_NODE_H

#include <cstdint>
#include <memory>
#include <memory_resource>
#include <string>
#include <string_view>
#include <vector>

#include "graph/anchor.h"
#include "graph/graph_arena.h"
#include "graph/op_desc.h"

// Role interfaces of nodes and graphs are reached as `node.ROLE(NodeSpec)`.
#define ROLE(role) Role##role()

namespace tov {

class ComputeGraph;
class LegacyGraph;
class Node;
using NodePtr = std::shared_ptr<Node>;
// A node's anchors, in index order. The anchors live in the graph's arena and die with the node.
using InAnchorList = ArenaVector<InDataAnchor*>;
using OutAnchorList = ArenaVector<OutDataAnchor*>;

// The common part of a node's roles. A role is a part of its node, without state of its own:
// only the node makes one, it cannot be copied out of its node, and Self() is the node that
// contains it.
template <typename Role>
class NodeRole {
 protected:
  NodeRole() = default;
  NodeRole(const NodeRole&) = delete;
  NodeRole& operator=(const NodeRole&) = delete;
  Node& Self() const;
};

// Identity and edge counts of a node.
class NodeSpec : public NodeRole<NodeSpec> {
 public:
  const std::string& Name() const;
  const std::string& Type() const;
  tov::OpDesc& OpDesc() const;
  size_t InDataEdgeSize() const;
  size_t OutDataEdgeSize() const;
  // Data and control edges leaving the node.
  size_t OutEdgeSize() const;
  size_t InControlEdgeSize() const;
  size_t OutControlEdgeSize() const;

 protected:
  NodeSpec() = default;
};

// Neighbours of a node.
class NodeWalker : public NodeRole<NodeWalker> {
 public:
  // The consumer reached through edge `edgeIndex` of output `outIndex`; null when none.
  Node* OutDataNode(size_t outIndex, size_t edgeIndex) const;
  // The producer of input `inIndex`; null when the input is unconnected or absent.
  Node* InDataNode(size_t inIndex) const;
  const std::vector<Node*>& InControlNodes() const;
  const std::vector<Node*>& OutControlNodes() const;

 protected:
  NodeWalker() = default;
};

// Edits that older callers make on a node's inputs.
class NodeCompatibler : public NodeRole<NodeCompatibler> {
 public:
  // Removes input `index`: its edge, its anchor, its description and its constness flag. Later
  // inputs move down by one. A Const producer left without consumers leaves the graph too.
  graphStatus RemoveSpecificInput(size_t index);

 protected:
  NodeCompatibler() = default;
};

// A node's description and anchors.
class LegacyNode {
 public:
  virtual ~LegacyNode();
  LegacyNode(const LegacyNode&) = delete;
  LegacyNode& operator=(const LegacyNode&) = delete;

  const std::string& GetName() const { return opDesc_->GetName(); }
  const std::string& GetType() const { return opDesc_->GetType(); }
  OpDescPtr GetOpDesc() const { return opDesc_; }

  InDataAnchorPtr GetInDataAnchor(int index) const;
  OutDataAnchorPtr GetOutDataAnchor(int index) const;
  RangeVistor<InDataAnchorPtr, std::shared_ptr<Node>> GetAllInDataAnchors() const;
  RangeVistor<OutDataAnchorPtr, std::shared_ptr<Node>> GetAllOutDataAnchors() const;
  size_t GetAllInDataAnchorsSize() const { return inAnchors_.size(); }
  size_t GetAllOutDataAnchorsSize() const { return outAnchors_.size(); }
  const InAnchorList& InAnchors() const { return inAnchors_; }
  const OutAnchorList& OutAnchors() const { return outAnchors_; }

  // The graph that holds the node; null once the node has left it.
  ComputeGraph* GetOwnerComputeGraph() const { return graph_; }

 protected:
  // `graph` is the graph adding the node; the node's anchors live in its arena.
  LegacyNode(OpDescPtr opDesc, ComputeGraph* graph);
  // One anchor per description. Called once the whole node exists, since anchors point at it.
  void CreateAnchors();

 private:
  friend class LegacyGraph;
  friend class GraphListWalker;
  friend class GraphUtils;
  friend class NodeSpec;
  friend class NodeWalker;
  friend class NodeCompatibler;
  friend class OpDescUtils;
  friend class ModelSerializer;
  friend class NameIndex;

  // Appends an input with its description and anchor; returns the new anchor.
  InDataAnchor& AppendInput(const TensorDesc& desc);
  InDataAnchor& AppendInputAnchor();
  OutDataAnchor& AppendOutputAnchor();
  template <typename T>
  T& NewAnchor(size_t index);
  std::pmr::memory_resource* AnchorMemory() const;

  // Control edges, which few nodes have; kept apart so that they cost other nodes one pointer.
  struct ControlEdges {
    std::vector<Node*> in;
    std::vector<Node*> out;
  };
  const std::vector<Node*>& InControl() const;
  const std::vector<Node*>& OutControl() const;
  ControlEdges& MutableControl();

  OpDescPtr opDesc_;
  GraphArena* arena_;  // the graph's, where the anchors and their lists live; outlives the node
  InAnchorList inAnchors_;
  OutAnchorList outAnchors_;
  std::unique_ptr<ControlEdges> control_;

  // Bookkeeping of the holding graph.
  ComputeGraph* graph_ = nullptr;
  Node* prev_ = nullptr;  // neighbours in the graph's node list
  Node* next_ = nullptr;
  std::string_view indexedName_;  // the key under which the graph indexes the node
  // Order of addition, and where the graph keeps its reference to the node: walks skip nodes
  // added after they began.
  uint32_t sequence_ = 0;
  bool removed_ = false;
};

// A node of a compute graph. Created only by the graph (LegacyGraph::AddNode). Its roles are
// empty bases, so they cost the node no memory.
class Node : public LegacyNode,
             public std::enable_shared_from_this<Node>,
             private NodeSpec,
             private NodeWalker,
             private NodeCompatibler {
 public:
  Node(OpDescPtr opDesc, ComputeGraph* graph) : LegacyNode(std::move(opDesc), graph) {
    CreateAnchors();
  }

  NodeSpec& RoleNodeSpec() { return *this; }
  const NodeSpec& RoleNodeSpec() const { return *this; }
  NodeWalker& RoleNodeWalker() { return *this; }
  const NodeWalker& RoleNodeWalker() const { return *this; }
  NodeCompatibler& RoleNodeCompatibler() { return *this; }

 private:
  template <typename Role>
  friend class NodeRole;
};

template <typename Role>
Node& NodeRole<Role>::Self() const {
  return const_cast<Node&>(static_cast<const Node&>(static_cast<const Role&>(*this)));
}

}  // namespace tov

#endif
