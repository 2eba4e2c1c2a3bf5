// The data the report page is built from: what conversion did to each node of a small graph,
// the support table, and which nodes the graph pictures draw and highlight.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "conversion_diff.h"
#include "files.h"
#include "graph_view.h"
#include "model_builder.h"
#include "report_data.h"

// Graphviz lays out text through fontconfig, which keeps its font caches for the life of the
// process; under LeakSanitizer those show as leaks of fontconfig's, not of the report's.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libfontconfig.so\n";
}

namespace {

using nlohmann::json;
using namespace testkit;
using namespace tesu::cli::report;

// Positions in a node entry of the data.
enum Field { kName, kMark, kBefore, kAfter, kChanges };

// A source graph and what a conversion of it looks like: a rename, an in-place retype, a
// replacement, a fused ReduceMeanD+Reshape pair, a removed constant, an added weight, an output
// format and a node left alone.
ModelBuilder Source() {
  ModelBuilder model;
  model.Data("data", {1, 4});
  model.ConstFloat("w", {1, 2, 3, 4, 5, 6, 7, 8}, {4, 2});
  OpBuilder mm = model.Op("mm", "MatMul").Input("data").Input("w").Output({1, 2});
  mm.Attr("transpose_a", false).Attr("transpose_b", true).Attr("_opt_input", "x");
  model.Op("bn", "BatchNorm").Input("mm").Output({1, 2}).Attr("epsilon", 0.001f);
  OpBuilder mean = model.Op("mean", "ReduceMeanD").Input("bn").Output({1, 1});
  mean.Attr("axes", std::vector<int64_t>{1}).Attr("keep_dims", true);
  model.ConstInt32("shape", {1});
  model.Op("flat", "Reshape").Input("mean").Input("shape").Output({1});
  model.Unary("relu", "Relu", "flat", {1});
  model.Unary("copy", "Identity", "data", {1, 4});
  return model;
}

ModelBuilder Converted() {
  ModelBuilder model;
  model.Data("data", {1, 4});
  model.ConstFloat("w", {1, 2, 3, 4, 5, 6, 7, 8}, {4, 2});
  OpBuilder mm = model.Op("mm", "MatMul").Input("data").Input("w").Output({1, 2});
  mm.Attr("transpose_x1", false).Attr("transpose_x2", true);
  model.Op("bn", "BNInference").Input("mm").Output().Attr("epsilon", 0.001f).Attr("mode", 1);
  model.ConstInt32("mean_weight_1", {1});
  OpBuilder mean = model.Op("mean", "ReduceMean").Input("bn").Input("mean_weight_1");
  mean.Output({1}).Attr("keep_dims", false);
  model.Unary("relu", "Activation", "mean", {1}).Attr("inferred_format", 0);
  model.Unary("copy", "Identity", "data", {1, 4});
  return model;
}

// The data with every shared text put back in place, so that expectations read as text.
json Build(const RunFacts& run, bool converted, const json& checkReport = nullptr,
           const PictureLimits& limits = {}) {
  std::optional<GraphView> after;
  if (converted) after = ViewOf(*Converted().LoadGraph());
  PageData body = BuildReportBody(PrepareSource(SourceViewOf(Source().Bytes())), std::move(after),
                                  checkReport, limits);
  AddSummary(body, run);
  json data = body.object;
  for (const auto& member : body.written) {
    std::string text;
    for (const std::string& piece : member.pieces) text += piece;
    data[member.name] = json::parse(text);
  }
  // The nodes' columns as one [name, mark, before, after, changes] entry per node.
  const json& strings = data["strings"];
  const json& columns = data["nodes"];
  auto text = [&](const json& position) { return strings.at(position.get<size_t>()); };
  const auto names = columns["names"].get<std::vector<std::string>>();
  const std::vector<std::string> inputs[] = {
      columns["before"]["inputs"].get<std::vector<std::string>>(),
      columns["after"]["inputs"].get<std::vector<std::string>>()};
  json nodes = json::array();
  for (size_t i = 0; i < names.size(); ++i) {
    json node = {names[i], text(columns["marks"][i]), nullptr, nullptr,
                 text(columns["changes"][i])};
    for (int side = 0; side < 2; ++side) {
      const json& column = columns[side == 0 ? "before" : "after"];
      if (column["types"][i].is_null()) continue;
      node[kBefore + side] = {text(column["types"][i]), text(column["attrs"][i]), inputs[side][i]};
    }
    nodes.push_back(node);
  }
  data["nodes"] = nodes;
  return data;
}

const json* NodeNamed(const json& data, const std::string& name) {
  for (const json& node : data["nodes"]) {
    if (node[kName] == name) return &node;
  }
  return nullptr;
}

// Element ids of the drawn nodes: `prefix` then the node's position in the data.
std::set<std::string> DrawnNames(const json& data, const std::string& svg, char prefix) {
  std::set<std::string> names;
  const json& nodes = data["nodes"];
  for (size_t i = 0; i < nodes.size(); ++i) {
    if (svg.find("id=\"" + std::string(1, prefix) + std::to_string(i) + "\"") !=
        std::string::npos) {
      names.insert(nodes[i][kName].get<std::string>());
    }
  }
  return names;
}

TEST(ReportDataTest, SaysWhatConversionDidToEachNodeAndDrawsTheWholeGraph) {
  const json data = Build(RunFacts(), true);
  struct Case {
    const char* node;
    const char* changes;  // the node's change lines, exactly
  };
  const Case cases[] = {
      {"mm", "renamed\ttranspose_a \u2192 transpose_x1; transpose_b \u2192 transpose_x2\n"},
      {"bn", "replaced\treplaced by a new BNInference node\n"},
      {"mean",
       "type\tReduceMeanD \u2192 ReduceMean\nattributes\tkeep_dims true \u2192 false\n"
       "inputs\t+mean_weight_1:0\nfused\tabsorbed flat (Reshape)\n"},
      {"flat", "fused\tfused into mean (ReduceMean)\n"},
      {"shape", "removed\tconstant removed (fed flat)\n"},
      {"mean_weight_1", "added\tnew Const node\n"},
      {"relu",
       "type\tRelu \u2192 Activation\noutput format\tinferred_format = 0\n"
       "inputs\t+mean:0; -flat:0\n"},
      {"copy", ""},
  };
  for (const Case& c : cases) {
    const json* node = NodeNamed(data, c.node);
    ASSERT_NE(node, nullptr) << c.node;
    EXPECT_EQ((*node)[kChanges], c.changes) << c.node;
    EXPECT_EQ((*node)[kMark], std::string(c.changes).empty() ? "" : "changed") << c.node;
  }
  // Source nodes keep graph order; nodes only the converted graph has come last.
  EXPECT_EQ(data["nodes"].front()[kName], "data");
  EXPECT_EQ(data["nodes"].back()[kName], "mean_weight_1");
  // Both sides of each node: type, attributes and inputs.
  const json& mm = *NodeNamed(data, "mm");
  EXPECT_EQ(mm[kBefore],
            json::array({"MatMul", "_opt_input\t\"x\"\ntranspose_a\tfalse\ntranspose_b\ttrue\n",
                         "data:0\nw:0\n"}));
  EXPECT_EQ(mm[kAfter],
            json::array({"MatMul", "transpose_x1\tfalse\ntranspose_x2\ttrue\n", "data:0\nw:0\n"}));
  EXPECT_EQ((*NodeNamed(data, "w"))[kBefore][1], "value\tFLOAT[4, 2]\n");
  EXPECT_TRUE((*NodeNamed(data, "flat"))[kAfter].is_null());
  EXPECT_TRUE((*NodeNamed(data, "mean_weight_1"))[kBefore].is_null());
  // A small graph is drawn whole, changed nodes highlighted.
  const json& pictures = data["pictures"];
  EXPECT_TRUE(pictures["whole"]);
  const std::string source = pictures["source"];
  const std::string converted = pictures["converted"];
  ASSERT_EQ(source.rfind("<svg", 0), 0u) << source.substr(0, 80);
  EXPECT_EQ(DrawnNames(data, source, 's').size(), 9u);
  EXPECT_EQ(DrawnNames(data, converted, 'c').size(), 8u);
  EXPECT_NE(converted.find("class=\"node changed\""), std::string::npos);
  // Without a check report, or with one that is not an object, the support table says so.
  EXPECT_EQ(data["support"], (json{{"checked", false}}));
  EXPECT_EQ(Build(RunFacts(), true, json::parse("[1]"))["support"], (json{{"checked", false}}));
}

// The summary carries the run and the operator counts.
TEST(ReportDataTest, FailedRunListsTheUnsupportedNodesFromTheCheckReport) {
  const json checkReport = json::parse(R"({
    "summary": {"total": 9, "passed": 6, "failed": 3},
    "unsupported_types": [{"type": "Relu", "count": 1}, {"type": "Identity", "count": 1}],
    "ops": [
      {"name": "data", "type": "Data", "result": "pass", "causes": []},
      {"name": "copy", "type": "Identity", "result": "failed",
       "causes": [{"code": 1, "message": "operator type \"Identity\" is not supported"}]},
      {"name": "relu", "type": "Relu", "result": "failed",
       "causes": [{"code": 1, "message": "operator type \"Relu\" is not supported"}]},
      {"name": "mm", "type": "MatMul", "result": "failed",
       "causes": [{"code": 7, "message": "weights missing"}]}
    ]})");
  RunFacts run;
  run.modelFile = "net.pb";
  run.status = 1;
  run.exitCode = 1;
  run.opsBefore = {{"Relu", 2}, {"Data", 1}};
  run.steps = {{"load model", 1.5}, {"support check", 0.5}};
  const json data = Build(run, false, checkReport);
  const json& summary = data["summary"];
  EXPECT_TRUE(summary["model"] == "net.pb" && summary["exitCode"] == 1);
  EXPECT_EQ(summary["nodesBefore"], 3);
  EXPECT_EQ(summary["converted"], false);
  EXPECT_FALSE(summary.contains("nodesAfter"));
  EXPECT_EQ(summary["steps"][1], (json{{"name", "support check"}, {"ms", 0.5}}));
  EXPECT_EQ(summary["totalMs"], 2.0);
  const json& types = data["support"]["types"];
  ASSERT_EQ(types.size(), 3u);
  // The report's order of unsupported types, then types refused for other reasons.
  EXPECT_EQ(types[0], (json{{"type", "Relu"},
                            {"count", 1},
                            {"nodes", {"relu"}},
                            {"reasons", {"operator type \"Relu\" is not supported"}}}));
  EXPECT_EQ(types[1]["type"], "Identity");
  EXPECT_EQ(types[2]["type"], "MatMul");
  EXPECT_EQ(data["support"]["summary"]["failed"], 3);

