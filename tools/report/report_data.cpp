#include "report_data.h"

#include <algorithm>
#include <future>
#include <iterator>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "conversion_diff.h"
#include "json_text.h"

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
      // Names and types as the graphs' views show them, so that the page finds their nodes.
      std::string scratch;
      TypeEntry& entry = byType[std::string(Visible(StringOf(op, "type"), scratch))];
      entry.nodes.emplace_back(Visible(StringOf(op, "name"), scratch));
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
      std::string scratch;
      if (type.is_object()) order.emplace_back(Visible(StringOf(type, "type"), scratch));
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

// Where the texts that nodes share go in the data's "strings": the three marks, then the texts
// of the source view, of the converted view and the lists of changes, each table whole. The
// tables already hold each text once, so the data refers to them by position without looking
// a single text up again.
constexpr const char* kMarkTexts[] = {"", "changed", "unsupported"};
constexpr size_t kSourceTextsAt = std::size(kMarkTexts);

struct TextPositions {
  size_t converted = 0;
  size_t changes = 0;
};

size_t MarkPosition(Mark mark) {
  switch (mark) {
    case Mark::kChanged:
      return 1;
    case Mark::kUnsupported:
      return 2;
    case Mark::kPlain:
      break;
  }
  return 0;
}

void AppendTexts(std::string& out, const TextTable& table) {
  for (uint32_t i = 0; i < table.Size(); ++i) {
    out += ',';
    AppendJsonString(out, table[i]);
  }
}

std::string StringsText(const GraphView& source, const GraphView* converted,
                        const TextTable& changes, TextPositions& positions) {
  std::string out = "[";
  for (const char* mark : kMarkTexts) {
    if (out.size() > 1) out += ',';
    AppendJsonString(out, mark);
  }
  AppendTexts(out, source.texts);
  positions.converted = kSourceTextsAt + source.texts.Size();
  if (converted != nullptr) AppendTexts(out, converted->texts);
  positions.changes = positions.converted + (converted != nullptr ? converted->texts.Size() : 0);
  AppendTexts(out, changes);
  out += ']';
  return out;
}

// A column of one number per row.
template <typename Number>
void AppendColumn(std::string& out, const char* name, size_t rows, Number number) {
  AppendJsonString(out, name);
  out += ":[";
  for (size_t i = 0; i < rows; ++i) {
    if (i > 0) out += ',';
    number(out, i);
  }
  out += ']';
}

// Room for a row's separator, and for a few escapes in its text.
constexpr size_t kRowSlack = 8;
// Room for a number of a column, with its comma.
constexpr size_t kNumberRoom = 7;

// The bytes of the texts `field` of `nodes`.
size_t TextBytes(const std::vector<ViewNode>& nodes, std::string_view ViewNode::*field) {
  size_t bytes = 0;
  for (const ViewNode& node : nodes) bytes += (node.*field).size();
  return bytes;
}

