#include "model_file.h"

#include <google/protobuf/util/json_util.h>

#include "framework/proto_io.h"
#include "graph/proto/model.pb.h"

namespace tesu {
namespace cli {
namespace {

bool IsJsonText(const std::string& bytes) {
  const size_t first = bytes.find_first_not_of(" \t\r\n");
  return first != std::string::npos && bytes[first] == '{';
}

}  // namespace

bool ReadModelFile(const std::string& path, std::string& bytes, std::string& error) {
  if (!ReadFileBytes(path, bytes, error)) return false;
  if (!IsJsonText(bytes)) return true;

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