  for (const char* name : {"copy", "relu", "mm"}) {
    EXPECT_EQ((*NodeNamed(data, name))[kMark], "unsupported") << name;
  }
  for (const json& node : data["nodes"]) {
    EXPECT_TRUE(node[kAfter].is_null()) << "a failed run has no converted graph";
    EXPECT_EQ(node[kChanges], "");
  }
  EXPECT_TRUE(data["pictures"]["converted"].get<std::string>().empty());
  EXPECT_NE(data["pictures"]["source"].get<std::string>().find("class=\"node unsupported\""),
            std::string::npos);
}

TEST(ReportDataTest, LargeGraphsAreDrawnAroundTheMostChangedNodes) {
  PictureLimits limits;
  limits.wholeGraph = 5;
  limits.centres = 1;  // the replaced, fused, removed or added node that comes first: bn
  limits.drawn = 10;
  const json data = Build(RunFacts(), true, nullptr, limits);
  EXPECT_FALSE(data["pictures"]["whole"]);
  // bn and its producer and consumer on either side.
  const std::set<std::string> expected = {"bn", "mm", "mean"};
  EXPECT_EQ(DrawnNames(data, data["pictures"]["source"], 's'), expected);
  EXPECT_EQ(DrawnNames(data, data["pictures"]["converted"], 'c'), expected);
}

