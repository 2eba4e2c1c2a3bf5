#include "graph/anchor.h"

#include "graph/node.h"

namespace tov {

std::shared_ptr<Node> Anchor::GetOwnerNode() const {
  return owner_ == nullptr ? nullptr : owner_->shared_from_this();
}

OutDataAnchorPtr InDataAnchor::GetPeerOutAnchor() const {
  return peer_ == nullptr ? nullptr : peer_->shared_from_this();
}

RangeVistor<InDataAnchorPtr, OutDataAnchorPtr> OutDataAnchor::GetPeerInDataAnchors() const {
  std::vector<InDataAnchorPtr> peers;
  peers.reserve(peers_.size());
  for (InDataAnchor* peer : peers_) peers.push_back(peer->shared_from_this());
  return RangeVistor<InDataAnchorPtr, OutDataAnchorPtr>(
      std::const_pointer_cast<OutDataAnchor>(shared_from_this()), std::move(peers));
}

}  // namespace tov
