#include "report_data.h"

#include <algorithm>
#include <deque>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "conversion_diff.h"

namespace tesu {
namespace cli {
namespace report {
namespace {

using nlohmann::json;

size_t Total(const std::map<std::string, size_t>& counts) {
  size_t total = 0;
  for (const auto& entry : counts) total += entry.second;
  return total;
}

json Summary(const RunFacts& run, bool converted) {
  json steps = json::array();
  double total = 0;
  for (const Profiler::Step& step : run.steps) {
    steps.push_back({{"name", step.name}, {"ms", step.milliseconds}});
    total += step.milliseconds;
  }
  json summary = {{"model", run.modelFile},
                  {"size", run.modelSize},
                  {"framework", run.framework},
                  {"frameworkName", run.frameworkName},
                  {"status", run.status},
                  {"exitCode", run.exitCode},
                  {"outcome", run.outcome},
                  {"converted", converted},
                  {"nodesBefore", Total(run.opsBefore)},
                  {"opsBefore", run.opsBefore},
                  {"steps", steps},
                  {"totalMs", total}};
  if (converted) {
    summary["nodesAfter"] = Total(run.opsAfter);
    summary["opsAfter"] = run.opsAfter;
  }
  return summary;
}

// A string member of a JSON object read from a file, or "" when it is missing or not a string.
std::string StringOf(const json& object, const char* key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

struct TypeEntry {
  std::vector<std::string> nodes;
  std::vector<std::string> reasons;
};

// The refused nodes of the check report, grouped by operator type in the report's order of
// types; `refused` receives their names.
json Support(const json& report, std::unordered_set<std::string>& refused) {
  if (!report.is_object()) return {{"checked", false}};
  std::map<std::string, TypeEntry> byType;
  const auto ops = report.find("ops");
  if (ops != report.end() && ops->is_array()) {
    for (const json& op : *ops) {
      if (!op.is_object() || StringOf(op, "result") == "pass") continue;
      TypeEntry& entry = byType[StringOf(op, "type")];
      entry.nodes.push_back(StringOf(op, "name"));
      refused.insert(entry.nodes.back());
      const auto causes = op.find("causes");
      if (causes == op.end() || !causes->is_array()) continue;
      for (const json& cause : *causes) {
        const std::string message = cause.is_object() ? StringOf(cause, "message") : "";
        if (std::find(entry.reasons.begin(), entry.reasons.end(), message) == entry.reasons.end()) {
          entry.reasons.push_back(message);
        }
      }
    }
  }
  std::vector<std::string> order;
  const auto types = report.find("unsupported_types");
  if (types != report.end() && types->is_array()) {
    for (const json& type : *types) {
      if (type.is_object()) order.push_back(StringOf(type, "type"));
    }
  }
  for (const auto& entry : byType) {
    if (std::find(order.begin(), order.end(), entry.first) == order.end()) {
      order.push_back(entry.first);
    }
  }
  json rows = json::array();
  for (const std::string& type : order) {
    const auto entry = byType.find(type);
    if (entry == byType.end()) continue;
    rows.push_back({{"type", type},
                    {"count", entry->second.nodes.size()},
                    {"nodes", entry->second.nodes},
                    {"reasons", entry->second.reasons}});
  }
  json support = {{"checked", true}, {"types", rows}};
  const auto summary = report.find("summary");
  if (summary != report.end() && summary->is_object()) support["summary"] = *summary;
  return support;
}

// Texts that many nodes share (types, attribute sets, change lists, marks) are written once,
// in the data's "strings", and referred to by position: a 100k-node graph of repeated blocks
// then carries a few hundred such texts instead of 100k copies of each.
class StringTable {
 public:
  int64_t Add(std::string_view text) {
    const auto found = positions_.find(text);
    if (found != positions_.end()) return found->second;
    const auto position = static_cast<int64_t>(texts_.size());
    positions_.emplace(texts_.emplace_back(text), position);
    return position;
  }
  json Take() {
    json texts = json::array();
    for (std::string& text : texts_) texts.push_back(std::move(text));
    return texts;
  }

 private:
  std::deque<std::string> texts_;  // a deque keeps its elements in place, for the keys below
  std::unordered_map<std::string_view, int64_t> positions_;
};

// One side (before or after) of every node, a column per field: a graph of 100k nodes is then a
// few large values rather than 100k small ones, which is what makes its data cheap to build,
// write and free. A node without that side has null type and attrs and an empty inputs record.
class SideColumns {
 public:
  explicit SideColumns(size_t rows) {
    types_.get_ref<json::array_t&>().reserve(rows);
    attrs_.get_ref<json::array_t&>().reserve(rows);
  }
  void Add(const ViewNode* node, StringTable& strings) {
    if (count_++ > 0) inputs_ += kRecordEnd;
    if (node == nullptr) {
      types_.push_back(nullptr);
      attrs_.push_back(nullptr);
      return;
    }
    types_.push_back(strings.Add(node->type));
    attrs_.push_back(strings.Add(node->attrs));
    inputs_ += node->inputs;
  }
  json Take() {
    return {
        {"types", std::move(types_)}, {"attrs", std::move(attrs_)}, {"inputs", std::move(inputs_)}};
  }

 private:
  json types_ = json::array();
  json attrs_ = json::array();
  std::string inputs_;
  size_t count_ = 0;
};

const char* MarkName(Mark mark) {
  switch (mark) {
    case Mark::kUnsupported:
      return "unsupported";
    case Mark::kChanged:
      return "changed";
    case Mark::kPlain:
      break;
  }
  return "";
}

std::string ChangesText(const std::vector<Change>& changes) {
  std::string text;
  for (const Change& change : changes) {
    text += change.kind;
    text += kNameEnd;
    text += change.text;
    text += kEntryEnd;
  }
  return text;
}

void AddNodes(json& data, const std::vector<NodeComparison>& rows, const std::vector<Mark>& marks) {
  StringTable strings;
  std::string names;
  json markColumn = json::array();
  json changeColumn = json::array();
  markColumn.get_ref<json::array_t&>().reserve(rows.size());
  changeColumn.get_ref<json::array_t&>().reserve(rows.size());
  SideColumns before(rows.size());
  SideColumns after(rows.size());
  for (size_t i = 0; i < rows.size(); ++i) {
    const NodeComparison& row = rows[i];
    if (i > 0) names += kRecordEnd;
    names += row.Name();
    markColumn.push_back(strings.Add(MarkName(marks[i])));
    changeColumn.push_back(strings.Add(ChangesText(row.changes)));
    before.Add(row.before, strings);
    after.Add(row.after, strings);
  }
  data["nodes"] = {{"count", rows.size()},           {"names", std::move(names)},
                   {"marks", std::move(markColumn)}, {"changes", std::move(changeColumn)},
                   {"before", before.Take()},        {"after", after.Take()}};
  data["strings"] = strings.Take();
}

json PicturesJson(const Pictures& pictures, size_t rows) {
  json out = {{"whole", pictures.whole},
              {"drawn", pictures.drawnNodes},
              {"nodes", rows},
              {"source", pictures.source},
              {"converted", pictures.converted}};
  if (!pictures.error.empty()) out["error"] = pictures.error;
  return out;
}

}  // namespace

json BuildReportBody(GraphView source, std::optional<GraphView> converted, const json& checkReport,
                     const PictureLimits& limits) {
  std::unordered_set<std::string> refused;
  json data;
  data["converted"] = converted.has_value();
  data["support"] = Support(checkReport, refused);
  std::vector<NodeComparison> rows;
  {
    ProfileScope step("report: compare");
    rows = CompareGraphs(source, converted ? &*converted : nullptr);
  }
  const std::vector<Mark> marks = MarkRows(rows, refused);
  {
    ProfileScope step("report: draw");
    data["pictures"] = PicturesJson(DrawPictures(rows, marks, limits), rows.size());
  }
  ProfileScope step("report: node data");
  AddNodes(data, rows, marks);
  return data;
}

void AddSummary(json& body, const RunFacts& run) {
  body["summary"] = Summary(run, body.value("converted", false));
}

}  // namespace report
}  // namespace cli
}  // namespace tesu
