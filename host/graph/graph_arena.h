// Where a graph's objects live, and the one place that decides how. Every node, op description,
// tensor description, anchor and loaded tensor of a graph is carved out of one arena that the
// graph owns, so building a graph costs a few large allocations instead of several small ones per
// node, and nothing is returned to the heap piece by piece. Nodes, op descriptions, tensor
// descriptions and anchors each have a region of their own, with the lists that point to them,
// so a walk over the node list reads each kind from consecutive memory.
//
// Nodes, op descriptions and tensors are handed out as shared pointers: each one's piece keeps
// the arena alive, so a node or tensor held past its graph stays valid. Anchors and tensor
// descriptions are plain objects owned by their node or description, and the lists those keep
// are ArenaVectors, two words each.
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
#include <iterator>
#include <memory>
#include <memory_resource>
#include <new>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace tov {

// Hands out memory from blocks of a fixed size taken from the heap, and gives the blocks back
// only when it is destroyed. Unlike a geometrically growing buffer, it never holds more than one
// block's worth of memory it has not handed out.
class BlockResource : public std::pmr::memory_resource {
 public:
  BlockResource() = default;
  BlockResource(const BlockResource&) = delete;
  BlockResource& operator=(const BlockResource&) = delete;
  ~BlockResource() override;

 private:
  static constexpr size_t kBlockBytes = 2 << 20;

  void* do_allocate(size_t bytes, size_t alignment) override {
    if (current_ == nullptr || Aligned(alignment) + bytes > capacity_) NewBlock(bytes + alignment);
    const size_t offset = Aligned(alignment);
    used_ = offset + bytes;
    if (used_ > mapped_) MapAhead();
    return current_ + offset;
  }
  // The first offset at or after used_ whose address has that alignment.
  size_t Aligned(size_t alignment) const {
    const uintptr_t at = reinterpret_cast<uintptr_t>(current_) + used_;
    return used_ + ((alignment - at % alignment) % alignment);
  }
  void do_deallocate(void*, size_t, size_t) override {}
  bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override {
    return this == &other;
  }
  void NewBlock(size_t atLeast);
  // Has the kernel map the current block's pages up to a little past used_ in one call: a fresh
  // block would otherwise be mapped page by page, one fault per page as it is first written.
  void MapAhead();

  std::vector<void*> blocks_;
  char* current_ = nullptr;
  size_t capacity_ = 0;
  size_t used_ = 0;
  size_t mapped_ = 0;  // how much of the current block has been mapped ahead
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

  // A copy of the bytes that lives as long as the arena.
  std::string_view CopyString(std::string_view text) {
    if (text.empty()) return {};
    char* bytes = static_cast<char*>(regions_[kOther].allocate(text.size(), 1));
    std::memcpy(bytes, text.data(), text.size());
    return {bytes, text.size()};
  }

 private:
  template <typename T, Region R>
  friend class ArenaAllocator;
  friend class ArenaRef;
  GraphArena() = default;
  void Acquire() { references_.fetch_add(1, std::memory_order_relaxed); }
  void Release() {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }
  std::atomic<size_t> references_{0};
  BlockResource regions_[kRegions];
};

inline ArenaRef::ArenaRef(GraphArena* arena) : arena_(arena) {
  if (arena_ != nullptr) arena_->Acquire();
}

inline ArenaRef::~ArenaRef() {
  if (arena_ != nullptr) arena_->Release();
}

// A standard allocator over one region of an arena. Each piece it hands out holds the arena
// alive until that piece is given back (giving it back frees nothing: the arena returns
// everything at once when its last user is gone). Copies of the allocator hold nothing, so the
// several copies a shared pointer's construction makes cost no reference counting.
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
    T* piece = static_cast<T*>(arena_->Resource(R)->allocate(count * sizeof(T), alignof(T)));
    arena_->Acquire();
    return piece;
  }
  // May free the arena, and with it the piece: nothing may touch the piece afterwards.
  void deallocate(T*, size_t) noexcept { arena_->Release(); }

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
  GraphArena* arena_;
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

// The memory resource for containers owned by objects of that arena: the region of the objects
// they point to, so that a walk finds both in the same stretch of memory, or the heap.
inline std::pmr::memory_resource* ResourceOf(GraphArena* arena,
                                             GraphArena::Region region = GraphArena::kOther) {
  return arena == nullptr ? std::pmr::get_default_resource() : arena->Resource(region);
}

// A list of plain values (pointers, flags) kept by an object of a graph in its arena. It does not
// remember where its storage comes from: its owner, which knows, passes the memory resource to
// every call that may allocate and to Release. So the list is two words instead of a standard
// vector's four, and a node or op description, which keep several, stays small.
template <typename T>
class ArenaVector {
  static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>,
                "elements are moved as bytes and never destroyed");

 public:
  using value_type = T;
  using iterator = T*;
  using const_iterator = const T*;

  ArenaVector() = default;
  ArenaVector(const ArenaVector&) = delete;
  ArenaVector& operator=(const ArenaVector&) = delete;

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  T* begin() { return data_; }
  T* end() { return data_ + size_; }
  const T* begin() const { return data_; }
  const T* end() const { return data_ + size_; }
  T& operator[](size_t index) { return data_[index]; }
  const T& operator[](size_t index) const { return data_[index]; }

  void reserve(size_t count, std::pmr::memory_resource* resource) {
    if (count <= capacity_) return;
    if (count > UINT32_MAX) throw std::bad_alloc();
    T* grown = static_cast<T*>(resource->allocate(count * sizeof(T), alignof(T)));
    if (data_ != nullptr) {
      std::memcpy(grown, data_, size_ * sizeof(T));
      resource->deallocate(data_, capacity_ * sizeof(T), alignof(T));
    }
    data_ = grown;
    capacity_ = static_cast<uint32_t>(count);
  }
  void insert(size_t at, T value, std::pmr::memory_resource* resource) {
    if (size_ == capacity_) reserve(std::max<size_t>(4, size_t{capacity_} * 2), resource);
    std::memmove(data_ + at + 1, data_ + at, (size_ - at) * sizeof(T));
    data_[at] = value;
    ++size_;
  }
  void push_back(T value, std::pmr::memory_resource* resource) { insert(size_, value, resource); }
  void erase(size_t at) {
    std::memmove(data_ + at, data_ + at + 1, (size_ - at - 1) * sizeof(T));
    --size_;
  }
  template <typename It>
  void assign(It first, It last, std::pmr::memory_resource* resource) {
    size_ = 0;
    reserve(static_cast<size_t>(std::distance(first, last)), resource);
    for (; first != last; ++first) data_[size_++] = static_cast<T>(*first);
  }
  // Gives the storage back; the list is empty afterwards.
  void Release(std::pmr::memory_resource* resource) {
    if (data_ != nullptr) resource->deallocate(data_, capacity_ * sizeof(T), alignof(T));
    data_ = nullptr;
    size_ = capacity_ = 0;
  }

 private:
  T* data_ = nullptr;
  uint32_t size_ = 0;
  uint32_t capacity_ = 0;
};

}  // namespace tov

#endif
