#include "conversion_diff.h"

#include <algorithm>
#include <array>
#include <set>
#include <string_view>
#include <unordered_map>

namespace tesu {
namespace cli {
namespace report {
namespace {

constexpr const char kArrow[] = " \u2192 ";
// The attribute that marks a graph output's format in the converted graph.
constexpr const char kOutputFormatAttr[] = "inferred_format";
// Two attribute names of one value are a rename when they share at least this long a prefix
// ("transpose_a" and "transpose_x1"); the bar keeps "mode = 1" from pairing with any removed
// attribute that happened to hold 1.
constexpr size_t kRenamePrefix = 3;

using Attr = std::pair<std::string_view, std::string_view>;  // name, value

void Append(std::string& text, std::string_view item) {
  if (!text.empty()) text += "; ";
  text += item;
}

std::string Str(std::string_view text) {
  return std::string(text);
}

bool SharesPrefix(std::string_view a, std::string_view b) {
  const auto mismatch = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
  return static_cast<size_t>(mismatch.first - a.begin()) >= kRenamePrefix;
}

// The change lines of one node, as they are written into Comparison::changes.
class ChangeList {
 public:
  void Clear() {
    text_.clear();
    weight_ = NodeComparison::kUnchanged;
  }
  void Assign(std::string_view lines, int weight) {
    text_.assign(lines.data(), lines.size());
    weight_ = weight;
  }
  void Add(std::string_view kind, std::string_view what) {
    text_ += kind;
    text_ += kNameEnd;
    text_ += what;
    text_ += kEntryEnd;
    const bool major = kind == change::kReplaced || kind == change::kFused ||
                       kind == change::kRemoved || kind == change::kAdded;
    weight_ = std::min(weight_, major ? NodeComparison::kMajor : NodeComparison::kMinor);
  }
  bool Empty() const { return text_.empty(); }
  const std::string& Text() const { return text_; }
  int Weight() const { return weight_; }

 private:
  std::string text_;
  int weight_ = NodeComparison::kUnchanged;
};

// Reads the next "name\tvalue" line of an attrs string; false at its end.
bool NextAttr(std::string_view& rest, Attr& attr) {
  if (rest.empty()) return false;
  size_t end = rest.find(kEntryEnd);
  if (end == std::string_view::npos) end = rest.size();
  const std::string_view line = rest.substr(0, end);
  rest.remove_prefix(std::min(rest.size(), end + 1));
  const size_t tab = line.find(kNameEnd);
  attr = {line.substr(0, tab),
          tab == std::string_view::npos ? std::string_view() : line.substr(tab + 1)};
  return true;
}

// Compares the attributes of the two sides of a node. One instance serves a whole graph, so its
// lists keep their storage from node to node.
class AttrComparer {
 public:
  // Renames, the output format and changed values. Attributes only added or removed are left
  // to the node's before-and-after listing: every node gains "version" and loses bookkeeping,
  // and listing that for 100k nodes would bury what matters.
  void Describe(const ViewNode& before, const ViewNode& after, ChangeList& changes) {
    if (before.attrs == after.attrs) return;
    Merge(before.attrs, after.attrs);
    std::string renamed;
    for (const Attr& gone : removed_) {
      for (Attr& added : added_) {
        if (added.first.empty() || added.second != gone.second ||
            !SharesPrefix(gone.first, added.first)) {
          continue;
        }
        Append(renamed, Str(gone.first) + kArrow + Str(added.first));
        added.first = std::string_view();  // paired
        break;
      }
    }
    if (!renamed.empty()) changes.Add(change::kRenamed, renamed);
    for (const Attr& added : added_) {
      if (added.first == kOutputFormatAttr) {
        changes.Add(change::kOutputFormat, "inferred_format = " + Str(added.second));
      }
    }
    if (!changed_.empty()) changes.Add(change::kAttributes, changed_);
  }

 private:
  // Both strings are sorted by name: one merge finds what only one side has and what differs.
  void Merge(std::string_view before, std::string_view after) {
    removed_.clear();
    added_.clear();
    changed_.clear();
    Attr b;
    Attr a;
    bool hasB = NextAttr(before, b);
    bool hasA = NextAttr(after, a);
    while (hasB || hasA) {
      if (!hasA || (hasB && b.first < a.first)) {
        removed_.push_back(b);
        hasB = NextAttr(before, b);
      } else if (!hasB || a.first < b.first) {
        added_.push_back(a);
        hasA = NextAttr(after, a);
      } else {
        if (b.second != a.second) {
          Append(changed_, Str(b.first) + " " + Str(b.second) + kArrow + Str(a.second));
        }
        hasB = NextAttr(before, b);
        hasA = NextAttr(after, a);
      }
    }
  }

