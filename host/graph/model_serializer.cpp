#include "graph/model_serializer.h"

#include <charconv>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

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

// Collects the first problem found while loading; the caller logs it once.
struct LoadError {
  std::string subject;  // e.g. node "conv1" (Conv2D)
  std::string problem;
  bool failed = false;

  graphStatus Fail(std::string what) {
    if (!failed) {
      failed = true;
      problem = std::move(what);
    }
    return GRAPH_MODEL_INVALID;
  }
};

std::string Quote(const std::string& text) {
  return "\"" + text + "\"";
}

std::string NodeSubject(const OpDef& op) {
  return "node " + Quote(op.name()) + " (" + (op.type().empty() ? "no type" : op.type()) + ")";
}

graphStatus LoadDesc(const TensorDescriptor& def, const std::string& what, TensorDesc& desc,
                     LoadError& error) {
  for (int64_t dim : def.shape()) {
    if (dim < -1) {
      return error.Fail(what + " has dimension " + std::to_string(dim) +
                        " (only -1 may stand for an unknown size)");
    }
  }
  desc.SetShape(Shape(std::vector<int64_t>(def.shape().begin(), def.shape().end())));
  desc.SetDataType(static_cast<DataType>(def.dtype()));
  desc.SetFormat(static_cast<Format>(def.format()));
  TensorUtils::SetReuseInput(desc, def.reuse_input());
  return GRAPH_SUCCESS;
}

void SaveDesc(const TensorDesc& desc, TensorDescriptor& def) {
  def.set_dtype(desc.GetDataType());
  def.set_format(desc.GetFormat());
  for (int64_t dim : desc.GetShape().GetDims()) def.add_shape(dim);
  bool reuse = false;
  TensorUtils::GetReuseInput(desc, reuse);
  def.set_reuse_input(reuse);
}

graphStatus LoadTensor(TensorDef& def, const std::string& what, TensorPtr& tensor,
                       LoadError& error) {
  TensorDesc desc;
  if (LoadDesc(def.desc(), what, desc, error) != GRAPH_SUCCESS) return GRAPH_MODEL_INVALID;
  const std::string& data = def.data();
  if (!data.empty()) {
    const size_t elementSize = DataTypeSize(desc.GetDataType());
    if (elementSize == 0) {
      return error.Fail(what + " has unknown data type " + std::to_string(desc.GetDataType()));
    }
    int64_t count = 0;
    if (!desc.GetShape().GetShapeSize(count) ||
        static_cast<uint64_t>(count) > UINT64_MAX / elementSize) {
      return error.Fail(what + " has a shape whose element count is negative or overflows");
    }
    const uint64_t expected = static_cast<uint64_t>(count) * elementSize;
    if (expected != data.size()) {
      return error.Fail(what + " holds " + std::to_string(data.size()) +
                        " bytes but its shape and " + DataTypeName(desc.GetDataType()) +
                        " data type need " + std::to_string(expected));
    }
  }
  tensor = std::make_shared<Tensor>(desc);
  tensor->SetData(std::move(*def.mutable_data()));
  return GRAPH_SUCCESS;
}

graphStatus LoadList(const tesu::proto::ListValue& list, const std::string& what, AttrValue& value,
                     LoadError& error) {
  const int kinds =
      (list.s_size() > 0) + (list.i_size() > 0) + (list.f_size() > 0) + (list.b_size() > 0);
  if (kinds > 1) return error.Fail(what + " mixes values of several kinds in one list");
  if (list.s_size() > 0) {
    value = AttrValue::CreateFrom(std::vector<std::string>(list.s().begin(), list.s().end()));
  } else if (list.f_size() > 0) {
    value = AttrValue::CreateFrom(std::vector<float>(list.f().begin(), list.f().end()));
  } else if (list.b_size() > 0) {
    value = AttrValue::CreateFrom(std::vector<bool>(list.b().begin(), list.b().end()));
  } else {
    // Integers, and the empty list, which reads as an empty list of any kind.
    value = AttrValue::CreateFrom(std::vector<int64_t>(list.i().begin(), list.i().end()));
  }
  return GRAPH_SUCCESS;
}

