#include "model_summary.h"

#include "graph/model_wire.h"
#include "graph/proto/model.pb.h"

namespace tesu {
namespace cli {

using tov::wire::ForEachLengthDelimited;
using tov::wire::Span;

bool SummarizeModel(std::string_view bytes, std::string& name, OpCounts& counts) {
  OpTally tally;
  std::string_view type;
  auto readOp = [&](int number, Span field) {
    if (number == proto::OpDef::kTypeFieldNumber) type = tov::wire::Text(field);
    return true;
  };
  auto readGraph = [&](int number, Span field) {
    if (number != proto::GraphDef::kOpFieldNumber) return true;
    type = {};
    const bool parsed = ForEachLengthDelimited(field, readOp);
    tally.Add(type);
    return parsed;
  };
  bool sawGraph = false;
  const bool parsed = ForEachLengthDelimited(
      {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()}, [&](int number, Span field) {
        if (number == proto::ModelDef::kNameFieldNumber) name = tov::wire::Text(field);
        if (number != proto::ModelDef::kGraphFieldNumber || sawGraph) return true;
        sawGraph = true;  // the first graph is the model's graph
        return ForEachLengthDelimited(field, readGraph);
      });
  for (const auto& entry : tally.Counts()) counts[entry.first] += entry.second;
  return parsed;
}

}  // namespace cli
}  // namespace tesu
