#include "conversion_diff.h"

#include <algorithm>
#include <set>
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

using ConsumerMap = std::unordered_map<std::string, std::vector<std::string>>;

void Append(std::string& text, const std::string& item) {
  text += (text.empty() ? "" : "; ") + item;
}

bool SharesPrefix(const std::string& a, const std::string& b) {
  const auto mismatch = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
  return static_cast<size_t>(mismatch.first - a.begin()) >= kRenamePrefix;
}

// The attributes only `before` has, only `after` has, and those whose value differs.
struct AttrDelta {
  std::vector<AttrText> removed;
  std::vector<AttrText> added;
  std::vector<std::string> changed;
};

AttrDelta CompareAttrs(const std::vector<AttrText>& before, const std::vector<AttrText>& after) {
  AttrDelta delta;
  auto b = before.begin();
  auto a = after.begin();
  // Both lists are sorted by name: one merge.
  while (b != before.end() || a != after.end()) {
    if (a == after.end() || (b != before.end() && b->first < a->first)) {
      delta.removed.push_back(*b++);
    } else if (b == before.end() || a->first < b->first) {
      delta.added.push_back(*a++);
    } else {
      if (b->second != a->second)
        delta.changed.push_back(b->first + " " + b->second + kArrow + a->second);
      ++a;
      ++b;
    }
  }
  return delta;
}

void DescribeAttrs(const ViewNode& before, const ViewNode& after, std::vector<Change>& changes) {
  AttrDelta delta = CompareAttrs(before.attrs, after.attrs);
  std::string renamed;
  std::vector<bool> paired(delta.added.size(), false);
  std::vector<AttrText> removed;
  for (const AttrText& gone : delta.removed) {
    bool matched = false;
    for (size_t i = 0; i < delta.added.size() && !matched; ++i) {
      const AttrText& added = delta.added[i];
      if (paired[i] || added.second != gone.second || !SharesPrefix(gone.first, added.first)) {
        continue;
      }
      paired[i] = matched = true;
      Append(renamed, gone.first + kArrow + added.first);
    }
    if (!matched) removed.push_back(gone);
  }
  std::string outputFormat;
  std::string attrs;
  for (size_t i = 0; i < delta.added.size(); ++i) {
    if (paired[i]) continue;
    const AttrText& added = delta.added[i];
    Append(added.first == kOutputFormatAttr ? outputFormat : attrs,
           "+" + added.first + " = " + added.second);
  }
  for (const AttrText& gone : removed) Append(attrs, "-" + gone.first);
  for (const std::string& change : delta.changed) Append(attrs, change);
  if (!renamed.empty()) changes.push_back({change::kRenamed, renamed});
  if (!outputFormat.empty()) changes.push_back({change::kOutputFormat, outputFormat});
  if (!attrs.empty()) changes.push_back({change::kAttributes, attrs});
}

void DescribeInputs(const ViewNode& before, const ViewNode& after, std::vector<Change>& changes) {
  if (before.inputs == after.inputs) return;
  const std::multiset<std::string> was(before.inputs.begin(), before.inputs.end());
  const std::multiset<std::string> is(after.inputs.begin(), after.inputs.end());
  std::vector<std::string> gone;
  std::vector<std::string> added;
  std::set_difference(was.begin(), was.end(), is.begin(), is.end(), std::back_inserter(gone));
  std::set_difference(is.begin(), is.end(), was.begin(), was.end(), std::back_inserter(added));
  std::string text;
  for (const std::string& input : added) Append(text, "+" + (input.empty() ? "(none)" : input));
  for (const std::string& input : gone) Append(text, "-" + (input.empty() ? "(none)" : input));
  changes.push_back({change::kInputs, text.empty() ? "inputs reordered" : text});
}

void DescribeKept(const ViewNode& before, const ViewNode& after, std::vector<Change>& changes) {
  if (before.type != after.type) {
    if (IsReplacedByItsConverter(before.type)) {
      changes.push_back({change::kReplaced, "replaced by a new " + after.type + " node"});
    } else {
      changes.push_back({change::kType, before.type + kArrow + after.type});
    }
  }
  DescribeAttrs(before, after, changes);
  DescribeInputs(before, after, changes);
}

std::string Joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

ConsumerMap ConsumersOf(const GraphView& view) {
  ConsumerMap consumers;
  for (const ViewNode& node : view.nodes) {
    for (const std::string& input : node.inputs) {
      if (!input.empty() && !IsControlInput(input)) {
        consumers[ProducerOf(input)].push_back(node.name);
      }
    }
  }
  return consumers;
}

// The first data producer of a node, or "".
std::string FirstProducer(const ViewNode& node) {
  for (const std::string& input : node.inputs) {
    if (!input.empty() && !IsControlInput(input)) return ProducerOf(input);
  }
  return std::string();
}

}  // namespace

bool NodeComparison::Changed() const {
  return std::any_of(changes.begin(), changes.end(),
                     [](const Change& c) { return c.kind != change::kAttributes; });
}

int NodeComparison::Weight() const {
  int weight = 3;
  for (const Change& c : changes) {
    if (c.kind == change::kReplaced || c.kind == change::kFused || c.kind == change::kRemoved ||
        c.kind == change::kAdded) {
      return 1;
    }
    if (c.kind != change::kAttributes) weight = 2;
  }
  return weight;
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

  const ConsumerMap consumers = ConsumersOf(source);
  std::unordered_map<std::string, size_t> rowOf;
  rowOf.reserve(rows.size());
  for (size_t i = 0; i < rows.size(); ++i) rowOf.emplace(rows[i].Name(), i);
  for (NodeComparison& row : rows) {
    row.after = converted->Find(row.before->name);
    if (row.after != nullptr) DescribeKept(*row.before, *row.after, row.changes);
  }
  // Gone nodes are described after every kept node, so that a fusion can note itself on the
  // node that absorbed it.
  for (NodeComparison& row : rows) {
    if (row.after != nullptr) continue;
    const ViewNode& gone = *row.before;
    const auto fed = consumers.find(gone.name);
    const std::string feeds = fed == consumers.end() ? "" : " (fed " + Joined(fed->second) + ")";
    const std::string producer = FirstProducer(gone);
    const ViewNode* into = producer.empty() ? nullptr : converted->Find(producer);
    if (gone.type == "Const") {
      row.changes.push_back({change::kRemoved, "constant removed" + feeds});
    } else if (into != nullptr) {
      row.changes.push_back({change::kFused, "fused into " + producer + " (" + into->type + ")"});
      const auto target = rowOf.find(producer);
      if (target != rowOf.end()) {
        rows[target->second].changes.push_back(
            {change::kFused, "absorbed " + gone.name + " (" + gone.type + ")"});
      }
    } else {
      row.changes.push_back({change::kRemoved, "removed" + feeds});
    }
  }
  for (const ViewNode& node : converted->nodes) {
    if (rowOf.count(node.name) != 0) continue;
    rows.push_back({nullptr, &node, {{change::kAdded, "new " + node.type + " node"}}});
  }
  return rows;
}

}  // namespace report
}  // namespace cli
}  // namespace tesu
