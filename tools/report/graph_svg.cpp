#include "graph_svg.h"

#include <graphviz/cgraph.h>
#include <graphviz/gvc.h>

#include <memory>
#include <mutex>
#include <string_view>
#include <unordered_map>

namespace tesu {
namespace cli {
namespace report {
namespace {

// Graphviz's C interface takes char* for strings it only reads.
char* Text(const char* text) {
  return const_cast<char*>(text);
}

// Graphviz reads HTML entities in names and labels ("&lt;" becomes "<") and backslashes in labels
// as escapes ("\n", "\N"); a node name keeps its own.
std::string GraphvizText(std::string_view text, bool label) {
  std::string escaped;
  escaped.reserve(text.size());
  for (char c : text) {
    if (c == '&') {
      escaped += "&amp;";
      continue;
    }
    escaped += c;
    if (label && c == '\\') escaped += '\\';
  }
  return escaped;
}

struct Style {
  const char* cls;
  const char* fill;
  const char* line;
};

Style StyleOf(Mark mark, std::string_view type) {
  switch (mark) {
    case Mark::kUnsupported:
      return {"unsupported", "#f9d0cc", "#b3261e"};
    case Mark::kChanged:
      return {"changed", "#fdf0c2", "#9a6700"};
    case Mark::kPlain:
      break;
  }
  return {"", type == "Const" ? "#eeeeee" : "#ffffff", "#555555"};
}

// One Graphviz context for the whole process, never freed: Graphviz's text layout keeps
// pointers into a context's font table from one call to the next, so a second context would
// meet names the first one freed. Graphviz is not thread-safe either, hence one lock for every
// use.
GVC_t* SharedContext() {
  static GVC_t* const gvc = gvContext();
  return gvc;
}

std::mutex& GraphvizLock() {
  static std::mutex lock;
  return lock;
}

struct Graph {
  Agraph_t* g;
  explicit Graph(Agraph_t* graph) : g(graph) {}
  ~Graph() {
    if (g != nullptr) agclose(g);
  }
};

}  // namespace

bool RenderSvg(const std::vector<DrawnNode>& nodes, std::string& svg, std::string& error) {
  const std::lock_guard<std::mutex> lock(GraphvizLock());
  GVC_t* gvc = SharedContext();
  if (gvc == nullptr) {
    error = "Graphviz could not start";
    return false;
  }
  Graph graph(agopen(Text("graph"), Agdirected, nullptr));
  Agraph_t* g = graph.g;
  agattr(g, AGRAPH, Text("rankdir"), Text("TB"));
  agattr(g, AGNODE, Text("shape"), Text("box"));
  agattr(g, AGNODE, Text("fontname"), Text("Helvetica"));
  agattr(g, AGNODE, Text("fontsize"), Text("10"));
  agattr(g, AGNODE, Text("style"), Text("filled"));
  Agsym_t* labelAttr = agattr(g, AGNODE, Text("label"), Text(""));
  Agsym_t* id = agattr(g, AGNODE, Text("id"), Text(""));
  Agsym_t* cls = agattr(g, AGNODE, Text("class"), Text(""));
  Agsym_t* fill = agattr(g, AGNODE, Text("fillcolor"), Text("#ffffff"));
  Agsym_t* line = agattr(g, AGNODE, Text("color"), Text("#555555"));
  Agsym_t* edgeStyle = agattr(g, AGEDGE, Text("style"), Text(""));

  std::unordered_map<std::string_view, Agnode_t*> byName;
  byName.reserve(nodes.size());
  for (const DrawnNode& drawn : nodes) {
    // The Graphviz name shows as the node's tooltip; a second node of one name gets its id too.
    std::string name = GraphvizText(drawn.node->name, /*label=*/false);
    if (agnode(g, Text(name.c_str()), 0) != nullptr) name += " (" + drawn.id + ")";
    Agnode_t* n = agnode(g, Text(name.c_str()), 1);
    std::string label = GraphvizText(drawn.node->name, /*label=*/true);
    label += '\n';
    label += GraphvizText(drawn.node->type, /*label=*/true);
    agxset(n, labelAttr, Text(label.c_str()));
    agxset(n, id, Text(drawn.id.c_str()));
    const Style style = StyleOf(drawn.mark, drawn.node->type);
    agxset(n, cls, Text(style.cls));
    agxset(n, fill, Text(style.fill));
    agxset(n, line, Text(style.line));
    byName.emplace(drawn.node->name, n);
  }
  for (const DrawnNode& drawn : nodes) {
    Agnode_t* head = byName.at(drawn.node->name);
    ForEachEntry(drawn.node->inputs, [&](std::string_view input) {
      const auto tail = input.empty() ? byName.end() : byName.find(ProducerOf(input));
      if (tail == byName.end()) return;
      Agedge_t* e = agedge(g, tail->second, head, nullptr, 1);
      if (IsControlInput(input)) agxset(e, edgeStyle, Text("dashed"));
    });
  }

  if (gvLayout(gvc, g, "dot") != 0) {
    error = "Graphviz could not lay out the graph";
    return false;
  }
  char* data = nullptr;
  unsigned int length = 0;
  const int rendered = gvRenderData(gvc, g, "svg", &data, &length);
  if (rendered == 0 && data != nullptr) svg.assign(data, length);
  if (data != nullptr) gvFreeRenderData(data);
  gvFreeLayout(gvc, g);
  if (rendered != 0) {
    error = "Graphviz could not render SVG";
    return false;
  }
  // The page embeds the <svg> element itself; the XML prologue and doctype stay out.
  const size_t start = svg.find("<svg");
  if (start != std::string::npos) svg.erase(0, start);
  return true;
}

void WarmUpGraphviz() {
  const ViewNode node{"warm-up", "Const", {}, {}, 0, 0};
  std::string svg;
  std::string error;
  RenderSvg({{&node, "w", Mark::kPlain}}, svg, error);
}

}  // namespace report
}  // namespace cli
}  // namespace tesu