graphStatus LoadAttr(AttrDef& def, const std::string& what, AttrValue& value, LoadError& error) {
  switch (def.value_case()) {
    case AttrDef::kS:
      value = AttrValue::CreateFrom(std::move(*def.mutable_s()));
      return GRAPH_SUCCESS;
    case AttrDef::kI:
      value = AttrValue::CreateFrom(static_cast<int64_t>(def.i()));
      return GRAPH_SUCCESS;
    case AttrDef::kF:
      value = AttrValue::CreateFrom(def.f());
      return GRAPH_SUCCESS;
    case AttrDef::kB:
      value = AttrValue::CreateFrom(def.b());
      return GRAPH_SUCCESS;
    case AttrDef::kList:
      return LoadList(def.list(), what, value, error);
    case AttrDef::kT: {
      TensorPtr tensor;
      if (LoadTensor(*def.mutable_t(), what, tensor, error) != GRAPH_SUCCESS) {
        return GRAPH_MODEL_INVALID;
      }
      value = AttrValue::CreateFrom(std::move(tensor));
      return GRAPH_SUCCESS;
    }
    case AttrDef::VALUE_NOT_SET:
      value = AttrValue();
      return GRAPH_SUCCESS;
  }
  return error.Fail(what + " has a value of an unknown kind");
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
    case Kind::kListInt:
      CopyList(*value.Get<std::vector<int64_t>>(), def.mutable_list()->mutable_i());
      break;
    case Kind::kListFloat:
      CopyList(*value.Get<std::vector<float>>(), def.mutable_list()->mutable_f());
      break;
    case Kind::kListBool:
      CopyList(*value.Get<std::vector<bool>>(), def.mutable_list()->mutable_b());
      break;
  }
}

graphStatus LoadAttrMap(google::protobuf::Map<std::string, AttrDef>& attrs,
                        const std::string& owner, AttrHolder& holder, LoadError& error) {
  AttrHolder::AttrList list;
  list.reserve(attrs.size());
  for (auto& entry : attrs) {
    AttrValue value;
    if (LoadAttr(entry.second, "attribute " + Quote(entry.first) + " of " + owner, value, error) !=
        GRAPH_SUCCESS) {
      return GRAPH_MODEL_INVALID;
    }
    list.emplace_back(entry.first, std::move(value));
  }
  holder.SetAllAttrs(std::move(list));
  return GRAPH_SUCCESS;
}

// "producer:k" or "producer" (output 0); k = -1 is a control edge; "" is an unconnected input.
bool ParseInput(const std::string& input, std::string_view& producer, int64_t& index) {
  const size_t colon = input.rfind(':');
  if (colon == std::string::npos) {
    producer = input;
    index = 0;
    return true;
  }
  producer = std::string_view(input).substr(0, colon);
  const char* first = input.data() + colon + 1;
  const char* last = input.data() + input.size();
  auto result = std::from_chars(first, last, index);
  return result.ec == std::errc() && result.ptr == last && index >= -1 && !producer.empty();
}

size_t CountDataInputs(const OpDef& op) {
  size_t count = 0;
  for (const std::string& input : op.input()) {
    const size_t colon = input.rfind(':');
    if (colon == std::string::npos || input.compare(colon, std::string::npos, ":-1") != 0) ++count;
  }
  return count;
}

graphStatus BuildOpDesc(OpDef& op, OpDescPtr& desc, LoadError& error) {
  const std::string subject = NodeSubject(op);
  desc = std::make_shared<OpDesc>();
  for (int i = 0; i < op.input_desc_size(); ++i) {
    TensorDesc tensorDesc;
    if (LoadDesc(op.input_desc(i), "input description " + std::to_string(i), tensorDesc, error)) {
      return GRAPH_MODEL_INVALID;
    }
    desc->AddInputDesc(tensorDesc);
  }
  for (size_t i = desc->GetInputsSize(); i < CountDataInputs(op); ++i) desc->AddInputDesc({});
  for (int i = 0; i < op.output_desc_size(); ++i) {
    TensorDesc tensorDesc;
    if (LoadDesc(op.output_desc(i), "output description " + std::to_string(i), tensorDesc, error)) {
      return GRAPH_MODEL_INVALID;
    }
    desc->AddOutputDesc(tensorDesc);
  }
  desc->SetIsInputConst(std::vector<bool>(op.is_input_const().begin(), op.is_input_const().end()));
  if (LoadAttrMap(*op.mutable_attr(), subject, *desc, error) != GRAPH_SUCCESS) {
    return GRAPH_MODEL_INVALID;
  }
  if (op.type() == "Const") {
    TensorPtr value;
    if (!AttrUtils::GetTensor(*desc, "value", value) || value == nullptr) {
      return error.Fail("Const node has no tensor attribute \"value\"");
    }
    // A hand-written Const may leave out its output; it is the tensor it holds.
    if (desc->GetOutputsSize() == 0) desc->AddOutputDesc(value->GetTensorDesc());
  }
  // The message is consumed: its strings move instead of being copied.
  desc->SetName(std::move(*op.mutable_name()));
  desc->SetType(std::move(*op.mutable_type()));
  return GRAPH_SUCCESS;
}

