// Builds models in the model file format with a fluent API, so code that makes a model reads
// like the graph it makes. Used by the sample generator, the benchmarks and the tests.
#ifndef MODELKIT_MODEL_BUILDER_H
#define MODELKIT_MODEL_BUILDER_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "graph/compute_graph.h"
#include "graph/model.h"
#include "graph/proto/model.pb.h"

namespace modelkit {

class ModelBuilder;

// Adds attributes, inputs and outputs to one op of a ModelBuilder.
class OpBuilder {
 public:
  OpBuilder(ModelBuilder& model, tesu::proto::OpDef& op) : model_(&model), op_(&op) {}

  // "x" or "x:k" feeds the next data input from node x (output k, default 0).
  OpBuilder& Input(const std::string& producer);
  OpBuilder& Control(const std::string& producer);
  // Appends an output description (default FLOAT, NCHW, the given shape).
  OpBuilder& Output(std::vector<int64_t> shape = {1}, int32_t dtype = 0, int32_t format = 0);
  OpBuilder& InputDesc(std::vector<int64_t> shape, int32_t dtype = 0, int32_t format = 0);
  OpBuilder& InputConst(std::vector<bool> flags);

  OpBuilder& Attr(const std::string& name, int64_t value);
  OpBuilder& Attr(const std::string& name, int value) { return Attr(name, int64_t{value}); }
  OpBuilder& Attr(const std::string& name, float value);
  OpBuilder& Attr(const std::string& name, bool value);
  OpBuilder& Attr(const std::string& name, const char* value);
  OpBuilder& Attr(const std::string& name, const std::string& value);
  OpBuilder& Attr(const std::string& name, std::vector<int64_t> values);
  OpBuilder& Attr(const std::string& name, std::vector<float> values);
  OpBuilder& Attr(const std::string& name, std::vector<std::string> values);
  OpBuilder& EmptyListAttr(const std::string& name);

  tesu::proto::OpDef& Def() { return *op_; }
  // Continue with the model.
  ModelBuilder& Done() { return *model_; }

 private:
  ModelBuilder* model_;
  tesu::proto::OpDef* op_;
};

class ModelBuilder {
 public:
  explicit ModelBuilder(const std::string& name = "test_model");

  // A generic op; add inputs, attributes and outputs through the returned builder.
  OpBuilder Op(const std::string& name, const std::string& type);
  // A "Data" input: input description 0 and output description 0 with the shape and dtype.
  OpBuilder Data(const std::string& name, std::vector<int64_t> shape = {1, 3, 8, 8},
                 int32_t dtype = 0);
  // A "Const" holding a tensor with those values and shape (INT32, FLOAT or INT64).
  OpBuilder ConstInt32(const std::string& name, std::vector<int32_t> values,
                       std::vector<int64_t> shape = {});
  OpBuilder ConstFloat(const std::string& name, std::vector<float> values,
                       std::vector<int64_t> shape = {});
  OpBuilder ConstInt64(const std::string& name, std::vector<int64_t> values,
                       std::vector<int64_t> shape = {});
  // A one-input, one-output op fed by `input`.
  OpBuilder Unary(const std::string& name, const std::string& type, const std::string& input,
                  std::vector<int64_t> shape = {1, 3, 8, 8});

  tesu::proto::ModelDef& Def() { return model_; }
  const tesu::proto::ModelDef& Def() const { return model_; }
  std::string Bytes() const;
  // Loads the model through tov::Model::Load; null when it is refused.
  std::shared_ptr<tov::ComputeGraph> LoadGraph() const;

 private:
  tesu::proto::GraphDef& graph() { return *model_.mutable_graph(0); }
  tesu::proto::ModelDef model_;
};

}  // namespace modelkit

#endif
