#ifndef TOV_GRAPH_DOT_WRITER_H
#define TOV_GRAPH_DOT_WRITER_H

#include <string>

#include "graph/compute_graph.h"

namespace tov {

// Writes a graph as Graphviz DOT: one box per node labelled with its name, its type and its
// short attributes (numbers, strings and lists of up to eight values; tensors show their shape),
// data edges as arrows and control edges dashed. Render with `dot -Tsvg graph.dot -o graph.svg`.
std::string ToDot(const ComputeGraph& graph);

}  // namespace tov

#endif