// The change lines of each node, by name, as CompareGraphs gives them.
std::map<std::string, std::string> ChangesByName(const ModelBuilder& source,
                                                 const ModelBuilder& converted) {
  const GraphView before = SourceViewOf(source.Bytes());
  const GraphView after = ViewOf(*converted.LoadGraph());
  const Comparison comparison = CompareGraphs(before, &after);
  std::map<std::string, std::string> changes;
  for (const auto& row : comparison.rows) {
    changes[std::string(row.Name())] += std::string(comparison.changes[row.changes]);
  }
  return changes;
}

// Nodes of one type and one set of attributes share what their type and attributes did, but
// not what happened to their inputs.
TEST(ReportDataTest, NodesThatConvertAlikeKeepTheirOwnInputChanges) {
  ModelBuilder source;
  source.Data("x");
  source.Unary("r1", "Relu", "x");
  source.Unary("r2", "Relu", "x");
  source.Unary("r3", "Relu", "r1");
  ModelBuilder converted;
  converted.Data("x");
  converted.Unary("r1", "Activation", "x");
  converted.Unary("r2", "Activation", "r1");
  converted.Unary("r3", "Activation", "r1");
  const std::string retyped = "type\tRelu \u2192 Activation\n";
  const std::map<std::string, std::string> expected = {
      {"x", ""}, {"r1", retyped}, {"r2", retyped + "inputs\t+r1:0; -x:0\n"}, {"r3", retyped}};
  EXPECT_EQ(ChangesByName(source, converted), expected);

  // Nodes are matched by name, whatever order the converted graph lists them in.
  ModelBuilder reordered;
  reordered.Data("x");
  reordered.Unary("r1", "Activation", "x");
  reordered.Unary("r3", "Activation", "r1");
  reordered.Unary("r2", "Activation", "r1");
  EXPECT_EQ(ChangesByName(source, reordered), expected);
}