  std::vector<Attr> removed_;
  std::vector<Attr> added_;
  std::string changed_;
};

std::vector<std::string_view> Lines(std::string_view text) {
  std::vector<std::string_view> lines;
  ForEachEntry(text, [&lines](std::string_view line) { lines.push_back(line); });
  return lines;
}

void DescribeInputs(const ViewNode& before, const ViewNode& after, ChangeList& changes) {
  if (before.inputs == after.inputs) return;
  std::vector<std::string_view> was = Lines(before.inputs);
  std::vector<std::string_view> is = Lines(after.inputs);
  std::sort(was.begin(), was.end());
  std::sort(is.begin(), is.end());
  std::vector<std::string_view> gone;
  std::vector<std::string_view> added;
  std::set_difference(was.begin(), was.end(), is.begin(), is.end(), std::back_inserter(gone));
  std::set_difference(is.begin(), is.end(), was.begin(), was.end(), std::back_inserter(added));
  std::string text;
  for (std::string_view input : added) Append(text, "+" + (input.empty() ? "(none)" : Str(input)));
  for (std::string_view input : gone) Append(text, "-" + (input.empty() ? "(none)" : Str(input)));
  changes.Add(change::kInputs, text.empty() ? "inputs reordered" : text);
}

// The type and attribute changes of a node kept by name.
void DescribeKept(const ViewNode& before, const ViewNode& after, AttrComparer& attrs,
                  ChangeList& changes) {
  if (before.type != after.type) {
    if (IsReplacedByItsConverter(Str(before.type))) {
      changes.Add(change::kReplaced, "replaced by a new " + Str(after.type) + " node");
    } else {
      changes.Add(change::kType, Str(before.type) + kArrow + Str(after.type));
    }
  }
  attrs.Describe(before, after, changes);
}

// The type and attribute changes by the texts of the two sides: nodes of a type with one set of
// attribute values change alike, and a 100k-node graph has a few hundred such pairs.
class KeptChanges {
 public:
  struct Known {
    uint32_t changes;
    int weight;
  };

  const Known& Of(const ViewNode& before, const ViewNode& after, TextTable& table) {
    const Key key{before.typeId, after.typeId, before.attrsId, after.attrsId};
    const auto found = known_.find(key);
    if (found != known_.end()) return found->second;
    list_.Clear();
    DescribeKept(before, after, attrs_, list_);
    return known_.emplace(key, Known{table.Add(list_.Text()), list_.Weight()}).first->second;
  }

 private:
  using Key = std::array<uint32_t, 4>;
  struct KeyHash {
    size_t operator()(const Key& key) const {
      uint64_t hash = 0;
      for (uint32_t part : key) hash = (hash ^ part) * 0x9e3779b97f4a7c15ULL;
      return static_cast<size_t>(hash ^ (hash >> 29));
    }
  };
  std::unordered_map<Key, Known, KeyHash> known_;
  AttrComparer attrs_;
  ChangeList list_;
};

std::string Joined(const std::vector<std::string_view>& names) {
  std::string text;
  for (std::string_view name : names) {
    if (!text.empty()) text += ", ";
    text += name;
  }
  return text;
}

// The consumers of the named nodes only: the gone nodes are few, the graph may be large.
class Consumers {
 public:
  void Want(std::string_view name) {
    const auto next = static_cast<uint32_t>(lists_.size());
    if (index_.Insert(name, next) == next) lists_.emplace_back();
  }
  // Finds the consumers of the wanted nodes among `nodes`, in their order.
  void Collect(const std::vector<const ViewNode*>& nodes) {
    if (lists_.empty()) return;
    for (const ViewNode* node : nodes) {
      ForEachEntry(node->inputs, [&](std::string_view input) {
        if (input.empty() || IsControlInput(input)) return;
        const uint32_t found = index_.Find(ProducerOf(input));
        if (found != TextIndex::kNone) lists_[found].push_back(node->name);
      });
    }
  }
  // ", fed a, b" for a wanted node with consumers, else "".
  std::string Feeds(std::string_view name) const {
    const uint32_t found = index_.Find(name);
    if (found == TextIndex::kNone || lists_[found].empty()) return std::string();
    return " (fed " + Joined(lists_[found]) + ")";
  }

