// Names in the parse options that match nothing in the converted graph. The parser passes them
// over without a word; the front ends warn about each one.
#ifndef TESU_CONVERT_DESIGNATIONS_H
#define TESU_CONVERT_DESIGNATIONS_H

#include <string>
#include <vector>

#include "framework/model_parser.h"
#include "graph/compute_graph.h"

namespace tesu {
namespace convert {

// One line per designated input (shape, type or format) that names no Data node, per output
// node that is not in the graph and per output index beyond its node's outputs. Looks up only the
// names given, so it costs what the options hold, not what the graph holds.
std::vector<std::string> UnmatchedDesignations(const ParserOptions& options,
                                               const tov::ComputeGraph& graph);

}  // namespace convert
}  // namespace tesu

#endif
