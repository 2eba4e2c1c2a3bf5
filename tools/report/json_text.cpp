#include "json_text.h"

#include <charconv>

namespace tesu {
namespace cli {
namespace report {
namespace {

constexpr char kHex[] = "0123456789abcdef";
constexpr std::string_view kReplacement = "\\ufffd";

// The length of the UTF-8 sequence that starts at `at`, or 0 when the bytes there are not one.
size_t SequenceLength(std::string_view text, size_t at) {
  const auto byte = [&text](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(at);
  size_t length = 0;
  unsigned char low = 0x80;  // the range of the second byte
  unsigned char high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;   // no overlong forms
    if (lead == 0xED) high = 0x9F;  // no surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;  // nothing above U+10FFFF
  } else {
    return 0;
  }
  if (at + length > text.size() || byte(at + 1) < low || byte(at + 1) > high) return 0;
  for (size_t i = 2; i < length; ++i) {
    if (byte(at + i) < 0x80 || byte(at + i) > 0xBF) return 0;
  }
  return length;
}

// Bytes written as they are: printable ASCII but for the quote, the backslash and '<'.
struct PlainBytes {
  bool plain[256] = {};
  constexpr PlainBytes() {
    for (int c = 0x20; c < 0x80; ++c) plain[c] = c != '"' && c != '\\' && c != '<';
  }
};
constexpr PlainBytes kPlain;

}  // namespace

void AppendJsonChars(std::string& out, std::string_view text) {
  size_t plain = 0;  // start of the bytes not yet written
  size_t at = 0;
  while (at < text.size()) {
    const auto c = static_cast<unsigned char>(text[at]);
    if (kPlain.plain[c]) {
      ++at;
      continue;
    }
    if (c >= 0x80) {
      const size_t length = SequenceLength(text, at);
      if (length != 0) {
        at += length;
        continue;
      }
    }
    out.append(text.data() + plain, at - plain);
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        if (c >= 0x80) {
          out += kReplacement;
        } else {
          out += "\\u00";
          out += kHex[c >> 4];
          out += kHex[c & 0xF];
        }
    }
    plain = ++at;
  }
  out.append(text.data() + plain, text.size() - plain);
}

void AppendJsonString(std::string& out, std::string_view text) {
  out += '"';
  AppendJsonChars(out, text);
  out += '"';
}

void AppendJsonNumber(std::string& out, uint64_t value) {
  char buffer[24];
  const auto result = std::to_chars(buffer, buffer + sizeof(buffer), value);
  out.append(buffer, result.ptr);
}

}  // namespace report
}  // namespace cli
}  // namespace tesu
