// Conversion between the model file format and the in-memory graph. Internal to the library.
#ifndef TOV_GRAPH_MODEL_SERIALIZER_H
#define TOV_GRAPH_MODEL_SERIALIZER_H

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "graph/compute_graph.h"
#include "graph/model.h"
#include "graph/proto/model.pb.h"

namespace tov {

class TensorSource;

// How tensor bytes reach a message built from a graph: copied, or left out.
class TensorBytes {
 public:
  enum class Mode { kCopy, kOmit };
  explicit TensorBytes(Mode mode) : mode_(mode) {}
  void Fill(const Tensor& tensor, std::string& data) const;

 private:
  Mode mode_;
};

class ModelSerializer {
 public:
  // Builds `model` from serialised ModelDef bytes without ever holding the whole message. On
  // malformed content logs one line naming the node and the problem and returns
  // GRAPH_MODEL_INVALID, leaving `model` as it was.
  static graphStatus LoadModel(const uint8_t* data, size_t size, Model& model);
  // Writes the model in the ModelDef wire format straight from the graph. Fails, writing
  // nothing, when two nodes share a name or the model needs more than 2 GiB. `measured`, when
  // given, learns the size of the bytes before they are written (to reserve room for them).
  static graphStatus WriteModel(const Model& model,
                                google::protobuf::io::ZeroCopyOutputStream& stream,
                                const std::function<void(size_t)>& measured = nullptr);
  // Builds a compute graph from the message, moving tensor bytes out of it. On a malformed
  // graph logs one line naming the node and the problem and returns GRAPH_MODEL_INVALID.
  static graphStatus LoadGraph(tesu::proto::GraphDef& graphDef,
                               std::shared_ptr<ComputeGraph>& graph);
  static graphStatus SaveGraph(const ComputeGraph& graph, tesu::proto::GraphDef& graphDef,
                               TensorBytes& tensorBytes);
  // Inputs name their producers, so a graph is saved only while its node names are unique; logs
  // the first shared name otherwise.
  static graphStatus CheckNamesUnique(const ComputeGraph& graph);

  // Attribute maps of models and graphs; `owner` names the holder in error messages.
  static graphStatus LoadAttrs(google::protobuf::Map<std::string, tesu::proto::AttrDef>& attrs,
                               const std::string& owner, AttrHolder& holder,
                               TensorSource* source = nullptr);
  static void SaveAttrs(const AttrHolder& holder,
                        google::protobuf::Map<std::string, tesu::proto::AttrDef>& attrs,
                        TensorBytes& tensorBytes);

 private:
  class GraphBuilder;
  // A node of a freshly loaded graph that lies on a cycle, or null.
  static const Node* FindCycle(const std::vector<Node*>& nodes);
};

}  // namespace tov

#endif
