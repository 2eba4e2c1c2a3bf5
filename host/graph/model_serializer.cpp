#include "graph/model_serializer.h"

#include <algorithm>
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

// Collects the first problem found while loading; the caller logs it once. Descriptions of where
// a problem lies are callables, so their text is only built when there is a problem to report.
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

template <typename What>
graphStatus LoadDesc(const TensorDescriptor& def, const What& what, TensorDesc& desc,
                     LoadError& error) {
  for (int64_t dim : def.shape()) {
    if (dim < -1) {
      return error.Fail(what() + " has dimension " + std::to_string(dim) +
                        " (only -1 may stand for an unknown size)");
    }
  }
  desc.MutableShape() = Shape(def.shape().begin(), def.shape().end());
  desc.SetDataType(static_cast<DataType>(def.dtype()));
  desc.SetFormat(static_cast<Format>(def.format()));
  TensorUtils::SetReuseInput(desc, def.reuse_input());
  return GRAPH_SUCCESS;
}

void SaveDesc(const TensorDesc& desc, TensorDescriptor& def) {
  def.set_dtype(desc.GetDataType());
  def.set_format(desc.GetFormat());
  const Shape::Dims& dims = desc.GetShape().DimList();
  def.mutable_shape()->Add(dims.begin(), dims.end());
  bool reuse = false;
  TensorUtils::GetReuseInput(desc, reuse);
  def.set_reuse_input(reuse);
}

template <typename What>
graphStatus LoadTensor(TensorDef& def, const What& what, GraphArena* arena, TensorPtr& tensor,
                       LoadError& error) {
  TensorDesc desc;
  if (LoadDesc(def.desc(), what, desc, error) != GRAPH_SUCCESS) return GRAPH_MODEL_INVALID;
  const std::string& data = def.data();
  if (!data.empty()) {
    const size_t elementSize = DataTypeSize(desc.GetDataType());
    if (elementSize == 0) {
      return error.Fail(what() + " has unknown data type " + std::to_string(desc.GetDataType()));
    }
    int64_t count = 0;
    if (!desc.GetShape().GetShapeSize(count) ||
        static_cast<uint64_t>(count) > UINT64_MAX / elementSize) {
      return error.Fail(what() + " has a shape whose element count is negative or overflows");
    }
    const uint64_t expected = static_cast<uint64_t>(count) * elementSize;
    if (expected != data.size()) {
      return error.Fail(what() + " holds " + std::to_string(data.size()) +
                        " bytes but its shape and " + DataTypeName(desc.GetDataType()) +
                        " data type need " + std::to_string(expected));
    }
  }
  tensor = MakeShared<Tensor>(arena, desc);
  tensor->SetData(std::move(*def.mutable_data()));
  return GRAPH_SUCCESS;
}

template <typename What>
graphStatus LoadList(const tesu::proto::ListValue& list, const What& what, AttrValue& value,
                     LoadError& error) {
  const int kinds =
      (list.s_size() > 0) + (list.i_size() > 0) + (list.f_size() > 0) + (list.b_size() > 0);
  if (kinds > 1) return error.Fail(what() + " mixes values of several kinds in one list");
  if (list.s_size() > 0) {
    value = AttrValue::CreateFrom(std::vector<std::string>(list.s().begin(), list.s().end()));
  } else if (list.f_size() > 0) {
    value = AttrValue::CreateFrom(std::vector<float>(list.f().begin(), list.f().end()));
  } else if (list.b_size() > 0) {
    value = AttrValue::CreateFrom(std::vector<bool>(list.b().begin(), list.b().end()));
  } else {
    // Integers, and the empty list, which reads as an empty list of any kind.
    value = AttrValue::CreateFrom(AttrValue::IntList(list.i().begin(), list.i().end()));
  }
  return GRAPH_SUCCESS;
}

template <typename What>
graphStatus LoadAttr(AttrDef& def, const What& what, GraphArena* arena, AttrValue& value,
                     LoadError& error) {
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
      if (LoadTensor(*def.mutable_t(), what, arena, tensor, error) != GRAPH_SUCCESS) {
        return GRAPH_MODEL_INVALID;
      }
      value = AttrValue::CreateFrom(std::move(tensor));
      return GRAPH_SUCCESS;
    }
    case AttrDef::VALUE_NOT_SET:
      value = AttrValue();
      return GRAPH_SUCCESS;
  }
  return error.Fail(what() + " has a value of an unknown kind");
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

