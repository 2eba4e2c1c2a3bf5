// A plain view of a graph, the same for the source model's bytes and for the converted compute
// graph, so that the report compares, lists and draws both with one piece of code. A view of a
// 100k-node graph is built in a few tens of milliseconds: each node's attributes and inputs are
// kept as one text rather than as many small ones, the texts live in a few large blocks rather
// than in a string per node, and a type or attribute set that many nodes share is kept once.
#ifndef TESU_TOOLS_REPORT_GRAPH_VIEW_H
#define TESU_TOOLS_REPORT_GRAPH_VIEW_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "graph/compute_graph.h"

namespace tesu {
namespace cli {
namespace report {

// Separators of the entries of ViewNode::attrs and ViewNode::inputs. The texts between them have
// their control characters made visible (AppendVisible), so a name never holds a separator.
constexpr char kEntryEnd = '\n';
constexpr char kNameEnd = '\t';

// Appends `text` with each control character written visibly, as "\n", "\t", "\r" or "\x1e", so
// that a name shows what it holds and cannot pass for a separator or a line of its own.
// Backslashes are kept as typed.
void AppendVisible(std::string& out, std::string_view text);
// `text` when it has no control character, else its visible form in `scratch`.
std::string_view Visible(std::string_view text, std::string& scratch);

// Numbers by text: open addressing over one array of small slots, so that a lookup costs a probe
// or two in one block of memory rather than a walk over separately allocated entries. The texts
// must outlive the index.
class TextIndex {
 public:
  static constexpr uint32_t kNone = ~uint32_t{0};

  // The number of `text`, or kNone.
  uint32_t Find(std::string_view text) const;
  // Gives `text` the number `value` unless it has one; returns the number it has.
  uint32_t Insert(std::string_view text, uint32_t value);
  void Reserve(size_t count);
  size_t Size() const { return entries_.size(); }

 private:
  struct Entry {
    std::string_view text;
    uint32_t value;
  };
  struct Slot {
    uint32_t hash = 0;
    uint32_t entry = kNone;  // kNone: the slot is free
  };
  static uint32_t Hash(std::string_view text);
  // The slot of `text`, or the free slot where it would go.
  size_t Probe(std::string_view text, uint32_t hash) const;
  void Grow(size_t capacity);

  std::vector<Entry> entries_;  // in the order they were added
  std::vector<Slot> slots_;     // a power of two of them, at most half in use
};

// Texts kept once each and numbered in the order they were first added. Texts stay where they
// are while the table grows or moves, so views of them stay valid.
class TextTable {
 public:
  uint32_t Add(std::string_view text);
  // Adds a text that is not looked for again (it names a node, say), without indexing it; an
  // equal text added later gets a number of its own.
  uint32_t AddOnce(std::string_view text);
  std::string_view operator[](uint32_t id) const { return texts_[id]; }
  size_t Size() const { return texts_.size(); }

 private:
  std::deque<std::string> texts_;  // a deque keeps its elements in place, for the keys below
  TextIndex ids_;
};

// Copies of texts, in large blocks that are never moved or freed before the arena.
class TextArena {
 public:
  TextArena() = default;
  // A moved-from arena starts afresh rather than writing into the blocks it gave away.
  TextArena(TextArena&& other) noexcept { *this = std::move(other); }
  TextArena& operator=(TextArena&& other) noexcept {
    blocks_ = std::move(other.blocks_);
    next_ = std::exchange(other.next_, nullptr);
    left_ = std::exchange(other.left_, 0);
    return *this;
  }

  std::string_view Copy(std::string_view text);

 private:
  std::vector<std::unique_ptr<char[]>> blocks_;
  char* next_ = nullptr;  // the free end of the last block
  size_t left_ = 0;
};

// Every text of a view (names, types, attribute names and values, inputs) is in visible form.
struct ViewNode {
  std::string_view name;
  // The type and the attributes are texts of the view's table; nodes of one type and one set of
  // attribute values share them, and compare by number.
  std::string_view type;
  // One line per attribute, sorted by name: "name\tvalue\n". The value is a short rendering:
  // numbers, quoted strings, lists of up to 16 values, tensors as
  // data type and shape.
  std::string_view attrs;
  // One line per input in the model file's form: "producer:k\n" for a data input, "\n" for an
  // unconnected one, "producer:-1\n" for a control edge.
  std::string_view inputs;
  uint32_t typeId = 0;
  uint32_t attrsId = 0;
};

struct GraphView {
  std::vector<ViewNode> nodes;  // in graph order
  TextTable texts;              // the nodes' types and attribute sets
  TextArena arena;              // the nodes' names and inputs
  // By type, the attribute set of the last node of that type: nodes of a type mostly share
  // theirs with the one before, which a comparison finds sooner than a lookup.
  std::vector<uint32_t> lastAttrs;
  // Node name to position (first namesake). Only views that are looked up by name (the
  // converted graph's) have one: indexing 100k names is not free.
  TextIndex index;
  bool namesakes = false;  // whether an indexed name is that of more than one node

  GraphView() = default;
  // The nodes refer to the view's texts, so a view moves but does not copy.
  GraphView(GraphView&&) = default;
  GraphView& operator=(GraphView&&) = default;
  GraphView(const GraphView&) = delete;
  GraphView& operator=(const GraphView&) = delete;

  // Adds a node, copying its texts into the view; the name and type are made visible here, the
  // attributes and inputs come visible.
  void Add(std::string_view name, std::string_view type, std::string_view attrs,
           std::string_view inputs);
  const ViewNode* Find(std::string_view name) const;
  // Fills `index`; called once the nodes are in place.
  void IndexNames();
};

// Calls `entry(line)` for each line of an attrs or inputs string, without the line end.
template <typename Entry>
void ForEachEntry(std::string_view lines, Entry entry) {
  size_t start = 0;
  while (start < lines.size()) {
    size_t end = lines.find(kEntryEnd, start);
    if (end == std::string_view::npos) end = lines.size();
    entry(lines.substr(start, end - start));
    start = end + 1;
  }
}

// The producer's name of an input entry: "conv1:0" -> "conv1"; "" for an unconnected input.
std::string_view ProducerOf(std::string_view input);
bool IsControlInput(std::string_view input);

// The first graph of serialised ModelDef bytes, without an index; empty when they do not parse
// or hold no graph. `expectedNodes`, when known, saves growing the node list as it is read. Read
// field by field from the bytes: the message is never built, so tensor data is neither parsed nor
// copied.
GraphView SourceViewOf(std::string_view serialisedModel, size_t expectedNodes = 0);
// A compute graph as a view, indexed, inputs written the way the model file writes them.
GraphView ViewOf(const tov::ComputeGraph& graph);

}  // namespace report
}  // namespace cli
}  // namespace tesu

#endif
