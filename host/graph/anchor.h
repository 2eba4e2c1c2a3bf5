#ifndef TOV_GRAPH_ANCHOR_H
#define TOV_GRAPH_ANCHOR_H

#include <memory>
#include <vector>

#include "graph/types.h"

namespace tov {

class Node;
class InDataAnchor;
class OutDataAnchor;

// A snapshot of an anchor's peers: a copy, so iterating it stays safe while edges change.
template <typename T, typename O>
class RangeVistor {
 public:
  RangeVistor(O owner, std::vector<T> elements)
      : owner_(std::move(owner)), elements_(std::move(elements)) {}
  typename std::vector<T>::const_iterator begin() const { return elements_.begin(); }
  typename std::vector<T>::const_iterator end() const { return elements_.end(); }
  size_t size() const { return elements_.size(); }
  bool empty() const { return elements_.empty(); }
  const T& at(size_t index) const { return elements_.at(index); }
  const O& GetOwner() const { return owner_; }

 private:
  O owner_;
  std::vector<T> elements_;
};

// One data input or output of a node. Anchors belong to their node; an anchor held past its
// node's life reports no owner and no peers.
class Anchor {
 public:
  Anchor(Node* owner, int index) : owner_(owner), index_(index) {}
  virtual ~Anchor() = default;
  Anchor(const Anchor&) = delete;
  Anchor& operator=(const Anchor&) = delete;

  std::shared_ptr<Node> GetOwnerNode() const;
  Node* GetOwnerNodeRaw() const { return owner_; }
  int GetIdx() const { return index_; }

 private:
  friend class LegacyNode;
  friend class NodeCompatibler;
  Node* owner_;
  int index_;
};

using InDataAnchorPtr = std::shared_ptr<InDataAnchor>;
using OutDataAnchorPtr = std::shared_ptr<OutDataAnchor>;

// A data input: at most one producer.
class InDataAnchor : public Anchor, public std::enable_shared_from_this<InDataAnchor> {
 public:
  using Anchor::Anchor;
  OutDataAnchorPtr GetPeerOutAnchor() const;
  OutDataAnchor* GetPeerOutAnchorRaw() const { return peer_; }

 private:
  friend class GraphUtils;
  friend class LegacyGraph;
  OutDataAnchor* peer_ = nullptr;
};

// A data output: any number of consumers, kept in the order the edges were added.
class OutDataAnchor : public Anchor, public std::enable_shared_from_this<OutDataAnchor> {
 public:
  using Anchor::Anchor;
  RangeVistor<InDataAnchorPtr, OutDataAnchorPtr> GetPeerInDataAnchors() const;
  const std::vector<InDataAnchor*>& GetPeersRaw() const { return peers_; }
  size_t GetPeerInDataNodesSize() const { return peers_.size(); }

 private:
  friend class GraphUtils;
  friend class LegacyGraph;
  std::vector<InDataAnchor*> peers_;
};

}  // namespace tov

#endif
