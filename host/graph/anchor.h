#ifndef TOV_GRAPH_ANCHOR_H
#define TOV_GRAPH_ANCHOR_H

#include <cstdint>
#include <memory>
#include <vector>

#include "graph/types.h"

namespace tov {

class Node;
class InDataAnchor;
class ConsumerRange;
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

// One data input or output of a node. Anchors live in their node's graph arena and belong to
// their node: a shared handle to an anchor shares its node's ownership, so the node lives as long
// as any handle to one of its anchors. An anchor removed from its node reports no owner and no
// peers.
class Anchor {
 public:
  Anchor(Node* owner, int index) : owner_(owner), index_(index) {}
  Anchor(const Anchor&) = delete;
  Anchor& operator=(const Anchor&) = delete;

  std::shared_ptr<Node> GetOwnerNode() const;
  Node* GetOwnerNodeRaw() const { return owner_; }
  int GetIdx() const { return index_; }

 protected:
  ~Anchor() = default;
  // A shared handle to `anchor` that holds its owner alive; null for an anchor without one.
  template <typename T>
  static std::shared_ptr<T> Share(T& anchor);

 private:
  friend class LegacyNode;
  friend class NodeCompatibler;
  Node* owner_;
  int index_;
};

using InDataAnchorPtr = std::shared_ptr<InDataAnchor>;
using OutDataAnchorPtr = std::shared_ptr<OutDataAnchor>;

// A data input: at most one producer. Consumers of one output are chained through their inputs,
// so adding or removing an edge touches only its two ends and their neighbours.
class InDataAnchor final : public Anchor {
 public:
  using Anchor::Anchor;
  OutDataAnchorPtr GetPeerOutAnchor() const;
  OutDataAnchor* GetPeerOutAnchorRaw() const { return peer_; }

 private:
  friend class GraphUtils;
  friend class LegacyGraph;
  friend class LegacyNode;
  friend class OutDataAnchor;
  friend class ConsumerRange;
  OutDataAnchor* peer_ = nullptr;
  InDataAnchor* prevConsumer_ = nullptr;  // siblings among the consumers of peer_
  InDataAnchor* nextConsumer_ = nullptr;
};

// The consumers of an output, in the order their edges were added. A live view: it must not be
// iterated while edges of that output change (take GetPeerInDataAnchors() for that).
class ConsumerRange {
 public:
  class iterator {
   public:
    explicit iterator(InDataAnchor* at) : at_(at) {}
    InDataAnchor* operator*() const { return at_; }
    iterator& operator++();
    bool operator==(const iterator& other) const { return at_ == other.at_; }
    bool operator!=(const iterator& other) const { return at_ != other.at_; }

   private:
    InDataAnchor* at_;
  };
  ConsumerRange(InDataAnchor* first, size_t size) : first_(first), size_(size) {}
  iterator begin() const { return iterator(first_); }
  iterator end() const { return iterator(nullptr); }
  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

 private:
  InDataAnchor* first_;
  size_t size_;
};

// A data output: any number of consumers, kept in the order the edges were added.
class OutDataAnchor final : public Anchor {
 public:
  using Anchor::Anchor;
  RangeVistor<InDataAnchorPtr, OutDataAnchorPtr> GetPeerInDataAnchors() const;
  ConsumerRange GetPeersRaw() const { return ConsumerRange(firstConsumer_, consumerCount_); }
  size_t GetPeerInDataNodesSize() const { return consumerCount_; }
  // The consumer of edge `position`, or null; O(position).
  InDataAnchor* ConsumerAt(size_t position) const;

 private:
  friend class GraphUtils;
  friend class LegacyGraph;
  friend class LegacyNode;
  void Link(InDataAnchor& consumer);
  void Unlink(InDataAnchor& consumer);
  // Detaches every consumer at once; O(consumers).
  void UnlinkAll();

  // First, so that it fills the space the base leaves after its index: an output is 32 bytes.
  uint32_t consumerCount_ = 0;
  InDataAnchor* firstConsumer_ = nullptr;
  InDataAnchor* lastConsumer_ = nullptr;
};

inline ConsumerRange::iterator& ConsumerRange::iterator::operator++() {
  at_ = at_->nextConsumer_;
  return *this;
}

}  // namespace tov

#endif
