#include "graph/model.h"

#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include "graph/mapped_file.h"
#include "graph/model_serializer.h"
#include "log/log.h"

namespace tov {

graphStatus Model::Load(const uint8_t* data, size_t size) {
  if (data == nullptr && size != 0) return GRAPH_PARAM_INVALID;
  return ModelSerializer::LoadModel(data, size, *this);
}

graphStatus Model::LoadFile(const std::string& path) {
  std::string error;
  const std::shared_ptr<const MappedFile> file = MappedFile::Open(path, error);
  if (file == nullptr) {
    AI_Log_Print(AI_LOG_ERROR, "GRAPH", "cannot read the model file \"%s\": %s", path.c_str(),
                 error.c_str());
    return GRAPH_FAILED;
  }
  return ModelSerializer::LoadModel(file->data(), static_cast<size_t>(file->size()), *this);
}

graphStatus Model::Load(tesu::proto::ModelDef&& modelDef) {
  Model loaded(modelDef.name(), Graph());
  if (ModelSerializer::LoadAttrs(*modelDef.mutable_attr(), "model", loaded) != GRAPH_SUCCESS) {
    return GRAPH_MODEL_INVALID;
  }
  if (modelDef.graph_size() > 0) {
    std::shared_ptr<ComputeGraph> graph;
    const graphStatus status = ModelSerializer::LoadGraph(*modelDef.mutable_graph(0), graph);
    if (status != GRAPH_SUCCESS) return status;
    loaded.graph_ = GraphUtils::CreateGraphFromComputeGraph(std::move(graph));
  }
  *this = std::move(loaded);
  return GRAPH_SUCCESS;
}

namespace {

graphStatus BuildMessage(const Model& model, const Graph& graph, tesu::proto::ModelDef& modelDef,
                         TensorBytes& tensorBytes) {
  modelDef.Clear();
  modelDef.set_name(model.GetName());
  ModelSerializer::SaveAttrs(model, *modelDef.mutable_attr(), tensorBytes);
  std::shared_ptr<ComputeGraph> computeGraph = GraphUtils::GetComputeGraph(graph);
  if (computeGraph == nullptr) return GRAPH_SUCCESS;
  return ModelSerializer::SaveGraph(*computeGraph, *modelDef.add_graph(), tensorBytes);
}

}  // namespace

graphStatus Model::Save(tesu::proto::ModelDef& modelDef, bool withTensorData) const {
  TensorBytes tensorBytes(withTensorData ? TensorBytes::Mode::kCopy : TensorBytes::Mode::kOmit);
  return BuildMessage(*this, graph_, modelDef, tensorBytes);
}

graphStatus Model::Save(google::protobuf::io::ZeroCopyOutputStream& stream) const {
  return ModelSerializer::WriteModel(*this, stream);
}

graphStatus Model::Save(std::string& bytes) const {
  bytes.clear();
  google::protobuf::io::StringOutputStream stream(&bytes);
  // The stream fills whatever room the string has: with room for exactly the model, the bytes
  // are written once, without the copies of a string that doubles as it grows.
  return ModelSerializer::WriteModel(*this, stream, [&bytes](size_t size) { bytes.reserve(size); });
}

}  // namespace tov
