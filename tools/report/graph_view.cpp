#include "graph_view.h"

#include <algorithm>
#include <charconv>

#include <climits>
#include <functional>
#include <type_traits>
#include <utility>

#include "graph/model_wire.h"
#include "graph/proto/model.pb.h"
#include "graph/types.h"

namespace tesu {
namespace cli {
namespace report {
namespace {

// Longer lists show their first values and their length, so a 1000-value list does not swamp
// the page.
constexpr size_t kMaxListValues = 16;
constexpr size_t kShownOfLongList = 8;

// Values are appended to one string per node; std::to_chars keeps that free of streams and
// locales.
template <typename Number>
void Append(std::string& out, Number value) {
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof(buffer), value);
  out.append(buffer, result.ptr);
}
void Append(std::string& out, bool value) {
  out += value ? "true" : "false";
}
void Append(std::string& out, const std::string& value) {
  out += '"';
  AppendVisible(out, value);
  out += '"';
}

// Works on any container with size() and operator[]: std::vector and protobuf's repeated fields.
template <typename List>
void AppendList(std::string& out, const List& values) {
  const size_t size = static_cast<size_t>(values.size());
  const size_t shown = size > kMaxListValues ? kShownOfLongList : size;
  out += '[';
  for (size_t i = 0; i < shown; ++i) {
    if (i > 0) out += ", ";
    Append(out, static_cast<typename List::value_type>(values[static_cast<int>(i)]));
  }
  if (shown < size) {
    out += ", ... (";
    Append(out, size);
    out += " values)";
  }
  out += ']';
}

template <typename Dims>
void AppendTensor(std::string& out, int32_t dataType, const Dims& dims) {
  const char* name = tov::DataTypeName(dataType);
  out += *name != '\0' ? name : "?";
  AppendList(out, dims);
}

void AppendValue(std::string& out, const tov::AttrValue& value) {
  using Kind = tov::AttrValue::Kind;
  switch (value.GetKind()) {
    case Kind::kString:
      return Append(out, *value.Get<std::string>());
    case Kind::kInt:
      return Append(out, *value.Get<int64_t>());
    case Kind::kFloat:
      return Append(out, *value.Get<float>());
    case Kind::kBool:
      return Append(out, *value.Get<bool>());
    case Kind::kListString:
      return AppendList(out, *value.Get<std::vector<std::string>>());
    case Kind::kListInt:
      return AppendList(out, *value.Get<tov::AttrValue::IntList>());
    case Kind::kListFloat:
      return AppendList(out, *value.Get<std::vector<float>>());
    case Kind::kListBool:
      return AppendList(out, *value.Get<std::vector<bool>>());
    case Kind::kTensor: {
      const tov::TensorPtr& tensor = *value.Get<tov::TensorPtr>();
      if (tensor == nullptr) return;
      const tov::TensorDesc& desc = tensor->GetTensorDesc();
      return AppendTensor(out, desc.GetDataType(), desc.GetShape().GetDims());
    }
    case Kind::kNone:
      break;
  }
}

template <typename Value>
void AppendAttr(std::string& out, const std::string& name, const Value& value) {
  AppendVisible(out, name);
  out += kNameEnd;
  AppendValue(out, value);
  out += kEntryEnd;
}

void AppendInput(std::string& out, const std::string& producer, int index) {
  AppendVisible(out, producer);
  out += ':';
  Append(out, index);
  out += kEntryEnd;
}

bool IsControl(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == '\x7f';
}

}  // namespace

void AppendVisible(std::string& out, std::string_view text) {
  constexpr char kHex[] = "0123456789abcdef";
  size_t from = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (!IsControl(c)) continue;
    out.append(text, from, i - from);
    from = i + 1;
    out += '\\';
    if (c == '\n') {
      out += 'n';
    } else if (c == '\t') {
      out += 't';
    } else if (c == '\r') {
      out += 'r';
    } else {
      const auto byte = static_cast<unsigned char>(c);
      out += 'x';
      out += kHex[byte >> 4];
      out += kHex[byte & 15];
    }
  }
  out.append(text, from, std::string_view::npos);
}

std::string_view Visible(std::string_view text, std::string& scratch) {
  if (std::none_of(text.begin(), text.end(), IsControl)) return text;
  scratch.clear();
  AppendVisible(scratch, text);
  return scratch;
}

uint32_t TextIndex::Hash(std::string_view text) {
  const size_t hash = std::hash<std::string_view>()(text);
  return static_cast<uint32_t>(hash ^ (hash >> 32));
}

size_t TextIndex::Probe(std::string_view text, uint32_t hash) const {
  const size_t mask = slots_.size() - 1;
  for (size_t at = hash & mask;; at = (at + 1) & mask) {
    const Slot& slot = slots_[at];
    if (slot.entry == kNone || (slot.hash == hash && entries_[slot.entry].text == text)) return at;
  }
}

uint32_t TextIndex::Find(std::string_view text) const {
  if (entries_.empty()) return kNone;
  const Slot& slot = slots_[Probe(text, Hash(text))];
  return slot.entry == kNone ? kNone : entries_[slot.entry].value;
}

uint32_t TextIndex::Insert(std::string_view text, uint32_t value) {
  if (2 * (entries_.size() + 1) > slots_.size()) Grow(std::max<size_t>(16, 2 * slots_.size()));
  const uint32_t hash = Hash(text);
  Slot& slot = slots_[Probe(text, hash)];
  if (slot.entry != kNone) return entries_[slot.entry].value;
  slot = {hash, static_cast<uint32_t>(entries_.size())};
  entries_.push_back({text, value});
  return value;
}

void TextIndex::Reserve(size_t count) {
  entries_.reserve(count);
  size_t capacity = 16;
  while (capacity < 2 * count) capacity *= 2;
  if (capacity > slots_.size()) Grow(capacity);
}

void TextIndex::Grow(size_t capacity) {
  std::vector<Slot> old(capacity);
  old.swap(slots_);
  const size_t mask = capacity - 1;
  for (const Slot& slot : old) {
    if (slot.entry == kNone) continue;
    size_t at = slot.hash & mask;
    while (slots_[at].entry != kNone) at = (at + 1) & mask;
    slots_[at] = slot;
  }
}

uint32_t TextTable::AddOnce(std::string_view text) {
  texts_.emplace_back(text);
  return static_cast<uint32_t>(texts_.size() - 1);
}

uint32_t TextTable::Add(std::string_view text) {
  const uint32_t found = ids_.Find(text);
  if (found != TextIndex::kNone) return found;
  const auto id = static_cast<uint32_t>(texts_.size());
  ids_.Insert(texts_.emplace_back(text), id);
  return id;
}

std::string_view TextArena::Copy(std::string_view text) {
  constexpr size_t kBlock = size_t{1} << 18;
  if (text.empty()) return std::string_view();
  if (text.size() > left_) {
    const size_t size = std::max(kBlock, text.size());
    blocks_.push_back(std::make_unique<char[]>(size));
    next_ = blocks_.back().get();
    left_ = size;
  }
  char* at = next_;
  std::copy(text.begin(), text.end(), at);
  next_ += text.size();
  left_ -= text.size();
  return std::string_view(at, text.size());
}

void GraphView::Add(std::string_view name, std::string_view type, std::string_view attrs,
                    std::string_view inputs) {
  std::string scratch;
  ViewNode& node = nodes.emplace_back();
  node.name = arena.Copy(Visible(name, scratch));
  node.typeId = texts.Add(Visible(type, scratch));
  node.type = texts[node.typeId];
  if (lastAttrs.size() <= node.typeId) lastAttrs.resize(node.typeId + 1, TextIndex::kNone);
  uint32_t& last = lastAttrs[node.typeId];
  if (last == TextIndex::kNone || texts[last] != attrs) last = texts.Add(attrs);
  node.attrsId = last;
  node.attrs = texts[node.attrsId];
  node.inputs = arena.Copy(inputs);
}

const ViewNode* GraphView::Find(std::string_view name) const {
  const uint32_t found = index.Find(name);
  return found == TextIndex::kNone ? nullptr : &nodes[found];
}

void GraphView::IndexNames() {
  index = TextIndex();
  index.Reserve(nodes.size());
  namesakes = false;
  for (size_t i = 0; i < nodes.size(); ++i) {
    const auto position = static_cast<uint32_t>(i);
    namesakes = index.Insert(nodes[i].name, position) != position || namesakes;
  }
}

std::string_view ProducerOf(std::string_view input) {
  const size_t colon = input.rfind(':');
  return colon == std::string_view::npos ? input : input.substr(0, colon);
}

bool IsControlInput(std::string_view input) {
  constexpr std::string_view kControl = ":-1";
  return input.size() >= kControl.size() &&
         input.substr(input.size() - kControl.size()) == kControl;
}

namespace {

using tov::wire::CodedInputStream;
using tov::wire::ForEachField;
using tov::wire::ForEachTag;
using tov::wire::InMessage;
using tov::wire::IsLengthDelimited;
using tov::wire::WireFormatLite;

// Field numbers of the model format, as the generated messages name them.
using tesu::proto::AttrDef;
using tesu::proto::ListValue;
using tesu::proto::TensorDef;
using tesu::proto::TensorDescriptor;
constexpr int kModelGraph = tesu::proto::ModelDef::kGraphFieldNumber;
constexpr int kGraphOp = tesu::proto::GraphDef::kOpFieldNumber;
constexpr int kOpName = tesu::proto::OpDef::kNameFieldNumber;
constexpr int kOpType = tesu::proto::OpDef::kTypeFieldNumber;
constexpr int kOpInput = tesu::proto::OpDef::kInputFieldNumber;
constexpr int kOpAttr = tesu::proto::OpDef::kAttrFieldNumber;
// A map entry on the wire is a message of the key, field 1, and the value, field 2.
constexpr int kMapKey = 1;
constexpr int kMapValue = 2;

// Storage reused from attribute to attribute while a model is read.
struct Scratch {
  std::vector<std::string> strings;
  std::vector<int64_t> ints;
  std::vector<float> floats;
  std::vector<bool> bools;
  // Name and rendered value of the op's attributes: the first `used` entries. Entries are
  // reused, so their strings keep their storage from op to op.
  std::vector<std::pair<std::string, std::string>> attrs;
  size_t used = 0;
  std::string name;
  std::string type;
  std::string input;
  std::string inputs;
  std::string attrsText;
};

bool ReadInt(CodedInputStream& in, int64_t& value) {
  uint64_t raw = 0;
  if (!in.ReadVarint64(&raw)) return false;
  value = static_cast<int64_t>(raw);
  return true;
}

bool ReadFloat(CodedInputStream& in, float& value) {
  uint32_t raw = 0;
  if (!in.ReadLittleEndian32(&raw)) return false;
  value = WireFormatLite::DecodeFloat(raw);
  return true;
}

// One value of a repeated scalar field, or all of them when the field is packed.
template <typename T, typename ReadOne>
bool ReadRepeated(CodedInputStream& in, uint32_t tag, std::vector<T>& out, ReadOne readOne) {
  auto one = [&] {
    typename std::conditional<std::is_same<T, bool>::value, int64_t, T>::type value{};
    if (!readOne(in, value)) return false;
    out.push_back(static_cast<T>(value));
    return true;
  };
  if (!IsLengthDelimited(tag)) return one();
  return InMessage(in, [&] {
    while (in.BytesUntilLimit() > 0) {
      if (!one()) return false;
    }
    return true;
  });
}

// A ListValue, rendered as the view renders lists: its integers, else floats, else booleans,
// else strings.
bool ReadList(CodedInputStream& in, Scratch& scratch, std::string& text) {
  scratch.strings.clear();
  scratch.ints.clear();
  scratch.floats.clear();
  scratch.bools.clear();
  const bool ok = ForEachTag(in, [&](uint32_t tag) {
    switch (WireFormatLite::GetTagFieldNumber(tag)) {
      case ListValue::kSFieldNumber:
        scratch.strings.emplace_back();
        return WireFormatLite::ReadString(&in, &scratch.strings.back());
      case ListValue::kIFieldNumber:
        return ReadRepeated(in, tag, scratch.ints, ReadInt);
      case ListValue::kFFieldNumber:
        return ReadRepeated(in, tag, scratch.floats, ReadFloat);
      case ListValue::kBFieldNumber:
        return ReadRepeated(in, tag, scratch.bools, ReadInt);
      default:
        return false;
    }
  });
  if (!scratch.ints.empty()) {
    AppendList(text, scratch.ints);
  } else if (!scratch.floats.empty()) {
    AppendList(text, scratch.floats);
  } else if (!scratch.bools.empty()) {
    AppendList(text, scratch.bools);
  } else {
    AppendList(text, scratch.strings);
  }
  return ok;
}

// A TensorDef, rendered as its data type and shape; its data is skipped, never copied.
bool ReadTensor(CodedInputStream& in, Scratch& scratch, std::string& text) {
  int64_t dataType = 0;
  scratch.ints.clear();
  const bool ok = ForEachTag(in, [&](uint32_t tag) {
    if (WireFormatLite::GetTagFieldNumber(tag) != TensorDef::kDescFieldNumber ||
        !IsLengthDelimited(tag)) {
      return false;
    }
    return InMessage(in, [&] {
      return ForEachTag(in, [&](uint32_t descTag) {
        const int number = WireFormatLite::GetTagFieldNumber(descTag);
        if (number == TensorDescriptor::kDtypeFieldNumber && !IsLengthDelimited(descTag)) {
          return ReadInt(in, dataType);
        }
        if (number == TensorDescriptor::kShapeFieldNumber) {
          return ReadRepeated(in, descTag, scratch.ints, ReadInt);
        }
        return false;
      });
    });
  });
  AppendTensor(text, static_cast<int32_t>(dataType), scratch.ints);
  return ok;
}

// An AttrDef; like the message, the last value field read is the value.
bool ReadAttrValue(CodedInputStream& in, Scratch& scratch, std::string& text) {
  return ForEachTag(in, [&](uint32_t tag) {
    const int number = WireFormatLite::GetTagFieldNumber(tag);
    const bool delimited = IsLengthDelimited(tag);
    int64_t integer = 0;
    float real = 0;
    std::string value;
    if (number == AttrDef::kSFieldNumber && delimited) {
      if (!WireFormatLite::ReadString(&in, &value)) return false;
      text.clear();
      Append(text, value);
    } else if ((number == AttrDef::kIFieldNumber || number == AttrDef::kBFieldNumber) &&
               !delimited) {
      if (!ReadInt(in, integer)) return false;
      text.clear();
      if (number == AttrDef::kIFieldNumber) {
        Append(text, integer);
      } else {
        Append(text, integer != 0);
      }
    } else if (number == AttrDef::kFFieldNumber && !delimited) {
      if (!ReadFloat(in, real)) return false;
      text.clear();
      Append(text, real);
    } else if ((number == AttrDef::kListFieldNumber || number == AttrDef::kTFieldNumber) &&
               delimited) {
      text.clear();
      return InMessage(in, [&] {
        return number == AttrDef::kListFieldNumber ? ReadList(in, scratch, text)
                                                   : ReadTensor(in, scratch, text);
      });
    } else {
      return false;
    }
    return true;
  });
}

bool ReadOp(CodedInputStream& in, Scratch& scratch, GraphView& view) {
  scratch.attrs.clear();
  std::string& name = scratch.name;
  std::string& type = scratch.type;
  std::string& inputs = scratch.inputs;
  name.clear();
  type.clear();
  inputs.clear();
  const bool ok = ForEachField(in, [&](int number) {
    switch (number) {
      case kOpName:
        return WireFormatLite::ReadString(&in, &name);
      case kOpType:
        return WireFormatLite::ReadString(&in, &type);
      case kOpInput: {
        std::string& input = scratch.input;
        if (!WireFormatLite::ReadString(&in, &input)) return false;
        // The file may leave out ":0"; the view always writes the index, as the compute graph
        // does, so that inputs compare equal.
        AppendVisible(inputs, input);
        if (!input.empty() && input.find(':') == std::string::npos) inputs += ":0";
        inputs += kEntryEnd;
        return true;
      }
      case kOpAttr: {
        if (scratch.used == scratch.attrs.size()) scratch.attrs.emplace_back();
        auto& [attrName, text] = scratch.attrs[scratch.used++];
        attrName.clear();
        text.clear();
        return InMessage(in, [&] {
          return ForEachField(in, [&](int entryField) {
            if (entryField == kMapKey) return WireFormatLite::ReadString(&in, &attrName);
            if (entryField != kMapValue) return false;
            return InMessage(in, [&] { return ReadAttrValue(in, scratch, text); });
          });
        });
      }
      default:
        return false;
    }
  });
  // A map has no order on the wire; the view's attributes are sorted by name.
  std::sort(scratch.attrs.begin(), scratch.attrs.begin() + scratch.used);
  std::string& attrs = scratch.attrsText;
  attrs.clear();
  for (size_t i = 0; i < scratch.used; ++i) {
    AppendVisible(attrs, scratch.attrs[i].first);
    attrs += kNameEnd;
    attrs += scratch.attrs[i].second;
    attrs += kEntryEnd;
  }
  scratch.used = 0;
  view.Add(name, type, attrs, inputs);
  return ok;
}

}  // namespace

GraphView SourceViewOf(std::string_view serialisedModel, size_t expectedNodes) {
  GraphView view;
  view.nodes.reserve(expectedNodes);
  Scratch scratch;
  bool sawGraph = false;
  // The model and its graph may be of any size; each op is read with protobuf's reader.
  const auto readOp = [&](int number, tov::wire::Span op) {
    if (number != kGraphOp) return true;
    if (op.size > static_cast<uint64_t>(INT_MAX)) return false;
    CodedInputStream in(op.data, static_cast<int>(op.size));
    return ReadOp(in, scratch, view);
  };
  const bool ok = tov::wire::ForEachLengthDelimited(
      {reinterpret_cast<const uint8_t*>(serialisedModel.data()), serialisedModel.size()},
      [&](int number, tov::wire::Span graph) {
        if (number != kModelGraph || sawGraph) return true;
        sawGraph = true;  // the first graph is the model's graph
        return tov::wire::ForEachLengthDelimited(graph, readOp);
      });
  // Bytes that are not a model show no graph; the parser says what is wrong with them.
  if (!ok) view.nodes.clear();
  return view;
}

GraphView ViewOf(const tov::ComputeGraph& graph) {
  GraphView view;
  view.nodes.reserve(graph.GetNodesSize());
  std::string attrs;
  std::string inputs;
  graph.ForEachNode([&](tov::Node& source) {
    attrs.clear();
    inputs.clear();
    // Already sorted by name.
    for (const auto& [name, value] : source.GetOpDesc()->GetAllAttrs()) {
      AppendAttr(attrs, name, value);
    }
    size_t connected = 0;  // the length up to the last connected input
    for (const auto& anchor : source.InAnchors()) {
      const tov::OutDataAnchor* peer = anchor->GetPeerOutAnchorRaw();
      if (peer == nullptr) {
        inputs += kEntryEnd;
        continue;
      }
      AppendInput(inputs, peer->GetOwnerNodeRaw()->GetName(), peer->GetIdx());
      connected = inputs.size();
    }
    // The file lists no input after its last connected one.
    inputs.resize(connected);
    for (const tov::Node* control : source.RoleNodeWalker().InControlNodes()) {
      AppendInput(inputs, control->GetName(), -1);
    }
    view.Add(source.GetName(), source.GetType(), attrs, inputs);
  });
  view.IndexNames();
  return view;
}

}  // namespace report
}  // namespace cli
}  // namespace tesu
