// Writes a model in the ModelDef wire format straight from the graph, without building the
// message: one pass measures every length-delimited part, a second writes the bytes. Tensor
// bytes go from the graph (or the file it maps) to the output and are never copied in between.
// The output is byte for byte what protobuf's deterministic serialisation of the equivalent
// message gives: fields in number order, proto3 defaults left out, map entries sorted by key
// (attributes are kept sorted). Every other form of the model (its message, its JSON) is made
// from this writer's bytes.
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <string_view>
#include <vector>

#include "graph/model.h"
#include "graph/model_serializer.h"
#include "graph/wire_output.h"
#include "log/log.h"

namespace tov {
namespace {

using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedOutputStream;
using tesu::proto::AttrDef;
using tesu::proto::ExternalData;
using tesu::proto::GraphDef;
using tesu::proto::ListValue;
using tesu::proto::ModelDef;
using tesu::proto::OpDef;
using tesu::proto::TensorDef;
using tesu::proto::TensorDescriptor;

constexpr auto kVarint = WireFormatLite::WIRETYPE_VARINT;
constexpr auto kFixed32 = WireFormatLite::WIRETYPE_FIXED32;
constexpr auto kLength = WireFormatLite::WIRETYPE_LENGTH_DELIMITED;
// Protobuf writes a map entry as a message holding its key as field 1 and its value as field 2.
constexpr int kMapKey = 1;
constexpr int kMapValue = 2;

uint32_t Tag(int field, WireFormatLite::WireType type) {
  return WireFormatLite::MakeTag(field, type);
}

// Counts bytes. Every length-delimited part records its size, in the order the parts begin, for
// the writing pass to use.
class SizeSink {
 public:
  explicit SizeSink(WireLayout& layout) : layout_(layout) {}
  void Tag(uint32_t tag) { bytes_ += CodedOutputStream::VarintSize32(tag); }
  void Varint(uint64_t value) { bytes_ += CodedOutputStream::VarintSize64(value); }
  void Fixed32(uint32_t) { bytes_ += sizeof(uint32_t); }
  void Raw(const void*, size_t size) { bytes_ += size; }
  void Weights(uint64_t, std::string_view) {}
  void Begin() {
    open_.push_back({layout_.sizes.size(), bytes_});
    layout_.sizes.push_back(0);
  }
  void End() {
    const Open open = open_.back();
    open_.pop_back();
    const uint64_t size = bytes_ - open.start;
    if (size < UINT32_MAX) {
      layout_.sizes[open.index] = static_cast<uint32_t>(size);
    } else {
      layout_.sizes[open.index] = UINT32_MAX;
      layout_.large.push_back(size);
    }
    bytes_ += CodedOutputStream::VarintSize64(size);
  }
  uint64_t Bytes() const { return bytes_; }

 private:
  struct Open {
    size_t index;
    uint64_t start;
  };
  WireLayout& layout_;
  std::vector<Open> open_;
  uint64_t bytes_ = 0;
};

class WriteSink {
 public:
  WriteSink(WireOutput& out, const WireLayout& layout, WireOutput* weights)
      : out_(out), layout_(layout), weights_(weights) {}
  void Tag(uint32_t tag) { out_.Varint(tag); }
  void Varint(uint64_t value) { out_.Varint(value); }
  void Fixed32(uint32_t value) { out_.Fixed32(value); }
  void Raw(const void* data, size_t size) { out_.Put(data, size); }
  // Tensor bytes at their offset in the weights file, zeros before them.
  void Weights(uint64_t offset, std::string_view bytes) {
    weights_->Zeros(static_cast<size_t>(offset - weightsEnd_));
    weights_->Put(bytes.data(), bytes.size());
    weightsEnd_ = offset + bytes.size();
  }
  void Begin() {
    const uint32_t size = layout_.sizes[next_++];
    out_.Varint(size != UINT32_MAX ? size : layout_.large[nextLarge_++]);
  }
  void End() {}

 private:
  WireOutput& out_;
  const WireLayout& layout_;
  WireOutput* weights_;
  uint64_t weightsEnd_ = 0;
  size_t next_ = 0;
  size_t nextLarge_ = 0;
};

// Where each tensor's bytes go. Both passes of a save place the same tensors in the same order,
// so they agree on every offset in the weights file.
class TensorPlacer {
 public:
  explicit TensorPlacer(const TensorPlan& plan) : plan_(plan) {}