template <typename Owner>
graphStatus LoadAttrMap(google::protobuf::Map<std::string, AttrDef>& attrs, const Owner& owner,
                        GraphArena* arena, AttrHolder& holder, LoadError& error) {
  AttrHolder::AttrList list;
  list.reserve(attrs.size());
  for (auto& entry : attrs) {
    AttrValue value;
    const auto what = [&] { return "attribute " + Quote(entry.first) + " of " + owner(); };
    if (LoadAttr(entry.second, what, arena, value, error) != GRAPH_SUCCESS) {
      return GRAPH_MODEL_INVALID;
    }
    list.emplace_back(AttrName::Intern(entry.first), std::move(value));
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

graphStatus BuildOpDesc(OpDef& op, GraphArena* arena, OpDescPtr& desc, LoadError& error) {
  desc = MakeShared<OpDesc>(arena, arena);
  const size_t dataInputs = CountDataInputs(op);
  desc->ReserveDescs(std::max(dataInputs, static_cast<size_t>(op.input_desc_size())),
                     static_cast<size_t>(op.output_desc_size()) + (op.type() == "Const"));
  TensorDesc tensorDesc;
  for (int i = 0; i < op.input_desc_size(); ++i) {
    const auto what = [i] { return "input description " + std::to_string(i); };
    if (LoadDesc(op.input_desc(i), what, tensorDesc, error)) return GRAPH_MODEL_INVALID;
    desc->AddInputDesc(tensorDesc);
  }
  for (size_t i = desc->GetInputsSize(); i < dataInputs; ++i) desc->AddInputDesc({});
  for (int i = 0; i < op.output_desc_size(); ++i) {
    const auto what = [i] { return "output description " + std::to_string(i); };
    if (LoadDesc(op.output_desc(i), what, tensorDesc, error)) return GRAPH_MODEL_INVALID;
    desc->AddOutputDesc(tensorDesc);
  }
  desc->SetIsInputConst(op.is_input_const().begin(), op.is_input_const().end());
  const auto subject = [&op] { return NodeSubject(op); };
  if (LoadAttrMap(*op.mutable_attr(), subject, arena, *desc, error) != GRAPH_SUCCESS) {
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
    Node* found = graph.FindNodeRaw(producerName);
    if (found == nullptr) return error.Fail("input " + Quote(input) + " names no node");
    Node& producer = *found;
    if (index == -1) {
      GraphUtils::AddControlEdge(producer, node);
      continue;
    }
    if (static_cast<uint64_t>(index) >= producer.OutAnchors().size()) {
      return error.Fail("input " + Quote(input) + " asks for output " + std::to_string(index) +
                        " but node " + Quote(producer.GetName()) + " has " +
                        std::to_string(producer.GetAllOutDataAnchorsSize()) + " outputs");
    }
    GraphUtils::AddEdge(*producer.OutAnchors()[static_cast<size_t>(index)],
                        *node.InAnchors()[static_cast<size_t>(dataIndex++)]);
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
  const auto what = [&owner] { return owner; };
  if (LoadAttrMap(attrs, what, nullptr, holder, error) == GRAPH_SUCCESS) return GRAPH_SUCCESS;
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
  result->ReserveNodes(static_cast<size_t>(graphDef.op_size()));
  LoadError error;
  std::vector<Node*> nodes;
  nodes.reserve(static_cast<size_t>(graphDef.op_size()));
  std::string failedSubject;

  for (OpDef& op : *graphDef.mutable_op()) {
    OpDescPtr desc;
    if (op.name().empty()) {
      error.Fail("node " + std::to_string(nodes.size()) + " of the graph has no name");
    } else if (result->FindNodeRaw(op.name()) != nullptr) {
      error.Fail("another node has the same name");
    } else {
      BuildOpDesc(op, result->Arena(), desc, error);
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
