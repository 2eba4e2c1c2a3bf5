// The model format's wire encoding, read field by field: the one place that knows how protobuf
// lays out tags, varints and length-delimited fields, for the code that reads a model without
// building its whole message (the loader, the source operator count, the report's source view).
// Field numbers come from the generated code (tesu::proto::OpDef::kNameFieldNumber, ...).
#ifndef TOV_GRAPH_MODEL_WIRE_H
#define TOV_GRAPH_MODEL_WIRE_H

#include <climits>
#include <cstdint>
#include <string>
#include <string_view>

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

namespace tov {
namespace wire {

using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;

// Bytes of a serialised message or of one of its fields.
struct Span {
  const uint8_t* data = nullptr;
  uint64_t size = 0;
};

// Reads a message of any size, 64-bit lengths included, with the rules protobuf's own parser
// applies: tags of at most five bytes and a field number other than 0, varints of at most ten
// bytes, lengths within the message, groups closed by their own field number.
class Reader {
 public:
  Reader(const uint8_t* data, uint64_t size) : data_(data), size_(size) {}
  explicit Reader(Span span) : Reader(span.data, span.size) {}

  bool AtEnd() const { return position_ == size_; }
  uint64_t Position() const { return position_; }

  bool ReadVarint(uint64_t& value) {
    value = 0;
    for (unsigned shift = 0; shift < 70 && position_ < size_; shift += 7) {
      const uint8_t byte = data_[position_++];
      if (shift == 63 && byte > 1) return false;
      value |= static_cast<uint64_t>(byte & 0x7f) << shift;
      if ((byte & 0x80) == 0) return true;
    }
    return false;
  }

  // False at a malformed tag, including field number 0 and an end-group tag.
  bool ReadTag(uint32_t& tag) {
    const uint64_t start = position_;
    uint64_t value = 0;
    if (!ReadVarint(value) || position_ - start > 5 || value > UINT32_MAX || (value >> 3) == 0) {
      return false;
    }
    tag = static_cast<uint32_t>(value);
    return WireFormatLite::GetTagWireType(tag) != WireFormatLite::WIRETYPE_END_GROUP;
  }

  // The bytes of a length-delimited field whose tag was just read.
  bool ReadLengthDelimited(Span& span) {
    uint64_t length = 0;
    if (!ReadVarint(length) || length > size_ - position_) return false;
    span = {data_ + position_, length};
    position_ += length;
    return true;
  }

  // Skips the value of a field whose tag was just read.
  bool SkipField(uint32_t tag, int depth = 0) {
    uint64_t value = 0;
    Span span;
    switch (WireFormatLite::GetTagWireType(tag)) {
      case WireFormatLite::WIRETYPE_VARINT:
        return ReadVarint(value);
      case WireFormatLite::WIRETYPE_FIXED64:
        return Advance(8);
      case WireFormatLite::WIRETYPE_FIXED32:
        return Advance(4);
      case WireFormatLite::WIRETYPE_LENGTH_DELIMITED:
        return ReadLengthDelimited(span);
      case WireFormatLite::WIRETYPE_START_GROUP:
        return SkipGroup(WireFormatLite::GetTagFieldNumber(tag), depth + 1);
      default:
        return false;
    }
  }

 private:
  // protobuf's default recursion limit.
  static constexpr int kMaxDepth = 100;

  bool Advance(uint64_t count) {
    if (count > size_ - position_) return false;
    position_ += count;
    return true;
  }

  bool SkipGroup(int number, int depth) {
    if (depth > kMaxDepth) return false;
    while (position_ < size_) {
      const uint64_t start = position_;
      uint64_t value = 0;
      if (!ReadVarint(value) || position_ - start > 5 || value > UINT32_MAX) return false;
      const auto tag = static_cast<uint32_t>(value);
      if (WireFormatLite::GetTagWireType(tag) == WireFormatLite::WIRETYPE_END_GROUP) {
        return WireFormatLite::GetTagFieldNumber(tag) == number;
      }
      if ((tag >> 3) == 0 || !SkipField(tag, depth)) return false;
    }
    return false;
  }

  const uint8_t* data_;
  uint64_t size_;
  uint64_t position_ = 0;
};

inline bool IsLengthDelimited(uint32_t tag) {
  return WireFormatLite::GetTagWireType(tag) == WireFormatLite::WIRETYPE_LENGTH_DELIMITED;
}

inline std::string_view Text(Span bytes) {
  return {reinterpret_cast<const char*>(bytes.data), static_cast<size_t>(bytes.size)};
}

// Calls `field(number, bytes)` for each length-delimited field of a message of any size; other
// fields are skipped. False when the message is malformed or `field` returns false.
template <typename Field>
bool ForEachLengthDelimited(Span message, Field field) {
  Reader in(message);
  while (!in.AtEnd()) {
    uint32_t tag = 0;
    Span bytes;
    if (!in.ReadTag(tag)) return false;
    if (!IsLengthDelimited(tag)) {
      if (!in.SkipField(tag)) return false;
    } else if (!in.ReadLengthDelimited(bytes) ||
               !field(WireFormatLite::GetTagFieldNumber(tag), bytes)) {
      return false;
    }
  }
  return true;
}

// Appends `value` as a varint: how a rewritten message's tags and lengths are spelled.
inline void AppendVarint(uint64_t value, std::string& out) {
  while (value >= 0x80) {
    out.push_back(static_cast<char>((value & 0x7f) | 0x80));
    value >>= 7;
  }
  out.push_back(static_cast<char>(value));
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
}  // namespace tov

#endif
