#include "modelkit/model_builder.h"

#include <cstring>

namespace modelkit {

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
  list->Clear();
  for (int64_t value : values) list->add_i(value);
  return *this;
}
OpBuilder& OpBuilder::Attr(const std::string& name, std::vector<float> values) {
  auto* list = (*op_->mutable_attr())[name].mutable_list();
  list->Clear();
  for (float value : values) list->add_f(value);
  return *this;
}
OpBuilder& OpBuilder::Attr(const std::string& name, std::vector<std::string> values) {
  auto* list = (*op_->mutable_attr())[name].mutable_list();
  list->Clear();
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
  if (model.Load(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()) !=
      tov::GRAPH_SUCCESS) {
    return nullptr;
  }
  return tov::GraphUtils::GetComputeGraph(model.GetGraph());
}

}  // namespace modelkit
