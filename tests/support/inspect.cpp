#include <cstring>
#include <sstream>
#include <stdexcept>
#include <type_traits>

#include "graph/attr_utils.h"
#include "graph/op_desc_utils.h"
#include "model_builder.h"

namespace testkit {

size_t CountByType(const tov::ComputeGraph& graph, const std::string& type) {
  size_t count = 0;
  graph.ForEachNode([&](tov::Node& node) { count += node.GetType() == type ? 1 : 0; });
  return count;
}

tov::Node& NodeOf(const tov::ComputeGraph& graph, const std::string& name) {
  const tov::NodePtr node = graph.FindNode(name);
  if (node == nullptr) throw std::runtime_error("no node " + name);
  return *node;
}

tov::OpDesc& Desc(const tov::ComputeGraph& graph, const std::string& name) {
  return *NodeOf(graph, name).GetOpDesc();
}

int64_t IntAttr(const tov::ComputeGraph& graph, const std::string& node, const std::string& attr) {
  int64_t value = -1;
  (void)tov::AttrUtils::GetInt(Desc(graph, node), attr, value);
  return value;
}

std::vector<tov::TensorPtr> WeightsOf(const tov::ComputeGraph& graph, const std::string& name) {
  return tov::OpDescUtils::MutableWeights(NodeOf(graph, name));
}

std::vector<std::string> NodeNames(const tov::ComputeGraph& graph) {
  std::vector<std::string> names;
  graph.ForEachNode([&](tov::Node& node) { names.push_back(node.GetName()); });
  return names;
}

std::vector<std::string> ProducersOf(const tov::Node& node) {
  std::vector<std::string> names;
  for (const auto& anchor : node.InAnchors()) {
    const tov::OutDataAnchor* peer = anchor->GetPeerOutAnchorRaw();
    names.push_back(peer == nullptr ? "" : peer->GetOwnerNodeRaw()->GetName());
  }
  return names;
}

std::vector<std::string> ConsumersOf(const tov::Node& node, int index) {
  std::vector<std::string> names;
  tov::OutDataAnchorPtr anchor = node.GetOutDataAnchor(index);
  if (anchor == nullptr) return names;
  for (const tov::InDataAnchor* peer : anchor->GetPeersRaw()) {
    names.push_back(peer->GetOwnerNodeRaw()->GetName());
  }
  return names;
}

std::vector<int32_t> Int32Data(const tov::Tensor& tensor) {
  const tov::Buffer& buffer = tensor.GetData();
  std::vector<int32_t> values(buffer.GetSize() / sizeof(int32_t));
  if (!values.empty())
    std::memcpy(values.data(), buffer.GetData(), values.size() * sizeof(int32_t));
  return values;
}

namespace {

template <typename T>
void WriteValue(std::ostream& out, const T& value) {
  out << value;
}
void WriteValue(std::ostream& out, bool value) {
  out << (value ? "true" : "false");
}
// Integer lists are held in their own inline list type; every other list in a vector.
template <typename T>
using HeldList =
    std::conditional_t<std::is_same_v<T, int64_t>, tov::AttrValue::IntList, std::vector<T>>;

template <typename T>
bool WriteList(std::ostream& out, const tov::AttrValue& value) {
  const HeldList<T>* list = value.Get<HeldList<T>>();
  if (list == nullptr) return false;
  out << "[";
  for (size_t i = 0; i < list->size(); ++i) {
    if (i > 0) out << ",";
    WriteValue(out, static_cast<T>((*list)[i]));
  }
  out << "]";
  return true;
}
template <typename T>
bool WriteScalar(std::ostream& out, const tov::AttrValue& value) {
  const T* held = value.Get<T>();
  if (held != nullptr) WriteValue(out, *held);
  return held != nullptr;
}

}  // namespace

std::string AttrsText(const tov::OpDesc& desc) {
  std::ostringstream out;
  for (const auto& [name, value] : desc.GetAllAttrs()) {
    out << (out.tellp() > 0 ? " " : "") << name << "=";
    if (!(WriteScalar<int64_t>(out, value) || WriteScalar<float>(out, value) ||
          WriteScalar<bool>(out, value) || WriteScalar<std::string>(out, value) ||
          WriteList<int64_t>(out, value) || WriteList<float>(out, value) ||
          WriteList<bool>(out, value) || WriteList<std::string>(out, value))) {
      out << (value.Get<tov::TensorPtr>() != nullptr ? "tensor" : "none");
    }
  }
  return out.str();
}

std::shared_ptr<tov::ComputeGraph> Load(const ModelBuilder& model) {
  std::shared_ptr<tov::ComputeGraph> graph = model.LoadGraph();
  if (graph == nullptr) throw std::runtime_error("test model refused");
  return graph;
}

ModelBuilder ReluChainModel(size_t length) {
  ModelBuilder model;
  model.Data("n0");
  for (size_t i = 1; i < length; ++i) {
    model.Unary("n" + std::to_string(i), "Relu", "n" + std::to_string(i - 1));
  }
  return model;
}

std::shared_ptr<tov::ComputeGraph> ReluChain(size_t length) {
  return ReluChainModel(length).LoadGraph();
}

}  // namespace testkit
