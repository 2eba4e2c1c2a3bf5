#include "conversion_diff.h"

#include <algorithm>
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

using ConsumerMap = std::unordered_map<std::string_view, std::vector<std::string_view>>;
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
  void Describe(const ViewNode& before, const ViewNode& after, std::vector<Change>& changes) {
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
    if (!renamed.empty()) changes.push_back({change::kRenamed, renamed});
    for (const Attr& added : added_) {
      if (added.first == kOutputFormatAttr) {
        changes.push_back({change::kOutputFormat, "inferred_format = " + Str(added.second)});
      }
    }
    if (!changed_.empty()) changes.push_back({change::kAttributes, changed_});
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

void DescribeInputs(const ViewNode& before, const ViewNode& after, std::vector<Change>& changes) {
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
  changes.push_back({change::kInputs, text.empty() ? "inputs reordered" : text});
}

void DescribeKept(const ViewNode& before, const ViewNode& after, AttrComparer& attrs,
                  std::vector<Change>& changes) {
  if (before.type != after.type) {
    if (IsReplacedByItsConverter(before.type)) {
      changes.push_back({change::kReplaced, "replaced by a new " + after.type + " node"});
    } else {
      changes.push_back({change::kType, before.type + kArrow + after.type});
    }
  }
  attrs.Describe(before, after, changes);
  DescribeInputs(before, after, changes);
}

std::string Joined(const std::vector<std::string_view>& names) {
  std::string text;
  for (std::string_view name : names) {
    if (!text.empty()) text += ", ";
    text += name;
  }
  return text;
}

// The consumers of the named nodes only: the gone nodes are few, the graph may be large.
ConsumerMap ConsumersOf(const GraphView& view, ConsumerMap consumers) {
  if (consumers.empty()) return consumers;
  for (const ViewNode& node : view.nodes) {
    ForEachEntry(node.inputs, [&](std::string_view input) {
      if (input.empty() || IsControlInput(input)) return;
      const auto found = consumers.find(ProducerOf(input));
      if (found != consumers.end()) found->second.push_back(node.name);
    });
  }
  return consumers;
}

// The first data producer of a node, or "".
std::string_view FirstProducer(const ViewNode& node) {
  std::string_view producer;
  ForEachEntry(node.inputs, [&producer](std::string_view input) {
    if (producer.empty() && !input.empty() && !IsControlInput(input)) producer = ProducerOf(input);
  });
  return producer;
}

}  // namespace

int NodeComparison::Weight() const {
  for (const Change& c : changes) {
    if (c.kind == change::kReplaced || c.kind == change::kFused || c.kind == change::kRemoved ||
        c.kind == change::kAdded) {
      return 1;
    }
  }
  return changes.empty() ? 3 : 2;
}

bool IsReplacedByItsConverter(const std::string& sourceType) {
  static const std::set<std::string> kReplaced = {"BatchNorm", "BatchNormExt2", "Concat",
                                                  "ConcatV2"};
  return kReplaced.count(sourceType) != 0;
}

std::vector<NodeComparison> CompareGraphs(const GraphView& source, const GraphView* converted) {
  std::vector<NodeComparison> rows;
  rows.reserve(source.nodes.size());
  for (const ViewNode& node : source.nodes) rows.push_back({&node, nullptr, {}});
  if (converted == nullptr) return rows;

  // The row of each converted node, by its position; kNone for nodes the source lacks.
  constexpr size_t kNone = ~size_t{0};
  std::vector<size_t> rowOf(converted->nodes.size(), kNone);
  auto positionOf = [converted](const ViewNode* node) {
    return static_cast<size_t>(node - converted->nodes.data());
  };
  ConsumerMap gone;
  AttrComparer attrs;
  for (size_t i = 0; i < rows.size(); ++i) {
    NodeComparison& row = rows[i];
    row.after = converted->Find(row.before->name);
    if (row.after != nullptr && rowOf[positionOf(row.after)] == kNone) {
      rowOf[positionOf(row.after)] = i;
      DescribeKept(*row.before, *row.after, attrs, row.changes);
    } else {
      row.after = nullptr;  // a second source node of that name matches nothing
      gone.emplace(row.before->name, std::vector<std::string_view>());
    }
  }
  const ConsumerMap consumers = ConsumersOf(source, std::move(gone));
  // Gone nodes are described after every kept node, so that a fusion can note itself on the
  // node that absorbed it.
  for (NodeComparison& row : rows) {
    if (row.after != nullptr) continue;
    const ViewNode& node = *row.before;
    const auto fed = consumers.find(node.name);
    const std::string feeds = fed == consumers.end() ? "" : " (fed " + Joined(fed->second) + ")";
    const std::string_view producer = FirstProducer(node);
    const ViewNode* into = producer.empty() ? nullptr : converted->Find(producer);
    if (node.type == "Const") {
      row.changes.push_back({change::kRemoved, "constant removed" + feeds});
    } else if (into != nullptr) {
      row.changes.push_back(
          {change::kFused, "fused into " + Str(producer) + " (" + into->type + ")"});
      const size_t target = rowOf[positionOf(into)];
      if (target != kNone) {
        rows[target].changes.push_back(
            {change::kFused, "absorbed " + node.name + " (" + node.type + ")"});
      }
    } else {
      row.changes.push_back({change::kRemoved, "removed" + feeds});
    }
  }
  for (size_t i = 0; i < rowOf.size(); ++i) {
    if (rowOf[i] != kNone) continue;
    const ViewNode& node = converted->nodes[i];
    rows.push_back({nullptr, &node, {{change::kAdded, "new " + node.type + " node"}}});
  }
  return rows;
}

}  // namespace report
}  // namespace cli
}  // namespace tesu
