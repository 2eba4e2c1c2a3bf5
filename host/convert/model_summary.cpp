#include "model_summary.h"

#include <climits>

#include "wire_reader.h"

namespace tesu {
namespace cli {
namespace {

using wire::CodedInputStream;
using wire::ForEachField;
using wire::InMessage;
using wire::WireFormatLite;

// Field numbers of the model format that the summary reads.
constexpr int kModelName = 1;
constexpr int kModelGraph = 2;
constexpr int kGraphOp = 2;
constexpr int kOpType = 2;

}  // namespace

bool SummarizeModel(std::string_view bytes, std::string& name, OpCounts& counts) {
  if (bytes.size() > static_cast<size_t>(INT_MAX)) return false;
  CodedInputStream in(reinterpret_cast<const uint8_t*>(bytes.data()),
                      static_cast<int>(bytes.size()));
  bool ok = true;
  OpTally tally;
  std::string type;  // reused, so that reading a type allocates nothing
  auto readOp = [&] {
    type.clear();
    const bool parsed = ForEachField(in, [&](int number) {
      if (number != kOpType) return false;
      ok = ok && WireFormatLite::ReadString(&in, &type);
      return true;
    });
    tally.Add(type);
    return parsed;
  };
  auto readGraph = [&] {
    return ForEachField(in, [&](int number) {
      if (number != kGraphOp) return false;
      ok = ok && InMessage(in, readOp);
      return true;
    });
  };
  bool sawGraph = false;
  const bool parsed = ForEachField(in, [&](int number) {
    if (number == kModelName) {
      ok = ok && WireFormatLite::ReadString(&in, &name);
      return true;
    }
    if (number != kModelGraph || sawGraph) return false;
    sawGraph = true;  // the first graph is the model's graph
    ok = ok && InMessage(in, readGraph);
    return true;
  });
  for (const auto& entry : tally.Counts()) counts[entry.first] += entry.second;
  return parsed && ok;
}

}  // namespace cli
}  // namespace tesu