// A text of the arena or the index: long ones outgrow a block of the arena.
std::string NthText(size_t i) {
  return i % 1000 == 999 ? std::string(300000, static_cast<char>('a' + i % 26))
                         : "n" + std::to_string(i);
}

// The name index and the text tables grow as texts come; every text keeps the number it was
// first given, and texts longer than a block of the arena are kept whole.
TEST(GraphViewTest, IndexAndArenaKeepEveryText) {
  TextArena arena;
  TextIndex index;
  std::vector<std::string_view> texts;
  for (uint32_t i = 0; i < 5000; ++i) {
    texts.push_back(arena.Copy(NthText(i)));
    ASSERT_EQ(index.Insert(texts.back(), i), i);
  }
  EXPECT_EQ(index.Insert(texts[7], 99999), 7u) << "a text keeps its first number";
  EXPECT_EQ(index.Find("n5000"), TextIndex::kNone);
  for (uint32_t i = 0; i < texts.size(); ++i) {
    ASSERT_EQ(texts[i], NthText(i));
    ASSERT_EQ(index.Find(NthText(i)), i);
  }
}

// The source graph is read from the model's bytes and the converted graph from the compute
// graph; a node that conversion left alone must read the same both ways, or every node would
// show as changed.
TEST(GraphViewTest, ModelBytesAndComputeGraphReadAlike) {
  ModelBuilder model;
  model.Data("in");
  model.ConstInt64("big", std::vector<int64_t>(40, 7), {40});
  OpBuilder op = model.Op("op", "Custom").Input("in").Input("big").Control("in").Output();
  op.Attr("s", "line\nbreak").Attr("i", int64_t{-3}).Attr("f", 0.1f).Attr("b", true);
  op.Attr("li", std::vector<int64_t>(20, 1)).Attr("lf", std::vector<float>{1.5f, -2});
  op.Attr("ls", std::vector<std::string>{"a", "b"}).EmptyListAttr("empty");
  const GraphView fromBytes = SourceViewOf(model.Bytes());
  const GraphView fromGraph = ViewOf(*model.LoadGraph());
  ASSERT_EQ(fromBytes.nodes.size(), 3u);
  ASSERT_EQ(fromGraph.nodes.size(), 3u);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(fromBytes.nodes[i].attrs, fromGraph.nodes[i].attrs) << fromBytes.nodes[i].name;
    EXPECT_EQ(fromBytes.nodes[i].inputs, fromGraph.nodes[i].inputs) << fromBytes.nodes[i].name;
  }
  EXPECT_EQ(fromBytes.nodes[2].attrs,
            "b\ttrue\nempty\t[]\nf\t0.1\ni\t-3\nlf\t[1.5, -2]\n"
            "li\t[1, 1, 1, 1, 1, 1, 1, 1, ... (20 values)]\nls\t[\"a\", \"b\"]\n"
            "s\t\"line\\nbreak\"\n");
  EXPECT_EQ(fromBytes.nodes[2].inputs, "in:0\nbig:0\nin:-1\n");
  EXPECT_TRUE(SourceViewOf("not a model").nodes.empty());
}

}  // namespace
