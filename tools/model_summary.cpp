#include "model_summary.h"

#include <climits>

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

namespace tesu {
namespace cli {
namespace {

using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;

// Field numbers of the model format that the summary reads.
constexpr int kModelName = 1;
constexpr int kModelGraph = 2;
constexpr int kGraphOp = 2;
constexpr int kOpType = 2;

bool IsLengthDelimited(uint32_t tag) {
  return WireFormatLite::GetTagWireType(tag) == WireFormatLite::WIRETYPE_LENGTH_DELIMITED;
}

// Calls `field(number)` for each length-delimited field of the message at the stream's
// position, up to its current limit; `field` reads the field, or returns false to have it
// skipped. Other fields are skipped.
template <typename Field>
bool ForEachField(CodedInputStream& in, Field field) {
  while (uint32_t tag = in.ReadTag()) {
    const int number = WireFormatLite::GetTagFieldNumber(tag);
    if (IsLengthDelimited(tag) && field(number)) continue;
    if (!WireFormatLite::SkipField(&in, tag)) return false;
  }
  return in.ConsumedEntireMessage();
}

// Runs `body` on the length-delimited message at the stream's position.
template <typename Body>
bool InMessage(CodedInputStream& in, Body body) {
  uint32_t length = 0;
  if (!in.ReadVarint32(&length) || length > static_cast<uint32_t>(INT_MAX)) return false;
  const CodedInputStream::Limit limit = in.PushLimit(static_cast<int>(length));
  const bool ok = body();
  in.PopLimit(limit);
  return ok;
}

}  // namespace

bool SummarizeModel(std::string_view bytes, std::string& name, OpCounts& counts) {
  if (bytes.size() > static_cast<size_t>(INT_MAX)) return false;
  CodedInputStream in(reinterpret_cast<const uint8_t*>(bytes.data()),
                      static_cast<int>(bytes.size()));
  bool ok = true;
  auto readOp = [&] {
    std::string type;
    const bool parsed = ForEachField(in, [&](int number) {
      if (number != kOpType) return false;
      ok = ok && WireFormatLite::ReadString(&in, &type);
      return true;
    });
    ++counts[type];
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
  return parsed && ok;
}

}  // namespace cli
}  // namespace tesu
