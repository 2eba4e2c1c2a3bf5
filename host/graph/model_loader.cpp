#include "graph/model_serializer.h"

#include <climits>
#include <cstdint>

#include <google/protobuf/arena.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/wire_format_lite.h>

#include <algorithm>
#include <charconv>
#include <functional>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "graph/attr_utils.h"
#include "graph/graph.h"
#include "graph/model.h"
#include "graph/model_limits.h"
#include "graph/op_desc_utils.h"
#include "graph/shape_math.h"
#include "graph/tensor_source.h"
#include "log/log.h"

namespace tov {
namespace {

using tesu::proto::AttrDef;
using tesu::proto::GraphDef;
using tesu::proto::OpDef;
using tesu::proto::TensorDef;
using tesu::proto::TensorDescriptor;

constexpr char kModule[] = "GRAPH";
const std::string kConstValue = "value";

// Collects the first problem found while loading; the caller logs it once. A helper records what
// is wrong, and each caller that knows where the problem lies puts that in front of it on the way
// out, so the text of a description is only built when there is a problem to report.
struct LoadError {
  std::string problem;
  bool failed = false;

  graphStatus Fail(std::string what) {
    if (!failed) {
      failed = true;
      problem = std::move(what);
    }
    return GRAPH_MODEL_INVALID;
  }

  // "<where> <problem>": names the part of the model the recorded problem lies in.
  graphStatus In(const std::string& where) {
    problem = where + " " + problem;
    return GRAPH_MODEL_INVALID;
  }
};

std::string Quote(const std::string& text) {
  return "\"" + text + "\"";
}

std::string NodeSubject(const OpDef& op) {
  std::string subject = "node " + Quote(op.name()) + " (";
  subject += op.type().empty() ? std::string_view("no type") : std::string_view(op.type());
  subject += ")";
  return subject;
}

// A description must describe a tensor that could exist: a sane rank, no dimension below -1,
// and known dimensions whose product, in elements and in bytes, fits in 64 bits.
graphStatus LoadDesc(const TensorDescriptor& def, TensorDesc& desc, LoadError& error) {
  const DimsView dims(def.shape().data(), static_cast<size_t>(def.shape_size()));
  const ShapeSize size = CheckedByteSize(dims, def.dtype(), UnknownDims::kSkip);
  if (!size.ok() && size.fault != ShapeFault::kUnknownDataType) {
    return error.Fail(DescribeShapeFault(size, dims, def.dtype()));
  }
  desc.MutableShape() = Shape(def.shape().begin(), def.shape().end());
  desc.SetDataType(static_cast<DataType>(def.dtype()));
  desc.SetFormat(static_cast<Format>(def.format()));
  TensorUtils::SetReuseInput(desc, def.reuse_input());
  return GRAPH_SUCCESS;
}

// The `data` of a tensor attribute found on the wire, by the attribute's key, so that the
// bytes are referred to where they lie instead of being parsed into the message.
struct LocatedData {
  std::string_view key;
  wire::Span data;
  bool present = false;  // false when the attribute's last tensor has no data field
};

// Where the tensors of one op or attribute map get their bytes: data located on the wire (the
// op's message holds none then) and the source that refers to them or to side files.
struct TensorBytesIn {
  TensorSource* source = nullptr;
  const std::vector<LocatedData>* located = nullptr;

