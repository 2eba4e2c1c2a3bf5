// Basic vocabulary of the graph library: statuses, element types and tensor layouts.
#ifndef TOV_GRAPH_TYPES_H
#define TOV_GRAPH_TYPES_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace tov {

// 0 is success. Graph-library faults use their own small numbers so that a caller can tell them
// from the plug-in's 1 and its converters' 3.
using graphStatus = uint32_t;
constexpr graphStatus GRAPH_SUCCESS = 0;
constexpr graphStatus GRAPH_FAILED = 10;         // an operation could not be carried out
constexpr graphStatus GRAPH_PARAM_INVALID = 11;  // null or out-of-range argument
constexpr graphStatus GRAPH_NOT_FOUND = 12;      // the node, edge or attribute does not exist
constexpr graphStatus GRAPH_MODEL_INVALID = 13;  // serialised model rejected by Model::Load

enum DataType : int32_t {
  DT_FLOAT = 0,
  DT_FLOAT16 = 1,
  DT_INT8 = 2,
  DT_INT32 = 3,
  DT_UINT8 = 4,
  DT_BF16 = 5,
  DT_INT16 = 6,
  DT_UINT16 = 7,
  DT_UINT32 = 8,
  DT_INT64 = 9,
  DT_UINT64 = 10,
  DT_DOUBLE = 11,
  DT_BOOL = 12,
  DT_UNDEFINED = 28,
};

enum Format : int32_t {
  FORMAT_NCHW = 0,
  FORMAT_NHWC = 1,
  FORMAT_ND = 2,
  FORMAT_NC1HWC0 = 3,
  FORMAT_FRACTAL_Z = 4,
  FORMAT_HWCN = 5,
  FORMAT_NDHWC = 6,
  FORMAT_NCDHW = 7,
  FORMAT_RESERVED = 40,
};

// Bytes per element, or 0 for a value that is not a known element type.
size_t DataTypeSize(int32_t dataType);
// "FLOAT", "INT32", ...; empty for an unknown value.
const char* DataTypeName(int32_t dataType);
// Parses a name as DataTypeName spells it; false for an unknown name.
bool ParseDataType(const std::string& name, DataType& out);
const char* FormatName(int32_t format);
bool ParseFormat(const std::string& name, Format& out);

}  // namespace tov

#endif
