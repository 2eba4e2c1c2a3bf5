// Values of the parse options, checked the same way whichever front end took them: a data type
// or a format by name or number, a shape, an output index.
#ifndef TESU_CONVERT_OPTION_VALUES_H
#define TESU_CONVERT_OPTION_VALUES_H

#include <cstdint>
#include <string>
#include <vector>

#include "framework/model_parser.h"
#include "graph/types.h"

namespace tesu {
namespace convert {

// Each returns an empty string on success, otherwise the reason the value was refused, quoting
// it; `out` is then unspecified. Names are accepted in any case.
std::string ParseDataType(const std::string& text, tov::DataType& out);
std::string ParseFormat(const std::string& text, tov::Format& out);
std::string ParseOutputFormat(const std::string& text, TrelTensorFormat& out);
// The designated shape of input `name`: dimensions of -1 (unknown) or more whose element count
// a tensor can have.
std::string CheckShape(const std::string& name, const std::vector<int64_t>& dims);
// An output index of node `name`: 0 or more, and 32 bits.
std::string CheckOutputIndex(const std::string& name, int64_t index);

// "a", "b": `text` in double quotes, as messages quote values.
std::string Quote(const std::string& text);

}  // namespace convert
}  // namespace tesu

#endif
