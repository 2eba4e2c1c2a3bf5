// One way to build a test model: a fluent builder over the model file format, so a test reads
// like the graph it builds, plus small helpers to inspect a graph afterwards. The lookups throw
// when the node is missing, which fails the test that asked.
#ifndef TESU_TESTS_SUPPORT_MODEL_BUILDER_H
#define TESU_TESTS_SUPPORT_MODEL_BUILDER_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "graph/compute_graph.h"
#include "graph/model.h"
#include "graph/proto/model.pb.h"
#include "modelkit/model_builder.h"

namespace testkit {

using modelkit::ModelBuilder;
using modelkit::OpBuilder;
using Ints = std::vector<int64_t>;
using Names = std::vector<std::string>;

// The model's graph; throws when the model is refused.
std::shared_ptr<tov::ComputeGraph> Load(const ModelBuilder& model);
// n0 -> n1 -> ... -> n(length-1): a Data node followed by a chain of Relu nodes, as a model and
// as a loaded graph.
ModelBuilder ReluChainModel(size_t length);
std::shared_ptr<tov::ComputeGraph> ReluChain(size_t length);

// Inspection helpers.
size_t CountByType(const tov::ComputeGraph& graph, const std::string& type);
tov::Node& NodeOf(const tov::ComputeGraph& graph, const std::string& name);
tov::OpDesc& Desc(const tov::ComputeGraph& graph, const std::string& name);
// An integer attribute of the node, or -1 when absent.
int64_t IntAttr(const tov::ComputeGraph& graph, const std::string& node, const std::string& attr);
// The attribute's value when it exists with kind T.
template <typename T>
std::optional<T> AttrOf(const tov::ComputeGraph& graph, const std::string& name,
                        const std::string& attr) {
  const tov::AttrValue* value = Desc(graph, name).FindAttr(attr);
  if constexpr (std::is_same_v<T, Ints>) {  // held as an inline integer list
    const auto* held = value == nullptr ? nullptr : value->Get<tov::AttrValue::IntList>();
    return held == nullptr ? std::nullopt : std::optional<T>(held->ToVector());
  } else {
    const T* held = value == nullptr ? nullptr : value->Get<T>();
    return held == nullptr ? std::nullopt : std::optional<T>(*held);
  }
}
std::vector<tov::TensorPtr> WeightsOf(const tov::ComputeGraph& graph, const std::string& name);
std::vector<std::string> NodeNames(const tov::ComputeGraph& graph);
// Producer names of the node's data inputs, "" for an unconnected input.
std::vector<std::string> ProducersOf(const tov::Node& node);
// Consumer names of the node's output `index`, in edge order.
std::vector<std::string> ConsumersOf(const tov::Node& node, int index = 0);
// The bytes of a tensor as 32-bit integers.
std::vector<int32_t> Int32Data(const tov::Tensor& tensor);
// Every attribute of the node in name order, "name=value" separated by spaces: strings bare,
// lists as [a,b], tensors as "tensor". A test compares the whole set in one line.
std::string AttrsText(const tov::OpDesc& desc);

}  // namespace testkit

#endif
