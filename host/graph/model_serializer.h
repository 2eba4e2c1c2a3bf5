// Conversion between the model file format and the in-memory graph. Internal to the library.
#ifndef TOV_GRAPH_MODEL_SERIALIZER_H
#define TOV_GRAPH_MODEL_SERIALIZER_H

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "graph/compute_graph.h"
#include "graph/model.h"
#include "graph/proto/model.pb.h"

namespace tov {

class TensorSource;
class WireOutput;

// Where a save puts tensor bytes: inline, nowhere (descriptions, and the side-file locations of
// tensors read from one, only), or, for tensors of at least kMinExternalTensorBytes, a weights
// file.
struct TensorPlan {
  bool withData = true;
  WireOutput* weights = nullptr;  // with withData: takes the large tensors
  std::string location;           // the weights file as the model names it
};

// The sizes of a model's length-delimited parts in the order they begin, as measured before
// writing, and the size of the whole. A size that does not fit 32 bits is kept in `large`.
struct WireLayout {
  std::vector<uint32_t> sizes;
  std::vector<uint64_t> large;
  uint64_t bytes = 0;
};

class ModelSerializer {
 public:
  // Builds `model` from serialised ModelDef bytes without ever holding the whole message. On
  // malformed content logs one line naming the node and the problem and returns
  // GRAPH_MODEL_INVALID, leaving `model` as it was.
  static graphStatus LoadModel(const uint8_t* data, size_t size, Model& model);
  // Writes the model in the ModelDef wire format straight from the graph, without building the
  // message, in two passes: MeasureModel learns the size of every length-delimited part (it
  // fails, with a log line, when two nodes share a name), WriteModel writes the bytes. Both take
  // the same plan.
  static graphStatus MeasureModel(const Model& model, const TensorPlan& plan, WireLayout& layout);
  static graphStatus WriteModel(const Model& model, const TensorPlan& plan,
                                const WireLayout& layout, WireOutput& out);
  // The model one message at a time (Model::SaveParts).
  static graphStatus WriteParts(const Model& model, bool withTensorData,
                                const ModelPartWriter& part);
  // Builds a compute graph from the message, moving tensor bytes out of it. On a malformed
  // graph logs one line naming the node and the problem and returns GRAPH_MODEL_INVALID.
  static graphStatus LoadGraph(tesu::proto::GraphDef& graphDef,
                               std::shared_ptr<ComputeGraph>& graph);
  // Inputs name their producers, so a graph is saved only while its node names are unique; logs
  // the first shared name otherwise.
  static graphStatus CheckNamesUnique(const ComputeGraph& graph);

  // Attribute maps of models and graphs; `owner` names the holder in error messages.
  static graphStatus LoadAttrs(google::protobuf::Map<std::string, tesu::proto::AttrDef>& attrs,
                               const std::string& owner, AttrHolder& holder,
                               TensorSource* source = nullptr);

 private:
  class GraphBuilder;
  // A node of a freshly loaded graph that lies on a cycle, or null.
  static const Node* FindCycle(const std::vector<Node*>& nodes);
};

}  // namespace tov

#endif
