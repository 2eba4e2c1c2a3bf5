#include "graph_view.h"

#include <algorithm>
#include <sstream>

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

void WriteValue(std::ostream& out, const std::string& value) {
  out << '"' << value << '"';
}
void WriteValue(std::ostream& out, bool value) {
  out << (value ? "true" : "false");
}
void WriteValue(std::ostream& out, int64_t value) {
  out << value;
}
void WriteValue(std::ostream& out, float value) {
  out << value;
}

// Works on any container with size() and operator[]: std::vector and protobuf's repeated fields.
template <typename List>
std::string ListText(const List& values) {
  const size_t size = static_cast<size_t>(values.size());
  const size_t shown = size > kMaxListValues ? kShownOfLongList : size;
  std::ostringstream out;
  out << "[";
  for (size_t i = 0; i < shown; ++i) {
    out << (i > 0 ? ", " : "");
    WriteValue(out, values[static_cast<int>(i)]);
  }
  if (shown < size) out << ", ... (" << size << " values)";
  out << "]";
  return out.str();
}

template <typename T>
std::string ScalarText(const T& value) {
  std::ostringstream out;
  WriteValue(out, value);
  return out.str();
}

template <typename Dims>
std::string TensorText(int32_t dataType, const Dims& dims) {
  const char* name = tov::DataTypeName(dataType);
  return std::string(*name != '\0' ? name : "?") + ListText(dims);
}

std::string TextOf(const tesu::proto::AttrDef& attr) {
  using Attr = tesu::proto::AttrDef;
  switch (attr.value_case()) {
    case Attr::kS:
      return ScalarText(attr.s());
    case Attr::kI:
      return ScalarText(static_cast<int64_t>(attr.i()));
    case Attr::kF:
      return ScalarText(attr.f());
    case Attr::kB:
      return ScalarText(attr.b());
    case Attr::kList: {
      const tesu::proto::ListValue& list = attr.list();
      if (list.i_size() > 0) return ListText(list.i());
      if (list.f_size() > 0) return ListText(list.f());
      if (list.b_size() > 0) return ListText(list.b());
      return ListText(list.s());
    }
    case Attr::kT:
      return TensorText(attr.t().desc().dtype(), attr.t().desc().shape());
    case Attr::VALUE_NOT_SET:
      break;
  }
  return "";
}

std::string TextOf(const tov::AttrValue& value) {
  using Kind = tov::AttrValue::Kind;
  switch (value.GetKind()) {
    case Kind::kString:
      return ScalarText(*value.Get<std::string>());
    case Kind::kInt:
      return ScalarText(*value.Get<int64_t>());
    case Kind::kFloat:
      return ScalarText(*value.Get<float>());
    case Kind::kBool:
      return ScalarText(*value.Get<bool>());
    case Kind::kListString:
      return ListText(*value.Get<std::vector<std::string>>());
    case Kind::kListInt:
      return ListText(*value.Get<std::vector<int64_t>>());
    case Kind::kListFloat:
      return ListText(*value.Get<std::vector<float>>());
    case Kind::kListBool:
      return ListText(*value.Get<std::vector<bool>>());
    case Kind::kTensor: {
      const tov::TensorPtr& tensor = *value.Get<tov::TensorPtr>();
      if (tensor == nullptr) return "";
      const tov::TensorDesc& desc = tensor->GetTensorDesc();
      return TensorText(desc.GetDataType(), desc.GetShape().GetDims());
    }
    case Kind::kNone:
      break;
  }
  return "";
}

std::string InputText(const std::string& producer, int index) {
  return producer + ":" + std::to_string(index);
}

}  // namespace

const ViewNode* GraphView::Find(const std::string& name) const {
  const auto found = index.find(name);
  return found == index.end() ? nullptr : &nodes[found->second];
}

void GraphView::IndexNames() {
  index.clear();
  index.reserve(nodes.size());
  for (size_t i = 0; i < nodes.size(); ++i) index.emplace(nodes[i].name, i);
}

std::string ProducerOf(const std::string& input) {
  return input.substr(0, input.rfind(':'));
}

bool IsControlInput(const std::string& input) {
  const size_t colon = input.rfind(':');
  return colon != std::string::npos && input.compare(colon, std::string::npos, ":-1") == 0;
}

GraphView ViewOf(const tesu::proto::GraphDef& graph) {
  GraphView view;
  view.nodes.reserve(static_cast<size_t>(graph.op_size()));
  for (const tesu::proto::OpDef& op : graph.op()) {
    ViewNode node{op.name(), op.type(), {}, {}};
    node.attrs.reserve(op.attr_size());
    for (const auto& [name, value] : op.attr()) node.attrs.emplace_back(name, TextOf(value));
    std::sort(node.attrs.begin(), node.attrs.end());
    node.inputs.reserve(static_cast<size_t>(op.input_size()));
    for (const std::string& input : op.input()) {
      // The file may leave out ":0"; the view always writes the index, as the compute graph
      // does, so that inputs compare equal.
      const bool indexed = input.empty() || input.find(':') != std::string::npos;
      node.inputs.push_back(indexed ? input : InputText(input, 0));
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
    const auto& attrs = source.GetOpDesc()->GetAllAttrs();  // already sorted by name
    node.attrs.reserve(attrs.size());
    for (const auto& [name, value] : attrs) node.attrs.emplace_back(name, TextOf(value));
    for (const auto& anchor : source.InAnchors()) {
      const tov::OutDataAnchor* peer = anchor->GetPeerOutAnchorRaw();
      node.inputs.push_back(peer == nullptr
                                ? std::string()
                                : InputText(peer->GetOwnerNodeRaw()->GetName(), peer->GetIdx()));
    }
    // The file lists no input after its last connected one.
    while (!node.inputs.empty() && node.inputs.back().empty()) node.inputs.pop_back();
    for (const tov::Node* control : source.RoleNodeWalker().InControlNodes()) {
      node.inputs.push_back(InputText(control->GetName(), -1));
    }
    view.nodes.push_back(std::move(node));
  });
  view.IndexNames();
  return view;
}

}  // namespace report
}  // namespace cli
}  // namespace tesu
