// Where a graph's objects live. Every node, op description, tensor description, anchor and
// loaded tensor of a graph is carved out of one arena that the graph owns, so building a graph
// costs a few large allocations instead of several small ones per node, and nothing is returned
// to the heap piece by piece. Nodes, op descriptions, tensor descriptions and anchors each have a
// region of their own, so a walk over the node list reads each kind from consecutive memory.
// Objects are still handed out as shared pointers: each one's control block keeps the arena
// alive, so a node or tensor held past its graph stays valid.
//
// The arena is not thread-safe, like the graph it belongs to: one graph is built and edited by
// one thread at a time.
#ifndef TOV_GRAPH_GRAPH_ARENA_H
#define TOV_GRAPH_GRAPH_ARENA_H

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <memory_resource>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace tov {

// Hands out memory from blocks of a fixed size, and gives the blocks back only when it is
// destroyed. Unlike a geometrically growing buffer, it never holds more than one block's worth of
// memory it has not handed out. The first block is ordinary heap memory, which is all a small
// graph needs; later ones are aligned for huge pages (see NewBlock).
//
// Small pieces that are given back (the old buffer of a vector that grew, a node removed by a
// pass) are kept on a list per size and handed out again before new memory is taken, so editing
// a graph reuses what it frees. Pieces may be given back from any thread (a handle released
// after its graph is gone); memory is taken only by the thread that edits the graph.
class BlockResource : public std::pmr::memory_resource {
 public:
  BlockResource() = default;
  BlockResource(const BlockResource&) = delete;
  BlockResource& operator=(const BlockResource&) = delete;
  ~BlockResource() override;

  // Pieces given back from now on are not kept for reuse: the owner is going, and listing them
  // would only cost time.
  void StopReuse() { closing_.store(true, std::memory_order_relaxed); }

 private:
  static constexpr size_t kBlockBytes = 2 << 20;
  // Every piece is a whole number of grains, so a piece given back fits any request of its size.
  static constexpr size_t kGrain = 8;
  static constexpr size_t kMaxReusedBytes = 1024;

  static size_t Rounded(size_t bytes) {
    return bytes == 0 ? kGrain : (bytes + kGrain - 1) / kGrain * kGrain;
  }
  static bool Reusable(size_t rounded, size_t alignment) {
    return rounded <= kMaxReusedBytes && alignment <= kGrain;
  }

  void* do_allocate(size_t bytes, size_t alignment) override {
    bytes = Rounded(bytes);
    if (Reusable(bytes, alignment)) {
      if (void* reused = TakeFreed(bytes)) return reused;
    }
    if (current_ == nullptr || Aligned(alignment) + bytes > capacity_) NewBlock(bytes + alignment);
    const size_t offset = Aligned(alignment);
    used_ = offset + bytes;
    return current_ + offset;
  }
  // The first offset at or after used_ whose address has that alignment.
  size_t Aligned(size_t alignment) const {
    const uintptr_t at = reinterpret_cast<uintptr_t>(current_) + used_;
    return used_ + ((alignment - at % alignment) % alignment);
  }
  void do_deallocate(void* piece, size_t bytes, size_t alignment) override {
    bytes = Rounded(bytes);
    // Past reuse, or too large to reuse: it stays unused until the arena goes.
    if (!Reusable(bytes, alignment) || closing_.load(std::memory_order_relaxed)) return;
    std::atomic<void*>& head = freed_[bytes / kGrain - 1];
    void* next = head.load(std::memory_order_relaxed);
    do {
      *static_cast<void**>(piece) = next;
    } while (!head.compare_exchange_weak(next, piece, std::memory_order_release,
                                         std::memory_order_relaxed));
  }
  // Only the editing thread takes pieces, so the head cannot be taken and given back between
  // reading it and swapping it out.
  void* TakeFreed(size_t bytes) {
    std::atomic<void*>& head = freed_[bytes / kGrain - 1];
    void* piece = head.load(std::memory_order_acquire);
    while (piece != nullptr &&
           !head.compare_exchange_weak(piece, *static_cast<void**>(piece),
                                       std::memory_order_acquire, std::memory_order_acquire)) {
    }
    return piece;
  }
  bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override {
    return this == &other;
  }
  void NewBlock(size_t atLeast);

  struct Block {
    void* memory;
    bool huge;  // aligned for huge pages, and freed with that alignment
  };
  std::vector<Block> blocks_;
  char* current_ = nullptr;
  size_t capacity_ = 0;
  size_t used_ = 0;
  std::atomic<void*> freed_[kMaxReusedBytes / kGrain] = {};  // pieces given back, per size
  std::atomic<bool> closing_{false};
};

class GraphArena;

// A counted reference to an arena: the arena lives while any reference to it does. One pointer
// wide, so that it costs every object's control block as little as possible.
class ArenaRef {
 public:
  ArenaRef() = default;
  explicit ArenaRef(GraphArena* arena);
  ArenaRef(const ArenaRef& other) : ArenaRef(other.arena_) {}
  ArenaRef(ArenaRef&& other) noexcept : arena_(other.arena_) { other.arena_ = nullptr; }
  ArenaRef& operator=(ArenaRef other) noexcept {
    std::swap(arena_, other.arena_);
    return *this;
  }
  ~ArenaRef();
  GraphArena* get() const { return arena_; }
  GraphArena* operator->() const { return arena_; }
  bool operator==(const ArenaRef& other) const { return arena_ == other.arena_; }

 private:
  GraphArena* arena_ = nullptr;
};

class GraphArena {
 public:
  static ArenaRef Create() { return ArenaRef(new GraphArena()); }

  // Regions of the arena.
  enum Region { kNodes, kOpDescs, kTensorDescs, kAnchors, kOther, kRegions };

  GraphArena(const GraphArena&) = delete;
  GraphArena& operator=(const GraphArena&) = delete;

  std::pmr::memory_resource* Resource(Region region = kOther) { return &regions_[region]; }

  // The graph is being destroyed: what it frees need not be kept for reuse.
  void StopReuse() {
    for (BlockResource& region : regions_) region.StopReuse();
  }

  // A copy of the bytes that lives as long as the arena.
  std::string_view CopyString(std::string_view text) {
    if (text.empty()) return {};
    char* bytes = static_cast<char*>(regions_[kOther].allocate(text.size(), 1));
    std::memcpy(bytes, text.data(), text.size());
    return {bytes, text.size()};
  }

 private:
  friend class ArenaRef;
  GraphArena() = default;
  std::atomic<size_t> references_{0};
  BlockResource regions_[kRegions];
};

inline ArenaRef::ArenaRef(GraphArena* arena) : arena_(arena) {
  if (arena_ != nullptr) arena_->references_.fetch_add(1, std::memory_order_relaxed);
}

inline ArenaRef::~ArenaRef() {
  if (arena_ != nullptr && arena_->references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    delete arena_;
  }
}

// A standard allocator over one region of an arena that holds the arena alive. What it frees goes
// back to the region for reuse; the arena gives everything back at once when its last user is
// gone.
template <typename T, GraphArena::Region R>
class ArenaAllocator {
 public:
  using value_type = T;
  template <typename U>
  struct rebind {
    using other = ArenaAllocator<U, R>;
  };

  explicit ArenaAllocator(GraphArena* arena) : arena_(arena) {}
  template <typename U>
  ArenaAllocator(const ArenaAllocator<U, R>& other) : arena_(other.arena_) {}  // NOLINT

  T* allocate(size_t count) {
    return static_cast<T*>(arena_->Resource(R)->allocate(count * sizeof(T), alignof(T)));
  }
  void deallocate(T* objects, size_t count) noexcept {
    arena_->Resource(R)->deallocate(objects, count * sizeof(T), alignof(T));
  }

  template <typename U>
  bool operator==(const ArenaAllocator<U, R>& other) const {
    return arena_ == other.arena_;
  }
  template <typename U>
  bool operator!=(const ArenaAllocator<U, R>& other) const {
    return !(arena_ == other.arena_);
  }

 private:
  template <typename U, GraphArena::Region>
  friend class ArenaAllocator;
  ArenaRef arena_;
};

class Node;
class OpDesc;
class TensorDesc;
class InDataAnchor;
class OutDataAnchor;

template <typename T>
constexpr GraphArena::Region RegionOf() {
  if constexpr (std::is_same_v<T, Node>) return GraphArena::kNodes;
  if constexpr (std::is_same_v<T, OpDesc>) return GraphArena::kOpDescs;
  if constexpr (std::is_same_v<T, TensorDesc>) return GraphArena::kTensorDescs;
  if constexpr (std::is_same_v<T, InDataAnchor> || std::is_same_v<T, OutDataAnchor>) {
    return GraphArena::kAnchors;
  }
  return GraphArena::kOther;
}

// A T in the arena when there is one, on the heap otherwise (objects built outside any graph).
template <typename T, typename... Args>
std::shared_ptr<T> MakeShared(GraphArena* arena, Args&&... args) {
  if (arena == nullptr) return std::make_shared<T>(std::forward<Args>(args)...);
  return std::allocate_shared<T>(ArenaAllocator<T, RegionOf<T>()>(arena),
                                 std::forward<Args>(args)...);
}

// The memory resource for containers owned by objects of that arena.
inline std::pmr::memory_resource* ResourceOf(GraphArena* arena) {
  return arena == nullptr ? std::pmr::get_default_resource() : arena->Resource();
}

}  // namespace tov

#endif
