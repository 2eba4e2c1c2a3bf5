// What a model file holds before conversion: its name and its operator counts.
#ifndef TESU_TOOLS_MODEL_SUMMARY_H
#define TESU_TOOLS_MODEL_SUMMARY_H

#include <string>
#include <string_view>

#include "summary.h"

namespace tesu {
namespace cli {

// Reads the name and the operator types of the first graph of serialised ModelDef bytes, of any
// size. It walks the wire format (graph/model_wire.h) and skips everything else, so summarising
// a model with large weights neither copies them nor builds the model. False when the bytes are
// not well-formed.
bool SummarizeModel(std::string_view bytes, std::string& name, OpCounts& counts);

}  // namespace cli
}  // namespace tesu

#endif
