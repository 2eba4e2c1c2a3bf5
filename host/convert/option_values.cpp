#include "convert/option_values.h"

#include <cctype>
#include <charconv>
#include <limits>

#include "graph/shape_math.h"

namespace tesu {
namespace convert {
namespace {

std::string Upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

bool ParseNumber(const std::string& text, int32_t& out) {
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, out);
  return !text.empty() && result.ec == std::errc() && result.ptr == end;
}

// Names known to `nameOf` for values 0..limit, for messages that list the choices.
std::string KnownNames(const char* (*nameOf)(int32_t), int32_t limit) {
  std::string names;
  for (int32_t value = 0; value <= limit; ++value) {
    const std::string name = nameOf(value);
    if (name.empty()) continue;
    names += (names.empty() ? "" : ", ") + name;
  }
  return names;
}

// A value of a named enumeration: its name (any case) or its number.
template <typename Enum>
std::string ParseNamedValue(const std::string& text, const char* (*nameOf)(int32_t),
                            bool (*parse)(const std::string&, Enum&), int32_t limit,
                            const std::string& what, Enum& out) {
  int32_t number = 0;
  if (ParseNumber(text, number)) {
    if (*nameOf(number) == '\0') return "unknown " + what + " " + Quote(text);
    out = static_cast<Enum>(number);
    return std::string();
  }
  if (parse(Upper(text), out)) return std::string();
  return "unknown " + what + " " + Quote(text) + " (expected one of " + KnownNames(nameOf, limit) +
         ", or its number)";
}

const char* OutputFormatName(int32_t format) {
  switch (format) {
    case TREL_FORMAT_NCHW:
      return "NCHW";
    case TREL_FORMAT_NHWC:
      return "NHWC";
    case TREL_FORMAT_ND:
      return "ND";
    case TREL_FORMAT_NC1HWC0:
      return "NC1HWC0";
    default:
      return "";
  }
}

bool ParseOutputFormatName(const std::string& name, TrelTensorFormat& out) {
  for (int32_t value = 0; value < TREL_FORMAT_RESERVED; ++value) {
    if (name == OutputFormatName(value)) {
      out = static_cast<TrelTensorFormat>(value);
      return true;
    }
  }
  return false;
}

}  // namespace

std::string Quote(const std::string& text) {
  return "\"" + text + "\"";
}

std::string ParseDataType(const std::string& text, tov::DataType& out) {
  return ParseNamedValue<tov::DataType>(text, tov::DataTypeName, tov::ParseDataType,
                                        tov::DT_UNDEFINED, "data type", out);
}

std::string ParseFormat(const std::string& text, tov::Format& out) {
  return ParseNamedValue<tov::Format>(text, tov::FormatName, tov::ParseFormat, tov::FORMAT_RESERVED,
                                      "format", out);
}

std::string ParseOutputFormat(const std::string& text, TrelTensorFormat& out) {
  return ParseNamedValue<TrelTensorFormat>(text, OutputFormatName, ParseOutputFormatName,
                                           TREL_FORMAT_RESERVED, "format", out);
}

std::string CheckShape(const std::string& name, const std::vector<int64_t>& dims) {
  for (const int64_t dim : dims) {
    if (dim < -1) {
      return "dimension " + Quote(std::to_string(dim)) + " is below -1 in the shape of " +
             Quote(name);
    }
  }
  // A shape that no tensor could have is refused here rather than reaching the graph.
  const tov::ShapeSize size = tov::CheckedElementCount(dims, tov::UnknownDims::kSkip);
  if (!size.ok()) return Quote(name) + " " + tov::DescribeShapeFault(size, dims, tov::DT_FLOAT);
  return std::string();
}

std::string CheckOutputIndex(const std::string& name, int64_t index) {
  const std::string text = Quote(std::to_string(index));
  if (index < 0) return "output index " + text + " is below 0 of node " + Quote(name);
  if (index > std::numeric_limits<int32_t>::max()) {
    return "output index " + text + " is not an integer of node " + Quote(name);
  }
  return std::string();
}

}  // namespace convert
}  // namespace tesu
