// Writes a model in the ModelDef wire format straight from the graph, without building the
// message: one pass measures every length-delimited part, a second writes the bytes. Tensor
// bytes go from the graph to the stream and are never copied. The output is byte for byte what
// protobuf's deterministic serialisation of the equivalent message gives: fields in number
// order, proto3 defaults left out, map entries sorted by key (attributes are kept sorted).
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstring>
#include <string_view>
#include <vector>

#include "graph/model.h"
#include "graph/model_serializer.h"
#include "log/log.h"

namespace tov {
namespace {

using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedOutputStream;

constexpr auto kVarint = WireFormatLite::WIRETYPE_VARINT;
constexpr auto kFixed32 = WireFormatLite::WIRETYPE_FIXED32;
constexpr auto kLength = WireFormatLite::WIRETYPE_LENGTH_DELIMITED;

uint32_t Tag(int field, WireFormatLite::WireType type) {
  return WireFormatLite::MakeTag(field, type);
}

// Counts bytes. Every length-delimited part records its size, in the order the parts begin, for
// the writing pass to use.
class SizeSink {
 public:
  explicit SizeSink(std::vector<uint32_t>& sizes) : sizes_(sizes) {}
  void Tag(uint32_t tag) { bytes_ += CodedOutputStream::VarintSize32(tag); }
  void Varint(uint64_t value) { bytes_ += CodedOutputStream::VarintSize64(value); }
  void Fixed32(uint32_t) { bytes_ += 4; }
  void Raw(const void*, size_t size) { bytes_ += size; }
  void Begin() {
    open_.push_back({sizes_.size(), bytes_});
    sizes_.push_back(0);
  }
  void End() {
    const Open open = open_.back();
    open_.pop_back();
    const uint64_t size = bytes_ - open.start;
    sizes_[open.index] = static_cast<uint32_t>(std::min<uint64_t>(size, UINT32_MAX));
    bytes_ += CodedOutputStream::VarintSize64(size);
  }
  uint64_t Bytes() const { return bytes_; }

 private:
  struct Open {
    size_t index;
    uint64_t start;
  };
  std::vector<uint32_t>& sizes_;
  std::vector<Open> open_;
  uint64_t bytes_ = 0;
};

class WriteSink {
 public:
  WriteSink(CodedOutputStream& out, const std::vector<uint32_t>& sizes)
      : out_(out), sizes_(sizes) {}
  void Tag(uint32_t tag) { out_.WriteTag(tag); }
  void Varint(uint64_t value) { out_.WriteVarint64(value); }
  void Fixed32(uint32_t value) { out_.WriteLittleEndian32(value); }
  void Raw(const void* data, size_t size) {
    if (size > 0) out_.WriteRaw(data, static_cast<int>(size));  // an empty view may be null
  }
  void Begin() { out_.WriteVarint32(sizes_[next_++]); }
  void End() {}

 private:
  CodedOutputStream& out_;
  const std::vector<uint32_t>& sizes_;
  size_t next_ = 0;
};

// The walk, shared by both passes.
template <typename Sink>
class ModelWalk {
 public:
  explicit ModelWalk(Sink& sink) : sink_(sink) {}

  void Model(const tov::Model& model, const ComputeGraph* graph) {
    String(1, model.GetName());
    if (graph != nullptr) {
      Open(2);
      Graph(*graph);
      sink_.End();
    }
    Attrs(3, model);
  }

 private:
  void Open(int field) {
    sink_.Tag(Tag(field, kLength));
    sink_.Begin();
  }
  void Bytes(int field, std::string_view text) {
    sink_.Tag(Tag(field, kLength));
    sink_.Varint(text.size());
    sink_.Raw(text.data(), text.size());
  }
  // A proto3 string: left out when empty.
  void String(int field, std::string_view text) {
    if (!text.empty()) Bytes(field, text);
  }
  void Int(int field, int64_t value) {
    if (value == 0) return;
    sink_.Tag(Tag(field, kVarint));
    sink_.Varint(static_cast<uint64_t>(value));
  }
  template <typename List, typename Put>
  void Packed(int field, const List& values, Put put) {
    if (values.empty()) return;
    Open(field);
    for (const auto& value : values) put(value);
    sink_.End();
  }

  void Graph(const ComputeGraph& graph) {
    String(1, graph.GetName());
    graph.ForEachNode([this](Node& node) {
      Open(2);
      Op(node);
      sink_.End();
    });
    Attrs(3, graph);
  }

