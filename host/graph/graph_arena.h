// Where a graph's objects live. Every node, op description, tensor description, anchor and
// loaded tensor of a graph is carved out of one arena that the graph owns, so building a graph
// costs a few large allocations instead of several small ones per node, and nothing is returned
// to the heap piece by piece. Objects are still handed out as shared pointers: each one's
// control block keeps the arena alive, so a node or tensor held past its graph stays valid.
//
// The arena is not thread-safe, like the graph it belongs to: one graph is built and edited by
// one thread at a time.
#ifndef TOV_GRAPH_GRAPH_ARENA_H
#define TOV_GRAPH_GRAPH_ARENA_H

#include <cstddef>
#include <cstring>
#include <memory>
#include <memory_resource>
#include <string_view>
#include <utility>

namespace tov {

class GraphArena : public std::enable_shared_from_this<GraphArena> {
 public:
  static std::shared_ptr<GraphArena> Create() { return std::make_shared<GraphArena>(); }

  GraphArena() : resource_(kFirstBlockBytes) {}
  GraphArena(const GraphArena&) = delete;
  GraphArena& operator=(const GraphArena&) = delete;

  std::pmr::memory_resource* Resource() { return &resource_; }

  // A copy of the bytes that lives as long as the arena.
  std::string_view CopyString(std::string_view text) {
    if (text.empty()) return {};
    char* bytes = static_cast<char*>(resource_.allocate(text.size(), 1));
    std::memcpy(bytes, text.data(), text.size());
    return {bytes, text.size()};
  }

 private:
  static constexpr size_t kFirstBlockBytes = 64 * 1024;
  std::pmr::monotonic_buffer_resource resource_;
};

// A standard allocator over an arena that holds the arena alive. Freeing is a no-op: the arena
// gives everything back at once when its last user is gone.
template <typename T>
class ArenaAllocator {
 public:
  using value_type = T;

  explicit ArenaAllocator(std::shared_ptr<GraphArena> arena) : arena_(std::move(arena)) {}
  template <typename U>
  ArenaAllocator(const ArenaAllocator<U>& other) : arena_(other.arena_) {}  // NOLINT

  T* allocate(size_t count) {
    return static_cast<T*>(arena_->Resource()->allocate(count * sizeof(T), alignof(T)));
  }
  void deallocate(T*, size_t) noexcept {}

  template <typename U>
  bool operator==(const ArenaAllocator<U>& other) const {
    return arena_ == other.arena_;
  }
  template <typename U>
  bool operator!=(const ArenaAllocator<U>& other) const {
    return arena_ != other.arena_;
  }

 private:
  template <typename U>
  friend class ArenaAllocator;
  std::shared_ptr<GraphArena> arena_;
};

// A T in the arena when there is one, on the heap otherwise (objects built outside any graph).
template <typename T, typename... Args>
std::shared_ptr<T> MakeShared(GraphArena* arena, Args&&... args) {
  if (arena == nullptr) return std::make_shared<T>(std::forward<Args>(args)...);
  return std::allocate_shared<T>(ArenaAllocator<T>(arena->shared_from_this()),
                                 std::forward<Args>(args)...);
}

// The memory resource for containers owned by objects of that arena.
inline std::pmr::memory_resource* ResourceOf(GraphArena* arena) {
  return arena == nullptr ? std::pmr::get_default_resource() : arena->Resource();
}

}  // namespace tov

#endif