  struct Place {
    std::string_view inlineBytes;           // written as the tensor's data
    const std::string* location = nullptr;  // set: the tensor lies in this weights file
    uint64_t offset = 0;
    uint64_t length = 0;
    bool toWeights = false;  // this save writes the bytes into its weights file
  };

  Place Of(const Tensor& tensor) {
    Place place;
    const std::string_view bytes = tensor.GetData().View();
    if (plan_.weights != nullptr && bytes.size() >= kMinExternalTensorBytes) {
      place.offset = (weightsEnd_ + kExternalTensorAlignment - 1) / kExternalTensorAlignment *
                     kExternalTensorAlignment;
      place.length = bytes.size();
      place.location = &plan_.location;
      place.toWeights = true;
      weightsEnd_ = place.offset + place.length;
    } else if (plan_.withData) {
      place.inlineBytes = bytes;
    } else if (const ExternalLocation* external = tensor.GetExternal()) {
      place.location = &external->location;
      place.offset = external->offset;
      place.length = external->length;
    }
    return place;
  }

 private:
  const TensorPlan& plan_;
  uint64_t weightsEnd_ = 0;
};

// The walk, shared by both passes.
template <typename Sink>
class ModelWalk {
 public:
  ModelWalk(Sink& sink, const TensorPlan& plan) : sink_(sink), placer_(plan) {}

  // The whole model, or (without its graph) its own fields only.
  void Model(const tov::Model& model, const ComputeGraph* graph) {
    String(ModelDef::kNameFieldNumber, model.GetName());
    if (graph != nullptr) {
      Open(ModelDef::kGraphFieldNumber);
      Graph(*graph, true);
      sink_.End();
    }
    Attrs(ModelDef::kAttrFieldNumber, model);
  }

  // The whole graph, or (without ops) its own fields only.
  void Graph(const ComputeGraph& graph, bool withOps) {
    String(GraphDef::kNameFieldNumber, graph.GetName());
    if (withOps) {
      graph.ForEachNode([this](Node& node) {
        Open(GraphDef::kOpFieldNumber);
        Op(node);
        sink_.End();
      });
    }
    Attrs(GraphDef::kAttrFieldNumber, graph);
  }

  void Op(const Node& node) {
    const OpDesc& desc = node.RoleNodeSpec().OpDesc();  // no reference taken per node
    String(OpDef::kNameFieldNumber, desc.GetName());
    String(OpDef::kTypeFieldNumber, desc.GetType());
    Inputs(node);
    Attrs(OpDef::kAttrFieldNumber, desc);
    for (size_t i = 0; i < desc.GetInputsSize(); ++i) {
      Open(OpDef::kInputDescFieldNumber);
      Desc(desc.GetInputDesc(static_cast<uint32_t>(i)));
      sink_.End();
    }
    for (size_t i = 0; i < desc.GetOutputsSize(); ++i) {
      Open(OpDef::kOutputDescFieldNumber);
      Desc(desc.GetOutputDesc(static_cast<uint32_t>(i)));
      sink_.End();
    }
    if (desc.GetIsInputConstSize() > 0) {
      Open(OpDef::kIsInputConstFieldNumber);
      for (size_t i = 0; i < desc.GetIsInputConstSize(); ++i) sink_.Varint(desc.IsInputConst(i));
      sink_.End();
    }
  }

 private:
  void Open(int field) {
    sink_.Tag(Tag(field, kLength));
    sink_.Begin();
  }
  void Bytes(int field, std::string_view bytes) {
    sink_.Tag(Tag(field, kLength));
    sink_.Varint(bytes.size());
    sink_.Raw(bytes.data(), bytes.size());
  }
  // A proto3 string or bytes field: left out when empty.
  void String(int field, std::string_view text) {
    if (!text.empty()) Bytes(field, text);
  }
  // A proto3 integer: left out when 0.
  void Int(int field, uint64_t value) {
    if (value == 0) return;
    sink_.Tag(Tag(field, kVarint));
    sink_.Varint(value);
  }
  template <typename List, typename Put>
  void Packed(int field, const List& values, Put put) {
    if (values.empty()) return;
    Open(field);
    for (const auto& value : values) put(value);
    sink_.End();
  }