  // The data the op's wire bytes hold for attribute `key`; null when they hold none.
  const wire::Span* Find(const std::string& key) const {
    if (located == nullptr) return nullptr;
    // A key repeated on the wire is the last one's value, as in protobuf's map.
    for (auto it = located->rbegin(); it != located->rend(); ++it) {
      if (it->key == key) return it->present ? &it->data : nullptr;
    }
    return nullptr;
  }
};

// Data of `bytes` bytes must be exactly what the shape and data type need.
graphStatus CheckDataSize(const TensorDesc& desc, uint64_t bytes, const char* holds,
                          LoadError& error) {
  const DimsView dims(desc.GetShape());
  const ShapeSize size = CheckedByteSize(dims, desc.GetDataType());
  if (!size.ok()) {
    // The description passed LoadDesc: only an unknown dimension or data type is left.
    return error.Fail(holds + std::to_string(bytes) +
                      " bytes of data, which need a known shape and data type, but it " +
                      DescribeShapeFault(size, dims, desc.GetDataType()));
  }
  if (static_cast<uint64_t>(size.value) != bytes) {
    return error.Fail(holds + std::to_string(bytes) + " bytes but its shape and " +
                      DataTypeName(desc.GetDataType()) + " data type need " +
                      std::to_string(size.value) + " (shape " + ShapeText(dims) + ")");
  }
  return GRAPH_SUCCESS;
}

// A tensor whose bytes are in a side file: its data field is empty and the range it names is
// exactly the tensor's size, within a readable file inside the model's folder.
graphStatus LoadExternal(const TensorDef& def, uint64_t dataBytes, const TensorBytesIn& bytes,
                         Tensor& tensor, LoadError& error) {
  if (dataBytes != 0) {
    return error.Fail("holds " + std::to_string(dataBytes) +
                      " bytes of data and a side-file location; its bytes must be in one or "
                      "the other");
  }
  const tesu::proto::ExternalData& external = def.external();
  if (CheckDataSize(tensor.GetTensorDesc(), external.length(), "has a side-file range of ",
                    error) != GRAPH_SUCCESS) {
    return GRAPH_MODEL_INVALID;
  }
  std::string problem;
  TensorSource none(nullptr);
  TensorSource& source = bytes.source != nullptr ? *bytes.source : none;
  if (!source.ReferExternal(tensor, {external.location(), external.offset(), external.length()},
                            problem)) {
    return error.Fail(std::move(problem));
  }
  return GRAPH_SUCCESS;
}

// Tensor data must be exactly what the shape and data type need; a tensor without data only
// needs a description that could exist.
graphStatus LoadTensor(TensorDef& def, const wire::Span* located, const TensorBytesIn& bytes,
                       GraphArena* arena, TensorPtr& tensor, LoadError& error) {
  TensorDesc desc;
  if (LoadDesc(def.desc(), desc, error) != GRAPH_SUCCESS) return GRAPH_MODEL_INVALID;
  const uint64_t dataBytes = located != nullptr ? located->size : def.data().size();
  if (!def.has_external() && dataBytes != 0 &&
      CheckDataSize(desc, dataBytes, "holds ", error) != GRAPH_SUCCESS) {
    return GRAPH_MODEL_INVALID;
  }
  tensor = MakeShared<Tensor>(arena, desc);
  if (def.has_external()) return LoadExternal(def, dataBytes, bytes, *tensor, error);
  if (located == nullptr) {
    tensor->SetData(std::move(*def.mutable_data()));
  } else if (bytes.source != nullptr) {
    bytes.source->Refer(*tensor, *located);
  } else {
    tensor->SetData(located->data, static_cast<size_t>(located->size));
  }
  return GRAPH_SUCCESS;
}

graphStatus LoadList(const tesu::proto::ListValue& list, AttrValue& value, LoadError& error) {
  const int kinds =
      (list.s_size() > 0) + (list.i_size() > 0) + (list.f_size() > 0) + (list.b_size() > 0);
  if (kinds > 1) return error.Fail("mixes values of several kinds in one list");
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

// Every kind of the value's oneof is handled; an attribute without a value loads as an empty
// one.
graphStatus LoadAttr(AttrDef& def, const wire::Span* located, const TensorBytesIn& bytes,
                     GraphArena* arena, AttrValue& value, LoadError& error) {
  switch (def.value_case()) {
    case AttrDef::kS:
      value = AttrValue::CreateFrom(std::move(*def.mutable_s()));
      break;
    case AttrDef::kI:
      value = AttrValue::CreateFrom(static_cast<int64_t>(def.i()));
      break;
    case AttrDef::kF:
      value = AttrValue::CreateFrom(def.f());
      break;
    case AttrDef::kB:
      value = AttrValue::CreateFrom(def.b());
      break;
    case AttrDef::kList:
      return LoadList(def.list(), value, error);
    case AttrDef::kT: {
      TensorPtr tensor;
      if (LoadTensor(*def.mutable_t(), located, bytes, arena, tensor, error) != GRAPH_SUCCESS) {
        return GRAPH_MODEL_INVALID;
      }
      value = AttrValue::CreateFrom(std::move(tensor));
      break;
    }
    default:
      value = AttrValue();
      break;
  }
  return GRAPH_SUCCESS;
}

// The interned attribute keys and op types met so far. A model repeats a few dozen of them on
// every op, so a small table indexed by length and end characters finds almost all of them
// without hashing the whole text or reaching the process-wide table.
class AttrNameCache {
 public:
  AttrName Intern(const std::string& key) {
    if (key.empty()) return AttrName::Intern(key);
    const size_t slot = (key.size() * 31 + static_cast<unsigned char>(key.front()) * 7 +
                         static_cast<unsigned char>(key.back())) %
                        kSlots;
    std::optional<AttrName>& entry = entries_[slot];
    if (!entry || entry->str() != key) entry = AttrName::Intern(key);
    return *entry;
  }

 private:
  static constexpr size_t kSlots = 64;
  std::optional<AttrName> entries_[kSlots];
};

// `owner` describes what the attributes belong to; it is only called to report a problem.
graphStatus LoadAttrMap(google::protobuf::Map<std::string, AttrDef>& attrs,
                        const std::function<std::string()>& owner, const TensorBytesIn& bytes,
                        GraphArena* arena, AttrHolder& holder, LoadError& error,
                        AttrNameCache& names) {
  // Room for the one attribute a conversion adds to every node it keeps ("version"), so that
  // the list does not have to move for it.
  AttrHolder::AttrList list = holder.NewAttrList();
  list.reserve(attrs.size() + 1);
  for (auto& entry : attrs) {
    if (entry.first.size() > kMaxNameBytes) {
      error.Fail("has an attribute name of " + std::to_string(entry.first.size()) +
                 " bytes, more than the " + std::to_string(kMaxNameBytes) + " a name may have");
      return error.In(owner());
    }
    AttrValue value;
    const wire::Span* located =
        entry.second.value_case() == AttrDef::kT ? bytes.Find(entry.first) : nullptr;
    if (LoadAttr(entry.second, located, bytes, arena, value, error) != GRAPH_SUCCESS) {
      return error.In("attribute " + Quote(entry.first) + " of " + owner());
    }
    list.emplace_back(names.Intern(entry.first), std::move(value));
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

graphStatus BuildOpDesc(OpDef& op, const TensorBytesIn& bytes, GraphArena* arena, OpDescPtr& desc,
                        LoadError& error, AttrNameCache& names) {
  desc = MakeShared<OpDesc>(arena, arena);
  const size_t dataInputs = CountDataInputs(op);
  desc->ReserveDescs(std::max(dataInputs, static_cast<size_t>(op.input_desc_size())),
                     static_cast<size_t>(op.output_desc_size()) + (op.type() == "Const"));
  TensorDesc tensorDesc;
  for (int i = 0; i < op.input_desc_size(); ++i) {
    if (LoadDesc(op.input_desc(i), tensorDesc, error) != GRAPH_SUCCESS) {
      return error.In("input description " + std::to_string(i));
    }
    desc->AddInputDesc(tensorDesc);
  }
  for (size_t i = desc->GetInputsSize(); i < dataInputs; ++i) desc->AddInputDesc({});
  for (int i = 0; i < op.output_desc_size(); ++i) {
    if (LoadDesc(op.output_desc(i), tensorDesc, error) != GRAPH_SUCCESS) {
      return error.In("output description " + std::to_string(i));
    }
    desc->AddOutputDesc(tensorDesc);
  }
  desc->SetIsInputConst(op.is_input_const().begin(), op.is_input_const().end());
  const auto subject = [&op] { return NodeSubject(op); };
  if (LoadAttrMap(*op.mutable_attr(), subject, bytes, arena, *desc, error, names) !=
      GRAPH_SUCCESS) {
    return GRAPH_MODEL_INVALID;
  }
  if (op.type() == "Const") {
    // A loaded tensor attribute always holds a tensor.
    TensorPtr value;
    if (!AttrUtils::GetTensor(*desc, kConstValue, value)) {
      return error.Fail("Const node has no tensor attribute \"value\"");
    }
    // A hand-written Const may leave out its output; it is the tensor it holds.
    if (desc->GetOutputsSize() == 0) desc->AddOutputDesc(value->GetTensorDesc());
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
    const size_t inputs = node->RoleNodeSpec().InDataEdgeSize() + node->InControl().size();
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
    for (const Node* successor : node->OutControl()) release(successor);
  }
  if (done == nodes.size()) return nullptr;
  // Some node is still waiting for an input, since not every node was released.
  return *std::find_if(nodes.begin(), nodes.end(),
                       [&pending](const Node* node) { return pending[node->sequence_] != 0; });
}

graphStatus ModelSerializer::LoadAttrs(google::protobuf::Map<std::string, AttrDef>& attrs,
                                       const std::string& owner, AttrHolder& holder,
                                       TensorSource* source) {
  LoadError error;
  AttrNameCache names;
  const auto what = [&owner] { return owner; };
  if (LoadAttrMap(attrs, what, TensorBytesIn{source, nullptr}, nullptr, holder, error, names) ==
      GRAPH_SUCCESS) {
    return GRAPH_SUCCESS;
  }
  AI_Log_Print(AI_LOG_ERROR, kModule, "model rejected: %s", error.problem.c_str());
  return GRAPH_MODEL_INVALID;
}

// Builds a compute graph op by op. An input whose producer is already in the graph is connected
// at once; the others (forward references, self-references) wait until every op is in. Edges
// connected at once always run from an earlier node to a later one, so only a graph with waiting
// inputs can have a cycle and needs the check.
class ModelSerializer::GraphBuilder {
 public:
  explicit GraphBuilder(size_t expectedOps) : graph_(std::make_shared<ComputeGraph>()) {
    graph_->ReserveNodes(expectedOps);
    nodes_.reserve(expectedOps);
  }

  // Takes the graph's name and attributes from `header` (its ops are added one by one). Logs
  // and returns GRAPH_MODEL_INVALID when an attribute is malformed.
  graphStatus Begin(GraphDef& header, TensorSource* source = nullptr) {
    graph_->SetName(header.name());
    return LoadAttrs(*header.mutable_attr(), "graph " + Quote(header.name()), *graph_, source);
  }

  // Adds the op's node; the message's strings are moved out, and its tensors take their bytes
  // from `bytes`. Logs and returns GRAPH_MODEL_INVALID when the op is malformed.
  graphStatus AddOp(OpDef& op, const TensorBytesIn& bytes = {}) {
    if (CheckLimits(op) != GRAPH_SUCCESS) return GRAPH_MODEL_INVALID;
    OpDescPtr desc;
    const size_t nameHash = NameIndex::Hash(op.name());
    // The index entry for a new name is rarely in cache; it is fetched while the op is read, and
    // a repeated name is still the first problem reported.
    graph_->nameIndex_.Prefetch(nameHash);
    if (op.name().empty()) {
      error_.Fail("node " + std::to_string(nodes_.size()) + " of the graph has no name");
    } else {
      LoadError built;
      BuildOpDesc(op, bytes, graph_->Arena(), desc, built, attrNames_);
      if (graph_->FindNodeRaw(op.name(), nameHash) != nullptr) {
        error_.Fail("another node has the same name");
      } else if (built.failed) {
        error_.Fail(std::move(built.problem));
      }
    }
    if (error_.failed) return Reject(NodeSubject(op));  // the name is still in the message
    // The message is consumed: its name moves instead of being copied; its type is interned.
    desc->SetName(std::move(*op.mutable_name()));
    desc->SetType(attrNames_.Intern(op.type()));
    NodePtr node = graph_->AddNode(desc, nameHash);
    if (desc->GetType() == "Const") {
      const AttrValue* value = desc->FindAttr("value");
      (*value->Get<TensorPtr>())->holder_ = node;
    }
    nodes_.push_back(node.get());
    recent_[nameHash % kRecent] = {nameHash, node.get()};
    int dataIndex = 0;
    for (std::string& input : *op.mutable_input()) {
      if (Connect(*node, input, dataIndex, /*mayWait=*/true) != GRAPH_SUCCESS) {
        return Reject(Subject(*node));
      }
    }
    return GRAPH_SUCCESS;
  }

  // Connects the inputs that waited and checks for cycles.
  graphStatus Finish(std::shared_ptr<ComputeGraph>& graph) {
    for (Waiting& waiting : waiting_) {
      int dataIndex = waiting.dataIndex;
      if (Connect(*waiting.node, waiting.input, dataIndex, /*mayWait=*/false) != GRAPH_SUCCESS) {
        return Reject(Subject(*waiting.node));
      }
    }
    if (!waiting_.empty()) {
      if (const Node* cyclic = FindCycle(nodes_)) {
        AI_Log_Print(AI_LOG_ERROR, kModule, "model rejected: node \"%s\" (%s) lies on a cycle",
                     cyclic->GetName().c_str(), cyclic->GetType().c_str());
        return GRAPH_MODEL_INVALID;
      }
    }
    graph = std::move(graph_);
    return GRAPH_SUCCESS;
  }

 private:
  struct Waiting {
    Node* node;
    int dataIndex;  // the data input it feeds; unused for a control input
    std::string input;
  };

  static std::string Subject(const Node& node) {
    return "node " + Quote(node.GetName()) + " (" + node.GetType() + ")";
  }

  // The node count and the lengths of the op's names. The node is named by its position, since
  // its name may be the overlong one.
  graphStatus CheckLimits(const OpDef& op) {
    if (nodes_.size() >= kMaxGraphNodes) {
      error_.Fail("the graph has more than " + std::to_string(kMaxGraphNodes) +
                  " nodes, the most a model may have");
    }
    size_t longest = std::max(op.name().size(), op.type().size());
    for (const std::string& input : op.input()) longest = std::max(longest, input.size());
    if (longest > kMaxNameBytes) {
      error_.Fail("a name, type or input of " + std::to_string(longest) +
                  " bytes is longer than the " + std::to_string(kMaxNameBytes) +
                  " a name may have");
    }
    if (!error_.failed) return GRAPH_SUCCESS;
    return Reject("node " + std::to_string(nodes_.size()) + " of the graph");
  }

  graphStatus Reject(const std::string& subject) {
    AI_Log_Print(AI_LOG_ERROR, kModule, "model rejected: %s: %s", subject.c_str(),
                 error_.problem.c_str());
    return GRAPH_MODEL_INVALID;
  }

  // "producer:k" feeds data input `dataIndex` (which then moves on), "producer:-1" is a control
  // edge, "" an unconnected data input.
  graphStatus Connect(Node& node, std::string& input, int& dataIndex, bool mayWait) {
    if (input.empty()) {
      ++dataIndex;
      return GRAPH_SUCCESS;
    }
    std::string_view producerName;
    int64_t index = 0;
    if (!ParseInput(input, producerName, index)) {
      return error_.Fail("input " + Quote(input) + " is not of the form \"producer:index\"");
    }
    Node* producer = FindProducer(producerName);
    if (mayWait && (producer == nullptr || producer == &node)) {
      waiting_.push_back({&node, dataIndex, std::move(input)});
      if (index != -1) ++dataIndex;
      return GRAPH_SUCCESS;
    }
    if (producer == nullptr) return error_.Fail("input " + Quote(input) + " names no node");
    if (index == -1) return GraphUtils::AddControlEdge(*producer, node);
    if (static_cast<uint64_t>(index) >= producer->OutAnchors().size()) {
      return error_.Fail("input " + Quote(input) + " asks for output " + std::to_string(index) +
                         " but node " + Quote(producer->GetName()) + " has " +
                         std::to_string(producer->GetAllOutDataAnchorsSize()) + " outputs");
    }
    return GraphUtils::AddEdge(*producer->OutAnchors()[static_cast<size_t>(index)],
                               *node.InAnchors()[static_cast<size_t>(dataIndex++)]);
  }

  // Producers are mostly nodes added shortly before their consumers: those are found among the
  // recently added nodes, whose entries stay in cache, before the graph's index is searched.
  // Names are unique while loading (a repeated name is refused), so a match is the node.
  Node* FindProducer(std::string_view name) const {
    const size_t hash = NameIndex::Hash(name);
    const Recent& recent = recent_[hash % kRecent];
    if (recent.node != nullptr && recent.hash == hash && recent.node->indexedName_ == name) {
      return recent.node;
    }
    return graph_->FindNodeRaw(name, hash);
  }

  static constexpr size_t kRecent = 1024;
  struct Recent {
    size_t hash = 0;
    Node* node = nullptr;
  };

  std::shared_ptr<ComputeGraph> graph_;
  std::vector<Node*> nodes_;
  std::vector<Waiting> waiting_;
  std::vector<Recent> recent_ = std::vector<Recent>(kRecent);
  AttrNameCache attrNames_;
  LoadError error_;
};

graphStatus ModelSerializer::LoadGraph(GraphDef& graphDef, std::shared_ptr<ComputeGraph>& graph) {
  GraphBuilder builder(static_cast<size_t>(graphDef.op_size()));
  if (builder.Begin(graphDef) != GRAPH_SUCCESS) return GRAPH_MODEL_INVALID;
  for (OpDef& op : *graphDef.mutable_op()) {
    if (builder.AddOp(op) != GRAPH_SUCCESS) return GRAPH_MODEL_INVALID;
  }
  return builder.Finish(graph);
}

namespace {

using wire::AppendVarint;
using wire::Span;
using wire::WireFormatLite;

// ModelDef.graph and GraphDef.op: the repeated fields that hold almost all of a model's bytes.
constexpr int kBulkField = tesu::proto::ModelDef::kGraphFieldNumber;
static_assert(GraphDef::kOpFieldNumber == kBulkField, "graphs and ops are split alike");

// Splits a serialised message: the length-delimited occurrences of field `field`, up to `most`
// of them, are collected as spans; every other field is copied to `rest` exactly as it stands,
// for protobuf to parse. False when the bytes are not a well-formed message, and as soon as
// more than `refuseAbove` spans are collected, before the rest of the bytes is looked at.
bool SplitFields(Span message, size_t most, std::vector<Span>& spans, std::string& rest,
                 size_t refuseAbove = SIZE_MAX) {
  wire::Reader input(message);
  while (!input.AtEnd()) {
    const uint64_t start = input.Position();
    uint32_t tag = 0;
    if (!input.ReadTag(tag)) return false;
    if (WireFormatLite::GetTagFieldNumber(tag) == kBulkField && wire::IsLengthDelimited(tag) &&
        spans.size() < most) {
      Span span;
      if (!input.ReadLengthDelimited(span)) return false;
      spans.push_back(span);
      if (spans.size() > refuseAbove) return false;
    } else {
      if (!input.SkipField(tag)) return false;
      rest.append(reinterpret_cast<const char*>(message.data + start),
                  static_cast<size_t>(input.Position() - start));
    }
  }
  return true;
}

// Copies an op's wire bytes without its tensors' `data` fields, which are located instead:
// OpDef.attr (a map entry) -> entry value (AttrDef) -> AttrDef.t (TensorDef) -> TensorDef.data.
// The copy is what protobuf parses, so an op is bounded by protobuf's limits whatever the size of
// its tensors, and tensor bytes are never copied into a message.
class TensorDataLocator {
 public:
  // `parsed` is the op's bytes as protobuf is to parse them: the bytes themselves when they hold
  // no tensor data, which is found in a first pass that writes nothing. False when the op's
  // bytes are not a well-formed message.
  bool Strip(Span op, Span& parsed, std::vector<LocatedData>& located) {
    located_ = &located;
    located.clear();
    write_ = false;
    sawData_ = false;
    if (!Copy(op, 0)) return false;
    parsed = op;
    if (!sawData_) return true;
    located.clear();
    write_ = true;
    if (!Copy(op, 0)) return false;
    parsed = {reinterpret_cast<const uint8_t*>(levels_[0].data()), levels_[0].size()};
    return true;
  }

 private:
  static constexpr int kDepth = 4;
  // The field followed at each depth; at the last depth it is the one left out.
  static constexpr int kPath[kDepth] = {OpDef::kAttrFieldNumber, 2 /* a map entry's value */,
                                        AttrDef::kTFieldNumber, TensorDef::kDataFieldNumber};

  // An AttrDef field of its oneof other than the tensor, with the wire type protobuf reads it
  // by: it replaces a tensor read before it.
  static bool ReplacesTensor(uint32_t tag) {
    switch (WireFormatLite::GetTagFieldNumber(tag)) {
      case AttrDef::kSFieldNumber:
      case AttrDef::kListFieldNumber:
        return wire::IsLengthDelimited(tag);
      case AttrDef::kIFieldNumber:
      case AttrDef::kBFieldNumber:
        return WireFormatLite::GetTagWireType(tag) == WireFormatLite::WIRETYPE_VARINT;
      case AttrDef::kFFieldNumber:
        return WireFormatLite::GetTagWireType(tag) == WireFormatLite::WIRETYPE_FIXED32;
      default:
        return false;
    }
  }

  bool Copy(Span message, int depth) {
    std::string& out = levels_[depth];
    out.clear();
    wire::Reader input(message);
    while (!input.AtEnd()) {
      const uint64_t start = input.Position();
      uint32_t tag = 0;
      if (!input.ReadTag(tag)) return false;
      const uint64_t afterTag = input.Position();
      const int number = WireFormatLite::GetTagFieldNumber(tag);
      if (number == kPath[depth] && wire::IsLengthDelimited(tag)) {
        Span inner;
        if (!input.ReadLengthDelimited(inner)) return false;
        if (depth + 1 == kDepth) {
          located_->back().data = inner;
          located_->back().present = true;
          sawData_ = true;
          continue;
        }
        if (depth == 0) located_->emplace_back();
        if (!Copy(inner, depth + 1)) return false;
        if (!write_) continue;
        out.append(reinterpret_cast<const char*>(message.data + start),
                   static_cast<size_t>(afterTag - start));
        AppendVarint(levels_[depth + 1].size(), out);
        out += levels_[depth + 1];
        continue;
      }
      if (!input.SkipField(tag)) return false;
      if (depth == 1 && number == 1 && wire::IsLengthDelimited(tag)) {
        // The entry's key: the bytes after the tag and length.
        wire::Reader key(message.data + afterTag, input.Position() - afterTag);
        Span keyBytes;
        key.ReadLengthDelimited(keyBytes);
        located_->back().key = {reinterpret_cast<const char*>(keyBytes.data),
                                static_cast<size_t>(keyBytes.size)};
      } else if (depth == 2 && ReplacesTensor(tag)) {
        located_->back().present = false;
      }
      if (write_)
        out.append(reinterpret_cast<const char*>(message.data + start),
                   static_cast<size_t>(input.Position() - start));
    }
    return true;
  }

  std::string levels_[kDepth];
  std::vector<LocatedData>* located_ = nullptr;
  bool write_ = false;
  bool sawData_ = false;
};

google::protobuf::ArenaOptions MessageArenaOptions() {
  google::protobuf::ArenaOptions options;
  options.start_block_size = 64 * 1024;
  options.max_block_size = 4 * 1024 * 1024;
  return options;
}

graphStatus NotAModel(size_t size) {
  AI_Log_Print(AI_LOG_ERROR, kModule,
               "model rejected: the %zu bytes are not a serialised model (ModelDef)", size);
  return GRAPH_MODEL_INVALID;
}

graphStatus TooManyNodes() {
  AI_Log_Print(AI_LOG_ERROR, kModule,
               "model rejected: it has more than %zu nodes, the most a model may have",
               kMaxGraphNodes);
  return GRAPH_MODEL_INVALID;
}

// The ops of the graphs among serialised ModelDef fields, counted without parsing them, up to
// one past kMaxGraphNodes. Malformed bytes are left for protobuf to refuse.
size_t CountOps(const std::string& fields) {
  std::vector<Span> graphs;
  std::vector<Span> ops;
  std::string rest;
  SplitFields({reinterpret_cast<const uint8_t*>(fields.data()), fields.size()}, SIZE_MAX, graphs,
              rest);
  for (const Span& graph : graphs) {
    if (ops.size() > kMaxGraphNodes) break;
    SplitFields(graph, SIZE_MAX, ops, rest, kMaxGraphNodes);
  }
  return ops.size();
}

}  // namespace

graphStatus ModelSerializer::LoadModel(const uint8_t* data, size_t size, Model& model) {
  if (size > kMaxModelBytes) {
    AI_Log_Print(AI_LOG_ERROR, kModule, "model rejected: %zu bytes is more than a model may hold",
                 size);
    return GRAPH_MODEL_INVALID;
  }
  // The first graph is read one op at a time, each op parsed by protobuf on a small arena that
  // is reused, so the whole message never sits in memory beside the graph built from it.
  // Everything else (names, attributes, further graphs) is parsed as one small message. Tensor
  // bytes of the ops are located on the wire and referred to where they lie when the bytes are
  // a mapped file, copied once otherwise.
  std::vector<Span> graphs;
  std::string modelRest;
  if (!SplitFields({data, size}, 1, graphs, modelRest)) return NotAModel(size);
  TensorSource source(MappedFile::Containing(data, size));
  google::protobuf::Arena arena(MessageArenaOptions());
  auto* modelDef = google::protobuf::Arena::CreateMessage<tesu::proto::ModelDef>(&arena);
  // Graphs after the first are only parsed to check them; their ops count towards the limit too,
  // so that parsing them cannot take more memory than the limit allows.
  const size_t furtherOps = CountOps(modelRest);
  if (furtherOps > kMaxGraphNodes) return TooManyNodes();
  if (!modelDef->ParseFromString(modelRest)) return NotAModel(size);

  std::vector<Span> ops;
  std::string graphRest;
  if (!graphs.empty() &&
      !SplitFields(graphs[0], SIZE_MAX, ops, graphRest, kMaxGraphNodes - furtherOps)) {
    return ops.size() + furtherOps > kMaxGraphNodes ? TooManyNodes() : NotAModel(size);
  }
  auto* graphDef = google::protobuf::Arena::CreateMessage<GraphDef>(&arena);
  if (!graphDef->ParseFromString(graphRest)) return NotAModel(size);

  Model loaded(modelDef->name(), Graph());
  if (LoadAttrs(*modelDef->mutable_attr(), "model", loaded, &source) != GRAPH_SUCCESS) {
    return GRAPH_MODEL_INVALID;
  }
  if (!graphs.empty()) {
    GraphBuilder builder(ops.size());
    if (builder.Begin(*graphDef, &source) != GRAPH_SUCCESS) return GRAPH_MODEL_INVALID;
    // Resetting the arena keeps its first block, so ops of ordinary size reuse the same memory.
    constexpr size_t kFirstBlockBytes = 256 * 1024;
    std::unique_ptr<char[]> firstBlock(new char[kFirstBlockBytes]);
    google::protobuf::ArenaOptions opOptions = MessageArenaOptions();
    opOptions.initial_block = firstBlock.get();
    opOptions.initial_block_size = kFirstBlockBytes;
    google::protobuf::Arena opArena(opOptions);
    // One message is parsed into again and again: parsing clears it first and keeps its
    // sub-messages and buffers for the next op. The arena, which still collects whatever an op
    // needed beyond them, is reset once the ops parsed since the last reset fill its first block.
    OpDef* op = nullptr;
    size_t bytesSinceReset = 0;
    TensorDataLocator locator;
    std::vector<LocatedData> located;
    const TensorBytesIn bytes{&source, &located};
    for (const Span& span : ops) {
      Span parsed;
      if (!locator.Strip(span, parsed, located) || parsed.size > kMaxMessageBytes) {
        return NotAModel(size);
      }
      bytesSinceReset += static_cast<size_t>(parsed.size);
      if (op == nullptr || bytesSinceReset > kFirstBlockBytes / 2) {
        opArena.Reset();
        op = google::protobuf::Arena::CreateMessage<OpDef>(&opArena);
        bytesSinceReset = static_cast<size_t>(parsed.size);
      }
      if (!op->ParseFromArray(parsed.data, static_cast<int>(parsed.size))) return NotAModel(size);
      if (builder.AddOp(*op, bytes) != GRAPH_SUCCESS) return GRAPH_MODEL_INVALID;
    }
    std::shared_ptr<ComputeGraph> graph;
    const graphStatus status = builder.Finish(graph);
    if (status != GRAPH_SUCCESS) return status;
    loaded.SetGraph(GraphUtils::CreateGraphFromComputeGraph(std::move(graph)));
  }
  model = std::move(loaded);
  return GRAPH_SUCCESS;
}

}  // namespace tov
