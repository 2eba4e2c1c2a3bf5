#ifndef TOV_GRAPH_MODEL_H
#define TOV_GRAPH_MODEL_H

#include <cstddef>
#include <cstdint>
#include <string>

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
  // to producers by name. While it runs, tensor bytes are lent to the message being written, so
  // no other thread may read the graph's tensors during a save.
  graphStatus Save(std::string& bytes) const;
  graphStatus Save(google::protobuf::io::ZeroCopyOutputStream& stream) const;
  // The model as a message; without tensor data, Const tensors keep only their descriptions.
  graphStatus Save(tesu::proto::ModelDef& modelDef, bool withTensorData = true) const;

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