graphStatus ConnectInputs(const OpDef& op, Node& node, const ComputeGraph& graph,
                          LoadError& error) {
  int dataIndex = 0;
  for (const std::string& input : op.input()) {
    if (input.empty()) {  // an unconnected input that precedes connected ones
      ++dataIndex;
      continue;
    }
    std::string_view producerName;
    int64_t index = 0;
    if (!ParseInput(input, producerName, index)) {
      return error.Fail("input " + Quote(input) + " is not of the form \"producer:index\"");
    }
    NodePtr found = graph.FindNode(std::string(producerName));
    if (found == nullptr) return error.Fail("input " + Quote(input) + " names no node");
    Node& producer = *found;
    if (index == -1) {
      GraphUtils::AddControlEdge(producer, node);
      continue;
    }
    OutDataAnchorPtr out = producer.GetOutDataAnchor(static_cast<int>(index));
    if (index > INT32_MAX || out == nullptr) {
      return error.Fail("input " + Quote(input) + " asks for output " + std::to_string(index) +
                        " but node " + Quote(producer.GetName()) + " has " +
                        std::to_string(producer.GetAllOutDataAnchorsSize()) + " outputs");
    }
    GraphUtils::AddEdge(*out, *node.GetInDataAnchor(dataIndex++));
  }
  return GRAPH_SUCCESS;
}

}  // namespace

// Kahn's algorithm over data and control edges; iterative, so deep chains are fine. The nodes
// of a freshly built graph are numbered 0..N-1 in order of addition, which indexes the counts.
const Node* ModelSerializer::FindCycle(const std::vector<Node*>& nodes) {
  std::vector<size_t> pending(nodes.size());
  std::vector<const Node*> ready;
  for (const Node* node : nodes) {
    const size_t inputs = node->RoleNodeSpec().InDataEdgeSize() + node->inControl_.size();
    pending[node->sequence_] = inputs;
    if (inputs == 0) ready.push_back(node);
  }
  size_t done = 0;
  auto release = [&](const Node* successor) {
    if (--pending[successor->sequence_] == 0) ready.push_back(successor);
  };
  while (!ready.empty()) {
    const Node* node = ready.back();
    ready.pop_back();
    ++done;
    for (const auto& anchor : node->OutAnchors()) {
      for (const InDataAnchor* peer : anchor->GetPeersRaw()) release(peer->GetOwnerNodeRaw());
    }
    for (const Node* successor : node->outControl_) release(successor);
  }
  if (done == nodes.size()) return nullptr;
  for (const Node* node : nodes) {
    if (pending[node->sequence_] != 0) return node;
  }
  return nullptr;
}

namespace {}  // namespace

graphStatus ModelSerializer::LoadAttrs(google::protobuf::Map<std::string, AttrDef>& attrs,
                                       const std::string& owner, AttrHolder& holder) {
  LoadError error;
  if (LoadAttrMap(attrs, owner, holder, error) == GRAPH_SUCCESS) return GRAPH_SUCCESS;
  AI_Log_Print(AI_LOG_ERROR, kModule, "model rejected: %s", error.problem.c_str());
  return GRAPH_MODEL_INVALID;
}

void TensorBytes::Fill(Tensor& tensor, std::string& data) {
  switch (mode_) {
    case Mode::kCopy:
      data.assign(tensor.GetData().View());
      return;
    case Mode::kOmit:
      return;
    case Mode::kLend: {
      auto lent = lent_.find(&tensor);
      if (lent != lent_.end()) {
        data = *lent->second;
      } else {
        tensor.MutableData().Swap(data);
        lent_.emplace(&tensor, &data);
      }
      return;
    }
  }
}

