#include "model_builder.h"

#include <cstring>

#include <gtest/gtest.h>

namespace testkit {

using tesu::proto::AttrDef;

OpBuilder& OpBuilder::Input(const std::string& producer) {
  op_->add_input(producer.find(':') == std::string::npos ? producer + ":0" : producer);
  return *this;
}

OpBuilder& OpBuilder::Control(const std::string& producer) {
  op_->add_input(producer + ":-1");
  return *this;
}

static void FillDesc(tesu::proto::TensorDescriptor* desc, const std::vector<int64_t>& shape,
                     int32_t dtype, int32_t format) {
  desc->set_dtype(dtype);
  desc->set_format(format);
  for (int64_t dim : shape) desc->add_shape(dim);
}

OpBuilder& OpBuilder::Output(std::vector<int64_t> shape, int32_t dtype, int32_t format) {
  FillDesc(op_->add_output_desc(), shape, dtype, format);
  return *this;
}

OpBuilder& OpBuilder::InputDesc(std::vector<int64_t> shape, int32_t dtype, int32_t format) {
  FillDesc(op_->add_input_desc(), shape, dtype, format);
  return *this;
}

OpBuilder& OpBuilder::InputConst(std::vector<bool> flags) {
  op_->clear_is_input_const();
  for (bool flag : flags) op_->add_is_input_const(flag);
  return *this;
}

OpBuilder& OpBuilder::Attr(const std::string& name, int64_t value) {
  (*op_->mutable_attr())[name].set_i(value);
  return *this;
}
OpBuilder& OpBuilder::Attr(const std::string& name, float value) {
  (*op_->mutable_attr())[name].set_f(value);
  return *this;
}
OpBuilder& OpBuilder::Attr(const std::string& name, bool value) {
  (*op_->mutable_attr())[name].set_b(value);
  return *this;
}
OpBuilder& OpBuilder::Attr(const std::string& name, const char* value) {
  return Attr(name, std::string(value));
}
OpBuilder& OpBuilder::Attr(const std::string& name, const std::string& value) {
  (*op_->mutable_attr())[name].set_s(value);
  return *this;
}
OpBuilder& OpBuilder::Attr(const std::string& name, std::vector<int64_t> values) {
  auto* list = (*op_->mutable_attr())[name].mutable_list();
  for (int64_t value : values) list->add_i(value);
  return *this;
}
OpBuilder& OpBuilder::Attr(const std::string& name, std::vector<float> values) {
  auto* list = (*op_->mutable_attr())[name].mutable_list();
  for (float value : values) list->add_f(value);
  return *this;
}
OpBuilder& OpBuilder::Attr(const std::string& name, std::vector<std::string> values) {
  auto* list = (*op_->mutable_attr())[name].mutable_list();
  for (const auto& value : values) list->add_s(value);
  return *this;
}
OpBuilder& OpBuilder::EmptyListAttr(const std::string& name) {
  (*op_->mutable_attr())[name].mutable_list();
  return *this;
}

ModelBuilder::ModelBuilder(const std::string& name) {
  model_.set_name(name);
  model_.add_graph()->set_name(name + "_graph");
}

OpBuilder ModelBuilder::Op(const std::string& name, const std::string& type) {
  tesu::proto::OpDef* op = graph().add_op();
  op->set_name(name);
  op->set_type(type);
  return OpBuilder(*this, *op);
}

OpBuilder ModelBuilder::Data(const std::string& name, std::vector<int64_t> shape, int32_t dtype) {
  return Op(name, "Data").InputDesc(shape, dtype).Output(shape, dtype);
}

template <typename T>
static OpBuilder MakeConst(ModelBuilder& model, const std::string& name,
                           const std::vector<T>& values, std::vector<int64_t> shape,
                           int32_t dtype) {
  if (shape.empty()) shape = {static_cast<int64_t>(values.size())};
  OpBuilder op = model.Op(name, "Const").Output(shape, dtype);
  tesu::proto::TensorDef* tensor = (*op.Def().mutable_attr())["value"].mutable_t();
  FillDesc(tensor->mutable_desc(), shape, dtype, 0);
  std::string bytes(values.size() * sizeof(T), '\0');
  if (!values.empty()) std::memcpy(&bytes[0], values.data(), bytes.size());
  tensor->set_data(bytes);
  return op;
}

OpBuilder ModelBuilder::ConstInt32(const std::string& name, std::vector<int32_t> values,
                                   std::vector<int64_t> shape) {
  return MakeConst(*this, name, values, std::move(shape), 3);
}
OpBuilder ModelBuilder::ConstFloat(const std::string& name, std::vector<float> values,
                                   std::vector<int64_t> shape) {
  return MakeConst(*this, name, values, std::move(shape), 0);
}
OpBuilder ModelBuilder::ConstInt64(const std::string& name, std::vector<int64_t> values,
                                   std::vector<int64_t> shape) {
  return MakeConst(*this, name, values, std::move(shape), 9);
}

OpBuilder ModelBuilder::Unary(const std::string& name, const std::string& type,
                              const std::string& input, std::vector<int64_t> shape) {
  return Op(name, type).Input(input).InputDesc(shape).Output(shape);
}

std::string ModelBuilder::Bytes() const {
  std::string bytes;
  model_.SerializeToString(&bytes);
  return bytes;
}

std::shared_ptr<tov::ComputeGraph> ModelBuilder::LoadGraph() const {
  const std::string bytes = Bytes();
  tov::Model model;
  const tov::graphStatus status =
      model.Load(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  EXPECT_EQ(status, tov::GRAPH_SUCCESS) << "test model failed to load";
  return tov::GraphUtils::GetComputeGraph(model.GetGraph());
}

size_t CountByType(const tov::ComputeGraph& graph, const std::string& type) {
  size_t count = 0;
  graph.ForEachNode([&](tov::Node& node) { count += node.GetType() == type ? 1 : 0; });
  return count;
}

std::map<std::string, size_t> CountTypes(const tov::ComputeGraph& graph) {
  std::map<std::string, size_t> counts;
  graph.ForEachNode([&](tov::Node& node) { ++counts[node.GetType()]; });
  return counts;
}

tov::NodePtr NodeNamed(const tov::ComputeGraph& graph, const std::string& name) {
  return graph.FindNode(name);
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

}  // namespace testkit
