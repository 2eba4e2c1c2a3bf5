// Draws part or all of a graph view as SVG with the Graphviz library: laid out by "dot" and
// rendered in memory, so no program is run and no file is written.
#ifndef TESU_TOOLS_REPORT_GRAPH_SVG_H
#define TESU_TOOLS_REPORT_GRAPH_SVG_H

#include <string>
#include <vector>

#include "graph_view.h"

namespace tesu {
namespace cli {
namespace report {

enum class Mark { kPlain, kChanged, kUnsupported };

struct DrawnNode {
  const ViewNode* node;
  std::string id;  // the id of the node's element in the SVG, for the page to find it
  Mark mark;
};

// One box per node (name and type), an arrow per data input between drawn nodes, dashed for a
// control edge. Marked nodes are filled and carry the class "changed" or "unsupported". False,
// with the reason, when Graphviz cannot lay out or render.
bool RenderSvg(const std::vector<DrawnNode>& nodes, std::string& svg, std::string& error);

// Loads what Graphviz loads on its first drawing in a process (its plug-ins, the fonts), so that
// a later drawing does not wait for it. Safe to call from any thread, at any time.
void WarmUpGraphviz();

}  // namespace report
}  // namespace cli
}  // namespace tesu

#endif
