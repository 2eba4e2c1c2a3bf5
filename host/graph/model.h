#ifndef TOV_GRAPH_MODEL_H
#define TOV_GRAPH_MODEL_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "graph/attr_holder.h"
#include "graph/graph.h"

namespace tesu {
namespace proto {
class ModelDef;
}
}  // namespace tesu
namespace google {
namespace protobuf {
namespace io {
class ZeroCopyOutputStream;
}
}  // namespace protobuf
}  // namespace google

namespace tov {

// A file that takes the tensor bytes of a saved model. Each tensor of at least
// kMinExternalTensorBytes is written to `fd` at the next offset that is a multiple of
// kExternalTensorAlignment (zero bytes in between), and the model records, instead of its bytes,
// `location` (the weights file's path relative to the model file's folder), the offset and the
// length.
struct WeightsFile {
  int fd = -1;
  std::string location;
};
constexpr size_t kMinExternalTensorBytes = 1024;
constexpr size_t kExternalTensorAlignment = 64;

// The messages Model::SaveParts hands out.
enum class ModelPart { kModel, kGraph, kOp };
using ModelPartWriter = std::function<bool(ModelPart part, std::string_view bytes)>;

// What a serialised model loads into: a name, attributes and one graph.
class Model : public AttrHolder {
 public:
  Model() = default;
  Model(const std::string& name, const Graph& graph) : name_(name), graph_(graph) {}

  // Parses a serialised ModelDef and builds its compute graph. A model without a graph loads
  // as a model whose graph is empty (no compute graph). Any malformed content is refused with
  // GRAPH_MODEL_INVALID and one log line naming the node and the problem.
  // Bytes that lie in a live MappedFile (graph/mapped_file.h) are not copied: the model's
  // tensors refer to them and keep the mapping alive, and side files are found next to the
  // mapped file. Other bytes are copied.
  graphStatus Load(const uint8_t* data, size_t size);
  // Maps the model file at `path` and loads it, as above. GRAPH_FAILED, with a log line, when
  // the file cannot be mapped.
  graphStatus LoadFile(const std::string& path);
  // Builds the compute graph from a parsed message; the message's tensor bytes are moved out.
  graphStatus Load(tesu::proto::ModelDef&& modelDef);

  // Serialises the model. Fails when the graph holds two nodes of one name, since inputs refer
  // to producers by name. Tensor bytes go from wherever they lie (owned, or in a mapped file) to
  // the output; every tensor is written inline, whatever file it was read from.
  graphStatus Save(std::string& bytes) const;
  graphStatus Save(google::protobuf::io::ZeroCopyOutputStream& stream) const;
  // To a file descriptor, any size: payloads of tensor bytes are written from where they lie,
  // without passing through a buffer.
  graphStatus Save(int fd) const;
  // The same with the tensors of at least kMinExternalTensorBytes in a weights file (see
  // WeightsFile); smaller tensors stay inline.
  graphStatus Save(int fd, const WeightsFile& weights) const;
  // The model as a message. Without tensor data, a tensor keeps its description, and a tensor
  // read from a weights file its location there, but no bytes.
  graphStatus Save(tesu::proto::ModelDef& modelDef, bool withTensorData = true) const;
  // The model one message at a time, for forms built op by op: first the model's own fields (a
  // ModelDef without its graph), then, when there is a graph, the graph's own fields (a GraphDef
  // without its ops) and each op (an OpDef) in node-list order, each as serialised bytes that are
  // valid until `part` returns. Tensor data as for Save(ModelDef&). Stops with GRAPH_FAILED as
  // soon as `part` returns false.
  graphStatus SaveParts(const ModelPartWriter& part, bool withTensorData) const;

  const std::string& GetName() const { return name_; }
  void SetName(const std::string& name) { name_ = name; }
  Graph GetGraph() const { return graph_; }
  void SetGraph(const Graph& graph) { graph_ = graph; }

 private:
  std::string name_;
  Graph graph_;
};

}  // namespace tov

#endif
