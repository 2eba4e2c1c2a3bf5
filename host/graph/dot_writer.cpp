#include "graph/dot_writer.h"

#include <sstream>
#include <unordered_map>

namespace tov {
namespace {

constexpr size_t kMaxListValues = 8;

std::string Escape(const std::string& text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (char c : text) {
    if (c == '"' || c == '\\') escaped += '\\';
    if (c == '\n') {
      escaped += "\\n";
      continue;
    }
    escaped += c;
  }
  return escaped;
}

template <typename List>
std::string JoinList(const List& values) {
  if (values.size() > kMaxListValues) return "[" + std::to_string(values.size()) + " values]";
  std::ostringstream out;
  out << "[";
  for (size_t i = 0; i < values.size(); ++i) out << (i > 0 ? ", " : "") << values[i];
  out << "]";
  return out.str();
}

// A short rendering of the value, or "" when it is not worth showing.
std::string Describe(const AttrValue& value) {
  using Kind = AttrValue::Kind;
  switch (value.GetKind()) {
    case Kind::kString:
      return "\"" + *value.Get<std::string>() + "\"";
    case Kind::kInt:
      return std::to_string(*value.Get<int64_t>());
    case Kind::kFloat: {
      std::ostringstream out;
      out << *value.Get<float>();
      return out.str();
    }
    case Kind::kBool:
      return *value.Get<bool>() ? "true" : "false";
    case Kind::kListInt:
      return JoinList(*value.Get<AttrValue::IntList>());
    case Kind::kListFloat:
      return JoinList(*value.Get<std::vector<float>>());
    case Kind::kListBool:
      return JoinList(*value.Get<std::vector<bool>>());
    case Kind::kListString:
      return JoinList(*value.Get<std::vector<std::string>>());
    case Kind::kTensor: {
      const TensorPtr& tensor = *value.Get<TensorPtr>();
      if (tensor == nullptr) return "";
      return std::string(DataTypeName(tensor->GetTensorDesc().GetDataType())) +
             JoinList(tensor->GetTensorDesc().GetShape().GetDims());
    }
    case Kind::kNone:
      break;
  }
  return "";
}

std::string Label(const Node& node) {
  std::string label = Escape(node.GetName()) + "\\n" + Escape(node.GetType());
  for (const auto& [name, value] : node.GetOpDesc()->GetAllAttrs()) {
    if (name.empty() || name[0] == '_') continue;  // bookkeeping
    const std::string text = Describe(value);
    if (!text.empty()) label += "\\n" + Escape(name) + " = " + Escape(text);
  }
  return label;
}

}  // namespace

std::string ToDot(const ComputeGraph& graph) {
  std::unordered_map<const Node*, size_t> ids;
  ids.reserve(graph.GetNodesSize());
  std::ostringstream out;
  out << "digraph \"" << Escape(graph.GetName()) << "\" {\n"
      << "  rankdir=TB;\n  node [shape=box, fontname=\"Helvetica\", fontsize=10];\n";
  graph.ForEachNode([&](Node& node) {
    const size_t id = ids.size();
    ids.emplace(&node, id);
    out << "  n" << id << " [label=\"" << Label(node) << "\"";
    if (node.GetType() == "Const") out << ", style=filled, fillcolor=\"#eeeeee\", fontsize=8";
    out << "];\n";
  });
  graph.ForEachNode([&](Node& node) {
    for (const auto& anchor : node.OutAnchors()) {
      for (const InDataAnchor* peer : anchor->GetPeersRaw()) {
        out << "  n" << ids.at(&node) << " -> n" << ids.at(peer->GetOwnerNodeRaw());
        if (anchor->GetIdx() != 0 || peer->GetIdx() != 0) {
          out << " [label=\"" << anchor->GetIdx() << ":" << peer->GetIdx() << "\"]";
        }
        out << ";\n";
      }
    }
    for (const Node* successor : node.RoleNodeWalker().OutControlNodes()) {
      out << "  n" << ids.at(&node) << " -> n" << ids.at(successor) << " [style=dashed];\n";
    }
  });
  out << "}\n";
  return out.str();
}

}  // namespace tov
