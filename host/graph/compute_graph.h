#ifndef TOV_GRAPH_COMPUTE_GRAPH_H
#define TOV_GRAPH_COMPUTE_GRAPH_H

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <memory_resource>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "graph/attr_holder.h"
#include "graph/graph_arena.h"
#include "graph/name_index.h"
#include "graph/node.h"

namespace tov {

class ComputeGraph;

// Walks the node list in order.
class GraphListWalker {
 public:
  explicit GraphListWalker(ComputeGraph& graph) : graph_(graph) {}
  // Calls the callback for every node in node-list order; stops at and returns the first
  // non-zero status.
  graphStatus WalkAllNodes(std::function<graphStatus(Node&)> callback) const;
  // Runs the action on every node the filter accepts, in node-list order, and returns the first
  // non-zero status of an action. The action may remove its own node or any other, and add
  // nodes; removed nodes are not visited afterwards and nodes added during the walk never are.
  graphStatus WalkAllNodesModifiable(const std::function<bool(Node&)>& filter,
                                     std::function<graphStatus(Node&)> action) const;

 private:
  ComputeGraph& graph_;
};

// Removes a node while keeping the data flowing through it.
class GraphBypasser {
 public:
  explicit GraphBypasser(ComputeGraph& graph) : graph_(graph) {}
  // The node must have exactly one connected data input. Its producer is connected to every
  // consumer of the node's outputs, the node's control predecessors to its control successors,
  // and the node leaves the graph.
  graphStatus ByPassNode(const Node& node) const;

 private:
  ComputeGraph& graph_;
};

// A list of nodes in a defined order and the edges between them. Every operation costs what it
// touches: adding or removing a node is O(its edges), never O(graph).
class LegacyGraph {
 public:
  virtual ~LegacyGraph();
  LegacyGraph(const LegacyGraph&) = delete;
  LegacyGraph& operator=(const LegacyGraph&) = delete;

  // Creates a node with one input anchor per input description and one output anchor per output
  // description, and no edges; null when opDesc is null. A node whose name is already taken is
  // placed right after its namesake, so that a replacement built under the same name takes the
  // place of the node it replaces once that node is removed.
  NodePtr AddNode(OpDescPtr opDesc);
  // The same, for callers that already hashed the name with NameIndex::Hash.
  NodePtr AddNode(OpDescPtr opDesc, size_t nameHash);
  // Like AddNode, placed right before `next`.
  NodePtr InsertNodeBefore(OpDescPtr opDesc, Node& next);
  // Removes the node and every edge still attached to it. A Const node left without consumers
  // by the removal leaves the graph too, since weights belong to the nodes they feed.
  graphStatus RemoveNode(Node& node);

  size_t GetNodesSize() const { return nodeCount_; }
  // Room for that many nodes in the name index, for callers that know the count.
  void ReserveNodes(size_t count) { nameIndex_.Reserve(count); }
  // True while two nodes share a name (a replacement and the node it replaces, for instance).
  bool HasNamesakes() const { return namesakes_ > 0; }
  // The storage of this graph's objects (see GraphArena).
  GraphArena* Arena() const { return arena_.get(); }
  // A snapshot of the nodes in node-list order.
  std::vector<NodePtr> GetDirectNode() const;
  // A node with that name, or null; among namesakes, the one added first. O(1) expected.
  NodePtr FindNode(std::string_view name) const;
  // The same, without taking a reference.
  Node* FindNodeRaw(std::string_view name) const;
  Node* FindNodeRaw(std::string_view name, size_t nameHash) const;
  // Visits the nodes in order without copying the list; the callback must not add or remove.
  void ForEachNode(const std::function<void(Node&)>& callback) const;

 protected:
  LegacyGraph();

 private:
  friend class GraphListWalker;
  friend class OpDescUtils;
  friend class NodeCompatibler;
  friend class ModelSerializer;

  // Links a new node before `next` (null: at the end).
  NodePtr InsertAt(OpDescPtr opDesc, Node* next, size_t nameHash);
  // Takes the node out of the list and drops the graph's reference, which may destroy it.
  void Unlink(Node& node);
  void DetachEdges(Node& node, std::vector<Node*>& orphanedConsts);
  void RemoveOrphanedConsts(std::vector<Node*>& candidates);
  void Erase(Node& node);
  void BeginWalk() { ++walkDepth_; }
  void EndWalk();

  ArenaRef arena_;
  // The nodes in order, linked through the nodes themselves; the graph's references to them sit
  // in `owned_`, one slot per node ever added, in order of addition (a node's sequence_).
  Node* first_ = nullptr;
  Node* last_ = nullptr;
  std::vector<NodePtr> owned_;
  size_t nodeCount_ = 0;
  // Keyed by copies of the names kept in the arena, so renaming a description cannot break
  // the index.
  NameIndex nameIndex_;
  size_t namesakes_ = 0;  // nodes whose name an earlier node still has
  int walkDepth_ = 0;
  std::vector<Node*> pendingErase_;
};

// The mutable graph that parsers edit in place.
class ComputeGraph : public LegacyGraph, public AttrHolder {
 public:
  explicit ComputeGraph(const std::string& name = "")
      : name_(name), listWalker_(*this), bypasser_(*this) {}

  const std::string& GetName() const { return name_; }
  void SetName(const std::string& name) { name_ = name; }

  GraphListWalker& RoleGraphListWalker() { return listWalker_; }
  GraphBypasser& RoleGraphBypasser() { return bypasser_; }

 private:
  std::string name_;
  GraphListWalker listWalker_;
  GraphBypasser bypasser_;
};

using ComputeGraphPtr = std::shared_ptr<ComputeGraph>;

}  // namespace tov

#endif