 private:
  TextIndex index_;
  std::vector<std::vector<std::string_view>> lists_;
};

// The first data producer of a node, or "".
std::string_view FirstProducer(const ViewNode& node) {
  std::string_view producer;
  ForEachEntry(node.inputs, [&producer](std::string_view input) {
    if (producer.empty() && !input.empty() && !IsControlInput(input)) producer = ProducerOf(input);
  });
  return producer;
}

}  // namespace

bool IsReplacedByItsConverter(const std::string& sourceType) {
  static const std::set<std::string> kReplaced = {"BatchNorm", "BatchNormExt2", "Concat",
                                                  "ConcatV2"};
  return kReplaced.count(sourceType) != 0;
}

Comparison CompareGraphs(const GraphView& source, const GraphView* converted) {
  Comparison result;
  std::vector<NodeComparison>& rows = result.rows;
  TextTable& table = result.changes;
  table.Add("");
  rows.reserve(source.nodes.size() + (converted != nullptr ? converted->nodes.size() / 4 : 0));
  for (const ViewNode& node : source.nodes) rows.push_back({&node, nullptr});
  if (converted == nullptr) return result;

  // The row of each converted node, by its position; kNone for nodes the source lacks.
  constexpr size_t kNone = ~size_t{0};
  std::vector<size_t> rowOf(converted->nodes.size(), kNone);
  auto positionOf = [converted](const ViewNode* node) {
    return static_cast<size_t>(node - converted->nodes.data());
  };
  Consumers gone;
  KeptChanges kept;
  ChangeList list;
  // The source nodes that may consume a gone node. A kept node that did loses that input, so
  // only nodes whose inputs changed and gone nodes are searched, unless a gone node shares its
  // name with a kept one.
  std::vector<const ViewNode*> rewired;
  bool goneNamesakes = false;
  // Conversion keeps the order of the nodes it keeps, so the node after the last match is
  // nearly always the next match, and is taken without a lookup when no name is shared.
  size_t next = 0;
  for (size_t i = 0; i < rows.size(); ++i) {
    NodeComparison& row = rows[i];
    const bool inOrder = !converted->namesakes && next < converted->nodes.size() &&
                         converted->nodes[next].name == row.before->name;
    row.after = inOrder ? &converted->nodes[next] : converted->Find(row.before->name);
    if (row.after != nullptr) next = positionOf(row.after) + 1;
    if (row.after != nullptr && rowOf[positionOf(row.after)] == kNone) {
      rowOf[positionOf(row.after)] = i;
      const KeptChanges::Known& known = kept.Of(*row.before, *row.after, table);
      row.changes = known.changes;
      row.weight = known.weight;
      if (row.before->inputs == row.after->inputs) continue;
      rewired.push_back(row.before);
      list.Assign(table[known.changes], known.weight);
      DescribeInputs(*row.before, *row.after, list);
      row.changes = table.AddOnce(list.Text());
      row.weight = list.Weight();
    } else {
      goneNamesakes = goneNamesakes || row.after != nullptr;
      row.after = nullptr;  // a second source node of that name matches nothing
      gone.Want(row.before->name);
      rewired.push_back(row.before);
    }
  }
  if (goneNamesakes) {
    rewired.clear();
    for (const ViewNode& node : source.nodes) rewired.push_back(&node);
  } else {
    // Consumers are listed in graph order.
    std::sort(rewired.begin(), rewired.end());
  }
  gone.Collect(rewired);
  // Gone nodes are described after every kept node, so that a fusion can note itself on the
  // node that absorbed it. What they say names other nodes, so it is rarely said twice.
  auto record = [&table](NodeComparison& row, const ChangeList& changes) {
    row.changes = table.AddOnce(changes.Text());
    row.weight = changes.Weight();
  };
  for (NodeComparison& row : rows) {
    if (row.after != nullptr) continue;
    const ViewNode& node = *row.before;
    const std::string feeds = gone.Feeds(node.name);
    const std::string_view producer = FirstProducer(node);
    const ViewNode* into = producer.empty() ? nullptr : converted->Find(producer);
    list.Clear();
    if (node.type == "Const") {
      list.Add(change::kRemoved, "constant removed" + feeds);
    } else if (into != nullptr) {
      list.Add(change::kFused, "fused into " + Str(producer) + " (" + Str(into->type) + ")");
      const size_t target = rowOf[positionOf(into)];
      if (target != kNone) {
        NodeComparison& absorbing = rows[target];
        ChangeList absorbed;
        absorbed.Assign(table[absorbing.changes], absorbing.weight);
        absorbed.Add(change::kFused, "absorbed " + Str(node.name) + " (" + Str(node.type) + ")");
        record(absorbing, absorbed);
      }
    } else {
      list.Add(change::kRemoved, "removed" + feeds);
    }
    record(row, list);
  }
  for (size_t i = 0; i < rowOf.size(); ++i) {
    if (rowOf[i] != kNone) continue;
    const ViewNode& node = converted->nodes[i];
    list.Clear();
    list.Add(change::kAdded, "new " + Str(node.type) + " node");
    // Added nodes of one type are described alike.
    rows.push_back({nullptr, &node, table.Add(list.Text()), list.Weight()});
  }
  return result;
}

}  // namespace report
}  // namespace cli
}  // namespace tesu
