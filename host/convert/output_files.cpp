#include "output_files.h"

#include <set>

#include <google/protobuf/io/zero_copy_stream_impl.h>
#include <nlohmann/json.hpp>

#include "framework/proto_io.h"
#include "graph/dot_writer.h"
#include "graph/proto/model.pb.h"

namespace tesu {
namespace cli {

Status WriteModelFile(const ConversionResult& result, const std::string& path) {
  // Streamed into the file: the model's tensors are not copied into a serialised buffer first.
  Status status = SUCCESS;
  const Status written = WriteFileAtomically(path, [&](int fd) {
    google::protobuf::io::FileOutputStream stream(fd);
    status = result.converted.Save(stream);
    return status == SUCCESS && stream.Flush();
  });
  return status != SUCCESS ? status : written;
}

Status ModelToJson(const tov::Model& model, nlohmann::json& json) {
  tesu::proto::ModelDef message;
  const Status status = model.Save(message, /*withTensorData=*/false);
  if (status != SUCCESS) return status;
  Pb2Json::Message2Json(message, {"data"}, json, false);
  return SUCCESS;
}

Status WriteModelJson(const ConversionResult& result, const std::string& path) {
  nlohmann::json json;
  const Status status = ModelToJson(result.converted, json);
  return status != SUCCESS ? status : ModelSaver::SaveJsonToFile(path.c_str(), json);
}

Status WriteGraphDot(const ConversionResult& result, const std::string& path) {
  const auto graph = tov::GraphUtils::GetComputeGraph(result.converted.GetGraph());
  return WriteFileAtomically(path, graph == nullptr ? std::string() : tov::ToDot(*graph));
}

Status WriteSourceDot(const ConversionResult& result, const std::string& path) {
  return WriteFileAtomically(path, result.sourceDot);
}

}  // namespace cli
}  // namespace tesu
