#include "graph/model_serializer.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "graph/attr_utils.h"
#include "graph/graph.h"
#include "graph/op_desc_utils.h"
#include "log/log.h"

namespace tov {
namespace {

using tesu::proto::AttrDef;
using tesu::proto::GraphDef;
using tesu::proto::OpDef;
using tesu::proto::TensorDef;
using tesu::proto::TensorDescriptor;

constexpr char kModule[] = "GRAPH";

void SaveDesc(const TensorDesc& desc, TensorDescriptor& def) {
  def.set_dtype(desc.GetDataType());
  def.set_format(desc.GetFormat());
  const Shape::Dims& dims = desc.GetShape().GetDims();
  def.mutable_shape()->Add(dims.begin(), dims.end());
  bool reuse = false;
  TensorUtils::GetReuseInput(desc, reuse);
  def.set_reuse_input(reuse);
}

template <typename T, typename Repeated>
void CopyList(const std::vector<T>& from, Repeated* to) {
  to->Reserve(static_cast<int>(from.size()));
  for (const T& item : from) to->Add(item);
}

void SaveAttr(const AttrValue& value, AttrDef& def, TensorBytes& tensorBytes) {
  using Kind = AttrValue::Kind;
  switch (value.GetKind()) {
    case Kind::kNone:
      break;
    case Kind::kString:
      def.set_s(*value.Get<std::string>());
      break;
    case Kind::kInt:
      def.set_i(*value.Get<int64_t>());
      break;
    case Kind::kFloat:
      def.set_f(*value.Get<float>());
      break;
    case Kind::kBool:
      def.set_b(*value.Get<bool>());
      break;
    case Kind::kTensor: {
      const TensorPtr& tensor = *value.Get<TensorPtr>();
      TensorDef* out = def.mutable_t();
      if (tensor != nullptr) {
        SaveDesc(tensor->GetTensorDesc(), *out->mutable_desc());
        tensorBytes.Fill(*tensor, *out->mutable_data());
      }
      break;
    }
    case Kind::kListString:
      for (const auto& item : *value.Get<std::vector<std::string>>()) {
        def.mutable_list()->add_s(item);
      }
      break;
    case Kind::kListInt: {
      const AttrValue::IntList& list = *value.Get<AttrValue::IntList>();
      def.mutable_list()->mutable_i()->Add(list.begin(), list.end());
      break;
    }
    case Kind::kListFloat:
      CopyList(*value.Get<std::vector<float>>(), def.mutable_list()->mutable_f());
      break;
    case Kind::kListBool:
      CopyList(*value.Get<std::vector<bool>>(), def.mutable_list()->mutable_b());
      break;
  }
}

}  // namespace

void TensorBytes::Fill(const Tensor& tensor, std::string& data) const {
  if (mode_ == Mode::kCopy) data.assign(tensor.GetData().View());
}

graphStatus ModelSerializer::CheckNamesUnique(const ComputeGraph& graph) {
  if (!graph.HasNamesakes()) return GRAPH_SUCCESS;
  const std::string* shared = nullptr;
  graph.ForEachNode([&](Node& node) {
    if (shared == nullptr && graph.FindNodeRaw(node.GetName()) != &node) shared = &node.GetName();
  });
  AI_Log_Print(AI_LOG_ERROR, kModule,
               "cannot save graph \"%s\": two nodes are named \"%s\"; inputs name their "
               "producers, so names must be unique",
               graph.GetName().c_str(), shared == nullptr ? "" : shared->c_str());
  return GRAPH_FAILED;
}

void ModelSerializer::SaveAttrs(const AttrHolder& holder,
                                google::protobuf::Map<std::string, AttrDef>& attrs,
                                TensorBytes& tensorBytes) {
  for (const auto& entry : holder.GetAllAttrs()) {
    SaveAttr(entry.second, attrs[entry.first], tensorBytes);
  }
}

graphStatus ModelSerializer::SaveGraph(const ComputeGraph& graph, GraphDef& graphDef,
                                       TensorBytes& tensorBytes) {
  graphDef.set_name(graph.GetName());
  if (CheckNamesUnique(graph) != GRAPH_SUCCESS) return GRAPH_FAILED;
  SaveAttrs(graph, *graphDef.mutable_attr(), tensorBytes);
  graphDef.mutable_op()->Reserve(static_cast<int>(graph.GetNodesSize()));
  graph.ForEachNode([&](Node& node) {
    OpDef& op = *graphDef.add_op();
    const OpDesc& desc = *node.GetOpDesc();
    op.set_name(desc.GetName());
    op.set_type(desc.GetType());
    // Inputs up to the last connected one; a gap is written as "".
    size_t connected = 0;
    for (size_t i = 0; i < node.InAnchors().size(); ++i) {
      if (node.InAnchors()[i]->GetPeerOutAnchorRaw() != nullptr) connected = i + 1;
    }
    for (size_t i = 0; i < connected; ++i) {
      const OutDataAnchor* peer = node.InAnchors()[i]->GetPeerOutAnchorRaw();
      std::string& input = *op.add_input();
      if (peer != nullptr) {
        input = peer->GetOwnerNodeRaw()->GetName() + ":" + std::to_string(peer->GetIdx());
      }
    }
    for (const Node* from : node.RoleNodeWalker().InControlNodes()) {
      op.add_input(from->GetName() + ":-1");
    }
    SaveAttrs(desc, *op.mutable_attr(), tensorBytes);
    for (size_t i = 0; i < desc.GetInputsSize(); ++i) {
      SaveDesc(desc.GetInputDesc(static_cast<uint32_t>(i)), *op.add_input_desc());
    }
    for (size_t i = 0; i < desc.GetOutputsSize(); ++i) {
      SaveDesc(desc.GetOutputDesc(static_cast<uint32_t>(i)), *op.add_output_desc());
    }
    for (bool flag : desc.GetIsInputConst()) op.add_is_input_const(flag);
  });
  return GRAPH_SUCCESS;
}

}  // namespace tov