#include "model_file.h"

#include <string_view>

#include <google/protobuf/util/json_util.h>

#include "framework/proto_io.h"
#include "graph/proto/model.pb.h"

namespace tesu {
namespace cli {

bool ReadModelFile(const std::string& path, std::string& bytes, std::string& error) {
  if (!ReadFileBytes(path, bytes, error)) return false;
  return !IsJsonModel(bytes.data(), bytes.size()) || JsonModelToBinary(bytes, error);
}

bool IsJsonModel(const char* data, size_t size) {
  const std::string_view text(data, size);
  const size_t first = text.find_first_not_of(" \t\r\n");
  return first != std::string_view::npos && text[first] == '{';
}

bool JsonModelToBinary(std::string& bytes, std::string& error) {
  tesu::proto::ModelDef model;
  const auto status = google::protobuf::util::JsonStringToMessage(bytes, &model);
  if (!status.ok()) {
    error = "invalid model JSON: " + status.ToString();
    return false;
  }
  if (!model.SerializeToString(&bytes)) {
    error = "cannot serialise the model read from JSON";
    return false;
  }
  return true;
}

}  // namespace cli
}  // namespace tesu
