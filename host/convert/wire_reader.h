// Reading serialised messages field by field with protobuf's wire-format reader, for the places
// that need a few fields of a large model without building the whole message (and copying its
// weights).
#ifndef TESU_TOOLS_WIRE_READER_H
#define TESU_TOOLS_WIRE_READER_H

#include <climits>
#include <cstdint>

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

namespace tesu {
namespace cli {
namespace wire {

using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;

inline bool IsLengthDelimited(uint32_t tag) {
  return WireFormatLite::GetTagWireType(tag) == WireFormatLite::WIRETYPE_LENGTH_DELIMITED;
}

// Calls `field(tag)` for each field of the message at the stream's position, up to its current
// limit; `field` reads the field, or returns false to have it skipped.
template <typename Field>
bool ForEachTag(CodedInputStream& in, Field field) {
  while (uint32_t tag = in.ReadTag()) {
    if (field(tag)) continue;
    if (!WireFormatLite::SkipField(&in, tag)) return false;
  }
  return in.ConsumedEntireMessage();
}

// The same for length-delimited fields, by number; other fields are skipped.
template <typename Field>
bool ForEachField(CodedInputStream& in, Field field) {
  return ForEachTag(in, [&field](uint32_t tag) {
    return IsLengthDelimited(tag) && field(WireFormatLite::GetTagFieldNumber(tag));
  });
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

}  // namespace wire
}  // namespace cli
}  // namespace tesu

#endif