  // Inputs up to the last connected one, "producer:k" each (a gap is ""), then the control
  // inputs as "producer:-1".
  void Inputs(const Node& node) {
    const InAnchorList& anchors = node.InAnchors();
    size_t connected = 0;
    for (size_t i = 0; i < anchors.size(); ++i) {
      if (anchors[i]->GetPeerOutAnchorRaw() != nullptr) connected = i + 1;
    }
    for (size_t i = 0; i < connected; ++i) {
      const OutDataAnchor* peer = anchors[i]->GetPeerOutAnchorRaw();
      if (peer == nullptr) {
        Bytes(OpDef::kInputFieldNumber, {});
      } else {
        Input(peer->GetOwnerNodeRaw()->GetName(), peer->GetIdx());
      }
    }
    for (const Node* from : node.RoleNodeWalker().InControlNodes()) Input(from->GetName(), -1);
  }
  void Input(const std::string& producer, int index) {
    char suffix[16] = {':'};
    const size_t length =
        static_cast<size_t>(std::to_chars(suffix + 1, suffix + sizeof(suffix), index).ptr - suffix);
    sink_.Tag(Tag(OpDef::kInputFieldNumber, kLength));
    sink_.Varint(producer.size() + length);
    sink_.Raw(producer.data(), producer.size());
    sink_.Raw(suffix, length);
  }

  void Desc(const TensorDesc& desc) {
    // Enumerations and dimensions are written as protobuf writes int32 and int64: negative
    // values sign-extended to 64 bits.
    Int(TensorDescriptor::kDtypeFieldNumber, static_cast<uint64_t>(desc.GetDataType()));
    Int(TensorDescriptor::kFormatFieldNumber, static_cast<uint64_t>(desc.GetFormat()));
    Packed(TensorDescriptor::kShapeFieldNumber, desc.GetShape().GetDims(),
           [this](int64_t dim) { sink_.Varint(static_cast<uint64_t>(dim)); });
    bool reuse = false;
    TensorUtils::GetReuseInput(desc, reuse);
    Int(TensorDescriptor::kReuseInputFieldNumber, reuse);
  }

  void Attrs(int field, const AttrHolder& holder) {
    for (const auto& [name, value] : holder.GetAllAttrs()) {
      Open(field);
      Bytes(kMapKey, name.str());  // a map entry always carries its key and its value
      Open(kMapValue);
      Attr(value);
      sink_.End();
      sink_.End();
    }
  }

  void Attr(const AttrValue& value) {
    using Kind = AttrValue::Kind;
    switch (value.GetKind()) {
      case Kind::kNone:
        return;
      case Kind::kString:
        return Bytes(AttrDef::kSFieldNumber, *value.Get<std::string>());
      case Kind::kInt:  // a member of a oneof is written even when it is 0
        sink_.Tag(Tag(AttrDef::kIFieldNumber, kVarint));
        return sink_.Varint(static_cast<uint64_t>(*value.Get<int64_t>()));
      case Kind::kFloat:
        sink_.Tag(Tag(AttrDef::kFFieldNumber, kFixed32));
        return sink_.Fixed32(WireFormatLite::EncodeFloat(*value.Get<float>()));
      case Kind::kBool:
        sink_.Tag(Tag(AttrDef::kBFieldNumber, kVarint));
        return sink_.Varint(*value.Get<bool>());
      case Kind::kTensor:
        Open(AttrDef::kTFieldNumber);
        Tensor(*value.Get<TensorPtr>());
        return sink_.End();
      default:
        Open(AttrDef::kListFieldNumber);
        List(value);
        return sink_.End();
    }
  }

  void List(const AttrValue& value) {
    if (const auto* strings = value.Get<std::vector<std::string>>()) {
      for (const std::string& item : *strings) Bytes(ListValue::kSFieldNumber, item);
    } else if (const auto* ints = value.Get<AttrValue::IntList>()) {
      Packed(ListValue::kIFieldNumber, *ints,
             [this](int64_t item) { sink_.Varint(static_cast<uint64_t>(item)); });
    } else if (const auto* floats = value.Get<std::vector<float>>()) {
      Packed(ListValue::kFFieldNumber, *floats,
             [this](float item) { sink_.Fixed32(WireFormatLite::EncodeFloat(item)); });
    } else if (const auto* bools = value.Get<std::vector<bool>>()) {
      Packed(ListValue::kBFieldNumber, *bools, [this](bool item) { sink_.Varint(item); });
    }
  }

