#include "graph/anchor.h"

#include "graph/node.h"

namespace tov {

std::shared_ptr<Node> Anchor::GetOwnerNode() const {
  return owner_ == nullptr ? nullptr : owner_->shared_from_this();
}

template <typename T>
std::shared_ptr<T> Anchor::Share(T& anchor) {
  if (anchor.owner_ == nullptr) return nullptr;
  return std::shared_ptr<T>(anchor.owner_->shared_from_this(), &anchor);
}
template InDataAnchorPtr Anchor::Share(InDataAnchor&);
template OutDataAnchorPtr Anchor::Share(OutDataAnchor&);

OutDataAnchorPtr InDataAnchor::GetPeerOutAnchor() const {
  return peer_ == nullptr ? nullptr : Share(*peer_);
}

RangeVistor<InDataAnchorPtr, OutDataAnchorPtr> OutDataAnchor::GetPeerInDataAnchors() const {
  std::vector<InDataAnchorPtr> peers;
  peers.reserve(consumerCount_);
  for (InDataAnchor* peer : GetPeersRaw()) peers.push_back(Share(*peer));
  return RangeVistor<InDataAnchorPtr, OutDataAnchorPtr>(Share(const_cast<OutDataAnchor&>(*this)),
                                                        std::move(peers));
}

InDataAnchor* OutDataAnchor::ConsumerAt(size_t position) const {
  InDataAnchor* at = firstConsumer_;
  for (; at != nullptr && position > 0; --position) at = at->nextConsumer_;
  return at;
}

void OutDataAnchor::Link(InDataAnchor& consumer) {
  consumer.peer_ = this;
  consumer.prevConsumer_ = lastConsumer_;
  consumer.nextConsumer_ = nullptr;
  (lastConsumer_ != nullptr ? lastConsumer_->nextConsumer_ : firstConsumer_) = &consumer;
  lastConsumer_ = &consumer;
  ++consumerCount_;
}

void OutDataAnchor::Unlink(InDataAnchor& consumer) {
  (consumer.prevConsumer_ != nullptr ? consumer.prevConsumer_->nextConsumer_ : firstConsumer_) =
      consumer.nextConsumer_;
  (consumer.nextConsumer_ != nullptr ? consumer.nextConsumer_->prevConsumer_ : lastConsumer_) =
      consumer.prevConsumer_;
  consumer.peer_ = nullptr;
  consumer.prevConsumer_ = consumer.nextConsumer_ = nullptr;
  --consumerCount_;
}

void OutDataAnchor::UnlinkAll() {
  for (InDataAnchor* at = firstConsumer_; at != nullptr;) {
    InDataAnchor* next = at->nextConsumer_;
    at->peer_ = nullptr;
    at->prevConsumer_ = at->nextConsumer_ = nullptr;
    at = next;
  }
  firstConsumer_ = lastConsumer_ = nullptr;
  consumerCount_ = 0;
}

}  // namespace tov