// The rows after the source nodes, and the columns of every row that need the comparison.
std::vector<std::string> NodesText(SourceData& source, const GraphView* converted,
                                   const std::vector<NodeComparison>& rows,
                                   const std::vector<Mark>& marks, const TextPositions& positions) {
  SideColumns after;
  if (converted != nullptr)
    after.Reserve(rows.size(), TextBytes(converted->nodes, &ViewNode::inputs));
  for (size_t i = 0; i < rows.size(); ++i) {
    if (i >= source.view.nodes.size()) {
      source.names.Add(rows[i].Name());
      source.before.Add(nullptr, kSourceTextsAt);
    }
    after.Add(rows[i].after, positions.converted);
  }
  std::vector<std::string> pieces;
  std::string out = "{\"count\":";
  AppendJsonNumber(out, rows.size());
  out += ",\"names\":";
  pieces.push_back(std::move(out));
  source.names.MoveTo(pieces);
  out = ",";
  AppendColumn(out, "marks", rows.size(), [&marks](std::string& text, size_t i) {
    AppendJsonNumber(text, MarkPosition(marks[i]));
  });
  out += ',';
  AppendColumn(out, "changes", rows.size(), [&](std::string& text, size_t i) {
    AppendJsonNumber(text, positions.changes + rows[i].changes);
  });
  out += ",\"before\":";
  pieces.push_back(std::move(out));
  source.before.MoveTo(pieces);
  pieces.emplace_back(",\"after\":");
  after.MoveTo(pieces);
  pieces.emplace_back("}");
  return pieces;
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

void NameColumn::Reserve(size_t rows, size_t bytes) {
  text_.reserve(bytes + rows * kRowSlack);
}

void NameColumn::Add(std::string_view name) {
  if (rows_++ > 0) text_ += ',';
  AppendJsonString(text_, name);
}

void NameColumn::MoveTo(std::vector<std::string>& pieces) {
  pieces.emplace_back("[");
  pieces.push_back(std::move(text_));
  pieces.emplace_back("]");
}

void SideColumns::Reserve(size_t rows, size_t bytes) {
  types_.reserve(rows * kNumberRoom);
  attrs_.reserve(rows * kNumberRoom);
  inputs_.reserve(bytes + rows * kRowSlack);
}

// A node without the side has null type and attrs and an empty inputs record.
void SideColumns::Add(const ViewNode* node, size_t textsAt) {
  if (rows_++ > 0) {
    types_ += ',';
    attrs_ += ',';
    inputs_ += ',';
  }
  if (node == nullptr) {
    types_ += "null";
    attrs_ += "null";
    inputs_ += "\"\"";
    return;
  }
  AppendJsonNumber(types_, textsAt + node->typeId);
  AppendJsonNumber(attrs_, textsAt + node->attrsId);
  AppendJsonString(inputs_, node->inputs);
}

void SideColumns::MoveTo(std::vector<std::string>& pieces) {
  pieces.emplace_back("{\"types\":[");
  pieces.push_back(std::move(types_));
  pieces.emplace_back("],\"attrs\":[");
  pieces.push_back(std::move(attrs_));
  pieces.emplace_back("],\"inputs\":[");
  pieces.push_back(std::move(inputs_));
  pieces.emplace_back("]}");
}

SourceData PrepareSource(GraphView view) {
  SourceData source{std::move(view), {}, {}};
  const std::vector<ViewNode>& nodes = source.view.nodes;
  // Conversion adds a few nodes, which come after these.
  const size_t rows = nodes.size() + nodes.size() / 8;
  source.names.Reserve(rows, TextBytes(nodes, &ViewNode::name));
  source.before.Reserve(rows, TextBytes(nodes, &ViewNode::inputs));
  for (const ViewNode& node : nodes) {
    source.names.Add(node.name);
    source.before.Add(&node, kSourceTextsAt);
  }
  return source;
}

PageData BuildReportBody(SourceData source, std::optional<GraphView> converted,
                         const json& checkReport, const PictureLimits& limits) {
  std::unordered_set<std::string> refused;
  PageData body;
  json& data = body.object;
  data["converted"] = converted.has_value();
  data["support"] = Support(checkReport, refused);
  const GraphView* after = converted ? &*converted : nullptr;
  Comparison comparison;
  {
    ProfileScope step("report: compare");
    comparison = CompareGraphs(source.view, after);
  }
  const std::vector<NodeComparison>& rows = comparison.rows;
  const std::vector<Mark> marks = MarkRows(rows, refused);
  // Graphviz lays out the pictures on a thread of its own while the columns are written.
  std::future<Pictures> pictures = std::async(std::launch::async, [&rows, &marks, &limits] {
    ProfileScope step("report: draw");
    return DrawPictures(rows, marks, limits);
  });
  {
    ProfileScope step("report: node data");
    TextPositions positions;
    std::string strings = StringsText(source.view, after, comparison.changes, positions);
    body.written.push_back({"nodes", NodesText(source, after, rows, marks, positions)});
    body.written.push_back({"strings", {std::move(strings)}});
  }
  data["pictures"] = PicturesJson(pictures.get(), rows.size());
  return body;
}

json ReportSummary(const RunFacts& run, bool converted) {
  return Summary(run, converted);
}

void AddSummary(PageData& body, const RunFacts& run) {
  body.object["summary"] = Summary(run, body.object.value("converted", false));
}

}  // namespace report
}  // namespace cli
}  // namespace tesu