void TensorBytes::Return() {
  for (auto& [tensor, data] : lent_) tensor->MutableData().Swap(*data);
  lent_.clear();
}

void ModelSerializer::SaveAttrs(const AttrHolder& holder,
                                google::protobuf::Map<std::string, AttrDef>& attrs,
                                TensorBytes& tensorBytes) {
  for (const auto& entry : holder.GetAllAttrs()) {
    SaveAttr(entry.second, attrs[entry.first], tensorBytes);
  }
}

graphStatus ModelSerializer::LoadGraph(GraphDef& graphDef, std::shared_ptr<ComputeGraph>& graph) {
  auto result = std::make_shared<ComputeGraph>(graphDef.name());
  if (LoadAttrs(*graphDef.mutable_attr(), "graph " + Quote(graphDef.name()), *result)) {
    return GRAPH_MODEL_INVALID;
  }
  LoadError error;
  std::vector<Node*> nodes;
  nodes.reserve(static_cast<size_t>(graphDef.op_size()));
  std::string failedSubject;

  for (OpDef& op : *graphDef.mutable_op()) {
    OpDescPtr desc;
    if (op.name().empty()) {
      error.Fail("node " + std::to_string(nodes.size()) + " of the graph has no name");
    } else if (result->FindNode(op.name()) != nullptr) {
      error.Fail("another node has the same name");
    } else {
      BuildOpDesc(op, desc, error);
    }
    if (error.failed) {
      failedSubject = NodeSubject(op);  // the name is still in the message on failure
      break;
    }
    NodePtr node = result->AddNode(desc);
    if (desc->GetType() == "Const") {
      TensorPtr value;
      AttrUtils::GetTensor(*desc, "value", value);
      value->holder_ = node;
    }
    nodes.push_back(node.get());
  }
  if (!error.failed) {
    for (int i = 0; i < graphDef.op_size(); ++i) {
      Node& node = *nodes[static_cast<size_t>(i)];
      if (ConnectInputs(graphDef.op(i), node, *result, error) != GRAPH_SUCCESS) {
        failedSubject = "node " + Quote(node.GetName()) + " (" + node.GetType() + ")";
        break;
      }
    }
  }
  if (error.failed) {
    AI_Log_Print(AI_LOG_ERROR, kModule, "model rejected: %s: %s", failedSubject.c_str(),
                 error.problem.c_str());
    return GRAPH_MODEL_INVALID;
  }
  if (const Node* cyclic = FindCycle(nodes)) {
    AI_Log_Print(AI_LOG_ERROR, kModule, "model rejected: node \"%s\" (%s) lies on a cycle",
                 cyclic->GetName().c_str(), cyclic->GetType().c_str());
    return GRAPH_MODEL_INVALID;
  }
  graph = std::move(result);
  return GRAPH_SUCCESS;
}

graphStatus ModelSerializer::SaveGraph(const ComputeGraph& graph, GraphDef& graphDef,
                                       TensorBytes& tensorBytes) {
  graphDef.set_name(graph.GetName());
  SaveAttrs(graph, *graphDef.mutable_attr(), tensorBytes);
  std::unordered_set<std::string_view> names;
  names.reserve(graph.GetNodesSize());
  graphDef.mutable_op()->Reserve(static_cast<int>(graph.GetNodesSize()));
  graphStatus status = GRAPH_SUCCESS;
  graph.ForEachNode([&](Node& node) {
    if (status != GRAPH_SUCCESS) return;
    if (!names.insert(node.GetName()).second) {
      AI_Log_Print(AI_LOG_ERROR, kModule,
                   "cannot save graph \"%s\": two nodes are named \"%s\"; inputs name their "
                   "producers, so names must be unique",
                   graph.GetName().c_str(), node.GetName().c_str());
      status = GRAPH_FAILED;
      return;
    }
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
      op.add_input(peer == nullptr
                       ? std::string()
                       : peer->GetOwnerNodeRaw()->GetName() + ":" + std::to_string(peer->GetIdx()));
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
  return status;
}

}  // namespace tov
