// Conversion between the model file format and the in-memory graph. Internal to the library.
#ifndef TOV_GRAPH_MODEL_SERIALIZER_H
#define TOV_GRAPH_MODEL_SERIALIZER_H

#include <memory>
#include <string>

#include "graph/compute_graph.h"
#include "graph/proto/model.pb.h"

namespace tov {

class ModelSerializer {
 public:
  // Builds a compute graph from the message, moving tensor bytes out of it. On a malformed
  // graph logs one line naming the node and the problem and returns GRAPH_MODEL_INVALID.
  static graphStatus LoadGraph(tesu::proto::GraphDef& graphDef,
                               std::shared_ptr<ComputeGraph>& graph);
  static graphStatus SaveGraph(const ComputeGraph& graph, tesu::proto::GraphDef& graphDef);

  // Attribute maps of models and graphs; `owner` names the holder in error messages.
  static graphStatus LoadAttrs(google::protobuf::Map<std::string, tesu::proto::AttrDef>& attrs,
                               const std::string& owner, AttrHolder& holder);
  static void SaveAttrs(const AttrHolder& holder,
                        google::protobuf::Map<std::string, tesu::proto::AttrDef>& attrs);

 private:
  // A node of a freshly loaded graph that lies on a cycle, or null.
  static const Node* FindCycle(const std::vector<Node*>& nodes);
};

}  // namespace tov

#endif