  void Op(const Node& node) {
    const OpDesc& desc = node.RoleNodeSpec().OpDesc();  // no reference taken per node
    String(1, desc.GetName());
    String(2, desc.GetType());
    Inputs(node);
    Attrs(4, desc);
    for (size_t i = 0; i < desc.GetInputsSize(); ++i) {
      Open(5);
      Desc(desc.GetInputDesc(static_cast<uint32_t>(i)));
      sink_.End();
    }
    for (size_t i = 0; i < desc.GetOutputsSize(); ++i) {
      Open(6);
      Desc(desc.GetOutputDesc(static_cast<uint32_t>(i)));
      sink_.End();
    }
    if (desc.GetIsInputConstSize() > 0) {
      Open(7);
      for (size_t i = 0; i < desc.GetIsInputConstSize(); ++i) sink_.Varint(desc.IsInputConst(i));
      sink_.End();
    }
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
        Bytes(3, {});
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
    sink_.Tag(Tag(3, kLength));
    sink_.Varint(producer.size() + length);
    sink_.Raw(producer.data(), producer.size());
    sink_.Raw(suffix, length);
  }

  void Desc(const TensorDesc& desc) {
    Int(1, desc.GetDataType());
    Int(2, desc.GetFormat());
    Packed(3, desc.GetShape().GetDims(),
           [this](int64_t dim) { sink_.Varint(static_cast<uint64_t>(dim)); });
    bool reuse = false;
    TensorUtils::GetReuseInput(desc, reuse);
    Int(4, reuse);
  }

  void Attrs(int field, const AttrHolder& holder) {
    for (const auto& [name, value] : holder.GetAllAttrs()) {
      Open(field);
      Bytes(1, name.str());  // a map entry always carries its key and its value
      Open(2);
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
        return Bytes(1, *value.Get<std::string>());
      case Kind::kInt:  // a member of a oneof is written even when it is 0
        sink_.Tag(Tag(2, kVarint));
        return sink_.Varint(static_cast<uint64_t>(*value.Get<int64_t>()));
      case Kind::kFloat:
        sink_.Tag(Tag(3, kFixed32));
        return sink_.Fixed32(WireFormatLite::EncodeFloat(*value.Get<float>()));
      case Kind::kBool:
        sink_.Tag(Tag(4, kVarint));
        return sink_.Varint(*value.Get<bool>());
      case Kind::kTensor:
        Open(6);
        Tensor(*value.Get<TensorPtr>());
        return sink_.End();
      default:
        Open(5);
        List(value);
        return sink_.End();
    }
  }

  void List(const AttrValue& value) {
    if (const auto* strings = value.Get<std::vector<std::string>>()) {
      for (const std::string& item : *strings) Bytes(1, item);
    } else if (const auto* ints = value.Get<AttrValue::IntList>()) {
      Packed(2, *ints, [this](int64_t item) { sink_.Varint(static_cast<uint64_t>(item)); });
    } else if (const auto* floats = value.Get<std::vector<float>>()) {
      Packed(3, *floats, [this](float item) { sink_.Fixed32(WireFormatLite::EncodeFloat(item)); });
    } else if (const auto* bools = value.Get<std::vector<bool>>()) {
      Packed(4, *bools, [this](bool item) { sink_.Varint(item); });
    }
  }

  void Tensor(const TensorPtr& tensor) {
    if (tensor == nullptr) return;
    Open(1);
    Desc(tensor->GetTensorDesc());
    sink_.End();
    String(2, tensor->GetData().View());
  }

  Sink& sink_;
};

}  // namespace

graphStatus ModelSerializer::WriteModel(const Model& model,
                                        google::protobuf::io::ZeroCopyOutputStream& stream,
                                        const std::function<void(size_t)>& measured) {
  const std::shared_ptr<ComputeGraph> graph = GraphUtils::GetComputeGraph(model.GetGraph());
  if (graph != nullptr && CheckNamesUnique(*graph) != GRAPH_SUCCESS) return GRAPH_FAILED;
  std::vector<uint32_t> sizes;
  // An op of a converted graph has about fifteen nested messages (descriptions, shapes,
  // attribute entries, tensors); reserving for that spares the copies of a growing vector.
  constexpr size_t kMessagesPerNode = 16;
  if (graph != nullptr) sizes.reserve(graph->GetNodesSize() * kMessagesPerNode);
  SizeSink measure(sizes);
  ModelWalk<SizeSink>(measure).Model(model, graph.get());
  if (measure.Bytes() > static_cast<uint64_t>(INT_MAX)) {
    AI_Log_Print(AI_LOG_ERROR, "GRAPH", "cannot save model \"%s\": it needs more than 2 GiB",
                 model.GetName().c_str());
    return GRAPH_FAILED;
  }
  if (measured) measured(static_cast<size_t>(measure.Bytes()));
  CodedOutputStream out(&stream);
  WriteSink write(out, sizes);
  ModelWalk<WriteSink>(write).Model(model, graph.get());
  out.Trim();
  return out.HadError() ? GRAPH_FAILED : GRAPH_SUCCESS;
}

}  // namespace tov
