#include "graph_view.h"

#include <algorithm>
#include <charconv>

#include <google/protobuf/arena.h>

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
  for (char c : value) {
    if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else {
      out += c;
    }
  }
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

void AppendValue(std::string& out, const tesu::proto::AttrDef& attr) {
  using Attr = tesu::proto::AttrDef;
  switch (attr.value_case()) {
    case Attr::kS:
      return Append(out, attr.s());
    case Attr::kI:
      return Append(out, static_cast<int64_t>(attr.i()));
    case Attr::kF:
      return Append(out, attr.f());
    case Attr::kB:
      return Append(out, attr.b());
    case Attr::kList: {
      const tesu::proto::ListValue& list = attr.list();
      if (list.i_size() > 0) return AppendList(out, list.i());
      if (list.f_size() > 0) return AppendList(out, list.f());
      if (list.b_size() > 0) return AppendList(out, list.b());
      return AppendList(out, list.s());
    }
    case Attr::kT:
      return AppendTensor(out, attr.t().desc().dtype(), attr.t().desc().shape());
    case Attr::VALUE_NOT_SET:
      break;
  }
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
      return AppendList(out, *value.Get<std::vector<int64_t>>());
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
  out += name;
  out += kNameEnd;
  AppendValue(out, value);
  out += kEntryEnd;
}

void AppendInput(std::string& out, const std::string& producer, int index) {
  out += producer;
  out += ':';
  Append(out, index);
  out += kEntryEnd;
}

}  // namespace

const ViewNode* GraphView::Find(std::string_view name) const {
  const auto found = index.find(name);
  return found == index.end() ? nullptr : &nodes[found->second];
}

void GraphView::IndexNames() {
  index.clear();
  index.reserve(nodes.size());
  for (size_t i = 0; i < nodes.size(); ++i) index.emplace(nodes[i].name, i);
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

GraphView ViewOf(const tesu::proto::GraphDef& graph) {
  GraphView view;
  view.nodes.reserve(static_cast<size_t>(graph.op_size()));
  std::vector<const google::protobuf::MapPair<std::string, tesu::proto::AttrDef>*> attrs;
  for (const tesu::proto::OpDef& op : graph.op()) {
    ViewNode node{op.name(), op.type(), {}, {}};
    // The message's map has no order; the view's attributes are sorted by name.
    attrs.clear();
    for (const auto& entry : op.attr()) attrs.push_back(&entry);
    std::sort(attrs.begin(), attrs.end(),
              [](const auto* a, const auto* b) { return a->first < b->first; });
    for (const auto* entry : attrs) AppendAttr(node.attrs, entry->first, entry->second);
    for (const std::string& input : op.input()) {
      // The file may leave out ":0"; the view always writes the index, as the compute graph
      // does, so that inputs compare equal.
      node.inputs += input;
      if (!input.empty() && input.find(':') == std::string::npos) node.inputs += ":0";
      node.inputs += kEntryEnd;
    }
    view.nodes.push_back(std::move(node));
  }
  view.IndexNames();
  return view;
}

GraphView SourceViewOf(const std::string& serialisedModel) {
  // On an arena: the message is thousands of small objects, released at once.
  google::protobuf::Arena arena;
  auto* model = google::protobuf::Arena::CreateMessage<tesu::proto::ModelDef>(&arena);
  if (!model->ParseFromString(serialisedModel) || model->graph_size() == 0) return GraphView();
  return ViewOf(model->graph(0));
}

GraphView ViewOf(const tov::ComputeGraph& graph) {
  GraphView view;
  view.nodes.reserve(graph.GetNodesSize());
  graph.ForEachNode([&view](tov::Node& source) {
    ViewNode node{source.GetName(), source.GetType(), {}, {}};
    // Already sorted by name.
    for (const auto& [name, value] : source.GetOpDesc()->GetAllAttrs()) {
      AppendAttr(node.attrs, name, value);
    }
    size_t connected = 0;  // the length up to the last connected input
    for (const auto& anchor : source.InAnchors()) {
      const tov::OutDataAnchor* peer = anchor->GetPeerOutAnchorRaw();
      if (peer == nullptr) {
        node.inputs += kEntryEnd;
        continue;
      }
      AppendInput(node.inputs, peer->GetOwnerNodeRaw()->GetName(), peer->GetIdx());
      connected = node.inputs.size();
    }
    // The file lists no input after its last connected one.
    node.inputs.resize(connected);
    for (const tov::Node* control : source.RoleNodeWalker().InControlNodes()) {
      AppendInput(node.inputs, control->GetName(), -1);
    }
    view.nodes.push_back(std::move(node));
  });
  view.IndexNames();
  return view;
}

}  // namespace report
}  // namespace cli
}  // namespace tesu
