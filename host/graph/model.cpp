#include "graph/model.h"

#include <climits>
#include <string_view>

#include <google/protobuf/message_lite.h>

#include "graph/mapped_file.h"
#include "graph/model_serializer.h"
#include "graph/wire_output.h"
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

// Measures the model, then writes it to the output `open` gives for that many bytes.
template <typename Open>
graphStatus SaveTo(const Model& model, const TensorPlan& plan, Open open) {
  WireLayout layout;
  const graphStatus status = ModelSerializer::MeasureModel(model, plan, layout);
  if (status != GRAPH_SUCCESS) return status;
  auto out = open(layout.bytes);
  return ModelSerializer::WriteModel(model, plan, layout, out);
}

// A message of one part's bytes; false when the bytes are more than a message may hold.
bool ParsePart(google::protobuf::MessageLite& message, std::string_view bytes) {
  return bytes.size() <= static_cast<size_t>(INT_MAX) &&
         message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
}

}  // namespace

graphStatus Model::Save(std::string& bytes) const {
  return SaveTo(*this, TensorPlan(),
                [&bytes](uint64_t size) { return StringWireOutput(bytes, size); });
}

graphStatus Model::Save(google::protobuf::io::ZeroCopyOutputStream& stream) const {
  return SaveTo(*this, TensorPlan(), [&stream](uint64_t) { return StreamWireOutput(stream); });
}

graphStatus Model::Save(int fd) const {
  return SaveTo(*this, TensorPlan(), [fd](uint64_t) { return FdWireOutput(fd); });
}

graphStatus Model::Save(int fd, const WeightsFile& weights) const {
  FdWireOutput weightsOut(weights.fd);
  TensorPlan plan;
  plan.weights = &weightsOut;
  plan.location = weights.location;
  const graphStatus status = SaveTo(*this, plan, [fd](uint64_t) { return FdWireOutput(fd); });
  const bool weightsWritten = weightsOut.Finish();
  return status == GRAPH_SUCCESS && weightsWritten ? GRAPH_SUCCESS : GRAPH_FAILED;
}

graphStatus Model::Save(tesu::proto::ModelDef& modelDef, bool withTensorData) const {
  modelDef.Clear();
  tesu::proto::GraphDef* graphDef = nullptr;
  bool parsed = true;
  const graphStatus status = SaveParts(
      [&](ModelPart part, std::string_view bytes) {
        google::protobuf::MessageLite* message = &modelDef;
        if (part == ModelPart::kGraph) message = graphDef = modelDef.add_graph();
        if (part == ModelPart::kOp) message = graphDef->add_op();
        parsed = ParsePart(*message, bytes);
        return parsed;
      },
      withTensorData);
  if (!parsed) {
    AI_Log_Print(AI_LOG_ERROR, "GRAPH",
                 "cannot save model \"%s\" as a message: it holds more than a message may",
                 name_.c_str());
  }
  return status;
}

graphStatus Model::SaveParts(const ModelPartWriter& part, bool withTensorData) const {
  return ModelSerializer::WriteParts(*this, withTensorData, part);
}

}  // namespace tov