  void Tensor(const TensorPtr& tensor) {
    if (tensor == nullptr) return;
    Open(TensorDef::kDescFieldNumber);
    Desc(tensor->GetTensorDesc());
    sink_.End();
    const TensorPlacer::Place place = placer_.Of(*tensor);
    String(TensorDef::kDataFieldNumber, place.inlineBytes);
    if (place.location == nullptr) return;
    Open(TensorDef::kExternalFieldNumber);
    String(ExternalData::kLocationFieldNumber, *place.location);
    Int(ExternalData::kOffsetFieldNumber, place.offset);
    Int(ExternalData::kLengthFieldNumber, place.length);
    sink_.End();
    if (place.toWeights) sink_.Weights(place.offset, tensor->GetData().View());
  }

  Sink& sink_;
  TensorPlacer placer_;
};

// One message, measured then written into `bytes`.
template <typename Walk>
bool WriteMessage(const TensorPlan& plan, WireLayout& layout, std::string& bytes, Walk walk) {
  layout.sizes.clear();
  layout.large.clear();
  SizeSink measure(layout);
  ModelWalk<SizeSink> measuring(measure, plan);
  walk(measuring);
  StringWireOutput out(bytes, static_cast<size_t>(measure.Bytes()));
  WriteSink write(out, layout, plan.weights);
  ModelWalk<WriteSink> writing(write, plan);
  walk(writing);
  return out.Finish();
}

}  // namespace

graphStatus ModelSerializer::CheckNamesUnique(const ComputeGraph& graph) {
  if (!graph.HasNamesakes()) return GRAPH_SUCCESS;
  const std::string* shared = nullptr;
  graph.ForEachNode([&](Node& node) {
    if (shared == nullptr && graph.FindNodeRaw(node.GetName()) != &node) shared = &node.GetName();
  });
  AI_Log_Print(AI_LOG_ERROR, "GRAPH",
               "cannot save graph \"%s\": two nodes are named \"%s\"; inputs name their "
               "producers, so names must be unique",
               graph.GetName().c_str(), shared == nullptr ? "" : shared->c_str());
  return GRAPH_FAILED;
}

graphStatus ModelSerializer::MeasureModel(const Model& model, const TensorPlan& plan,
                                          WireLayout& layout) {
  const std::shared_ptr<ComputeGraph> graph = GraphUtils::GetComputeGraph(model.GetGraph());
  if (graph != nullptr && CheckNamesUnique(*graph) != GRAPH_SUCCESS) return GRAPH_FAILED;
  // An op of a converted graph has about fifteen nested messages (descriptions, shapes,
  // attribute entries, tensors); reserving for that spares the copies of a growing vector.
  constexpr size_t kMessagesPerNode = 16;
  layout = WireLayout();
  if (graph != nullptr) layout.sizes.reserve(graph->GetNodesSize() * kMessagesPerNode);
  SizeSink measure(layout);
  ModelWalk<SizeSink>(measure, plan).Model(model, graph.get());
  layout.bytes = measure.Bytes();
  return GRAPH_SUCCESS;
}

graphStatus ModelSerializer::WriteModel(const Model& model, const TensorPlan& plan,
                                        const WireLayout& layout, WireOutput& out) {
  const std::shared_ptr<ComputeGraph> graph = GraphUtils::GetComputeGraph(model.GetGraph());
  WriteSink write(out, layout, plan.weights);
  ModelWalk<WriteSink>(write, plan).Model(model, graph.get());
  return out.Finish() ? GRAPH_SUCCESS : GRAPH_FAILED;
}

graphStatus ModelSerializer::WriteParts(const Model& model, bool withTensorData,
                                        const ModelPartWriter& part) {
  const std::shared_ptr<ComputeGraph> graph = GraphUtils::GetComputeGraph(model.GetGraph());
  if (graph != nullptr && CheckNamesUnique(*graph) != GRAPH_SUCCESS) return GRAPH_FAILED;
  TensorPlan plan;
  plan.withData = withTensorData;
  WireLayout layout;
  std::string bytes;
  const auto write = [&](ModelPart kind, auto walk) {
    return WriteMessage(plan, layout, bytes, walk) && part(kind, bytes);
  };
  if (!write(ModelPart::kModel, [&](auto& walk) { walk.Model(model, nullptr); })) {
    return GRAPH_FAILED;
  }
  if (graph == nullptr) return GRAPH_SUCCESS;
  if (!write(ModelPart::kGraph, [&](auto& walk) { walk.Graph(*graph, false); })) {
    return GRAPH_FAILED;
  }
  bool ok = true;
  graph->ForEachNode([&](Node& node) {
    ok = ok && write(ModelPart::kOp, [&node](auto& walk) { walk.Op(node); });
  });
  return ok ? GRAPH_SUCCESS : GRAPH_FAILED;
}

}  // namespace tov
