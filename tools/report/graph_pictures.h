// The two pictures of the report: the source graph and the converted graph side by side, whole
// when the graph is small enough to lay out quickly, otherwise only around the nodes that
// matter (unsupported and changed ones).
#ifndef TESU_TOOLS_REPORT_GRAPH_PICTURES_H
#define TESU_TOOLS_REPORT_GRAPH_PICTURES_H

#include <cstddef>
#include <string>
#include <unordered_set>
#include <vector>

#include "conversion_diff.h"
#include "graph_svg.h"

namespace tesu {
namespace cli {
namespace report {

struct PictureLimits {
  // Graphs of up to this many nodes (counting both sides' nodes once) are drawn whole. Layout
  // time grows faster than the node count; at this size "dot" takes about half a second.
  size_t wholeGraph = 1500;
  // Otherwise: at most this many nodes of interest, plus their producers and consumers, up to
  // `drawn` nodes in all.
  size_t centres = 60;
  size_t drawn = 200;
};

struct Pictures {
  std::string source;     // SVG; empty when there is nothing to draw
  std::string converted;  // SVG; empty when the conversion failed
  bool whole = true;      // false: only neighbourhoods are drawn
  size_t drawnNodes = 0;  // rows drawn on either side
  std::string error;      // why a picture is missing, when Graphviz failed
};

// The element id of row `row`'s node in the source ("s12") and converted ("c12") picture.
std::string SourceId(size_t row);
std::string ConvertedId(size_t row);

// How each row is highlighted; `unsupported` holds the names the support check refused.
std::vector<Mark> MarkRows(const std::vector<NodeComparison>& rows,
                           const std::unordered_set<std::string>& unsupported);

// Draws the rows' nodes, highlighted by `marks` (one per row).
Pictures DrawPictures(const std::vector<NodeComparison>& rows, const std::vector<Mark>& marks,
                      const PictureLimits& limits);

}  // namespace report
}  // namespace cli
}  // namespace tesu

#endif
