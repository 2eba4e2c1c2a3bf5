#include "graph/types.h"

#include <cstring>

namespace tov {
namespace {

struct NamedValue {
  int32_t value;
  const char* name;
  size_t size;
};

constexpr NamedValue kDataTypes[] = {
    {DT_FLOAT, "FLOAT", 4}, {DT_FLOAT16, "FLOAT16", 2}, {DT_INT8, "INT8", 1},
    {DT_INT32, "INT32", 4}, {DT_UINT8, "UINT8", 1},     {DT_BF16, "BF16", 2},
    {DT_INT16, "INT16", 2}, {DT_UINT16, "UINT16", 2},   {DT_UINT32, "UINT32", 4},
    {DT_INT64, "INT64", 8}, {DT_UINT64, "UINT64", 8},   {DT_DOUBLE, "DOUBLE", 8},
    {DT_BOOL, "BOOL", 1},
};

constexpr NamedValue kFormats[] = {
    {FORMAT_NCHW, "NCHW", 0},       {FORMAT_NHWC, "NHWC", 0},           {FORMAT_ND, "ND", 0},
    {FORMAT_NC1HWC0, "NC1HWC0", 0}, {FORMAT_FRACTAL_Z, "FRACTAL_Z", 0}, {FORMAT_HWCN, "HWCN", 0},
    {FORMAT_NDHWC, "NDHWC", 0},     {FORMAT_NCDHW, "NCDHW", 0},
};

template <size_t N>
const NamedValue* FindValue(const NamedValue (&table)[N], int32_t value) {
  for (const auto& entry : table) {
    if (entry.value == value) return &entry;
  }
  return nullptr;
}

template <size_t N>
const NamedValue* FindName(const NamedValue (&table)[N], const std::string& name) {
  for (const auto& entry : table) {
    if (name == entry.name) return &entry;
  }
  return nullptr;
}

}  // namespace

size_t DataTypeSize(int32_t dataType) {
  const NamedValue* entry = FindValue(kDataTypes, dataType);
  return entry == nullptr ? 0 : entry->size;
}

const char* DataTypeName(int32_t dataType) {
  const NamedValue* entry = FindValue(kDataTypes, dataType);
  return entry == nullptr ? "" : entry->name;
}

bool ParseDataType(const std::string& name, DataType& out) {
  const NamedValue* entry = FindName(kDataTypes, name);
  if (entry == nullptr) return false;
  out = static_cast<DataType>(entry->value);
  return true;
}

const char* FormatName(int32_t format) {
  const NamedValue* entry = FindValue(kFormats, format);
  return entry == nullptr ? "" : entry->name;
}

bool ParseFormat(const std::string& name, Format& out) {
  const NamedValue* entry = FindName(kFormats, name);
  if (entry == nullptr) return false;
  out = static_cast<Format>(entry->value);
  return true;
}

}  // namespace tov
