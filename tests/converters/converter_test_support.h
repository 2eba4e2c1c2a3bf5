// Helpers shared by the converter tests: run a converter the way the node conversion pass does,
// and read what it left on a node.
#ifndef TESU_TESTS_CONVERTERS_CONVERTER_TEST_SUPPORT_H
#define TESU_TESTS_CONVERTERS_CONVERTER_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "graph/compute_graph.h"
#include "graph/op_desc_utils.h"
#include "log_capture.h"
#include "model_builder.h"
#include "orvane_util.h"

namespace convtest {

using Ints = std::vector<int64_t>;
using Names = std::vector<std::string>;

// The model's graph; the test stops when the model is refused.
inline std::shared_ptr<tov::ComputeGraph> Load(const testkit::ModelBuilder& model) {
  std::shared_ptr<tov::ComputeGraph> graph = model.LoadGraph();
  if (graph == nullptr) throw std::runtime_error("test model refused");
  return graph;
}

inline tov::Node& NodeOf(const tov::ComputeGraph& graph, const std::string& name) {
  const tov::NodePtr node = graph.FindNode(name);
  if (node == nullptr) throw std::runtime_error("no node " + name);
  return *node;
}

inline tov::OpDesc& Desc(const tov::ComputeGraph& graph, const std::string& name) {
  return *NodeOf(graph, name).GetOpDesc();
}

// Looks the node's current type up in the converter registry and runs that converter.
inline uint32_t Convert(tov::ComputeGraph& graph, const std::string& name) {
  tov::Node& node = NodeOf(graph, name);
  return tesu::GetParserFuncMap().at(node.GetType())(node, graph);
}

// The attribute's value when it exists with kind T.
template <typename T>
std::optional<T> AttrOf(const tov::ComputeGraph& graph, const std::string& name,
                        const std::string& attr) {
  const tov::AttrValue* value = Desc(graph, name).FindAttr(attr);
  if constexpr (std::is_same_v<T, std::vector<int64_t>>) {  // held as an inline integer list
    const auto* held = value == nullptr ? nullptr : value->Get<tov::AttrValue::IntList>();
    return held == nullptr ? std::nullopt : std::optional<T>(held->ToVector());
  } else {
    const T* held = value == nullptr ? nullptr : value->Get<T>();
    return held == nullptr ? std::nullopt : std::optional<T>(*held);
  }
}

inline std::vector<tov::TensorPtr> WeightsOf(const tov::ComputeGraph& graph,
                                             const std::string& name) {
  return tov::OpDescUtils::MutableWeights(NodeOf(graph, name));
}

// The one log line of a converter failure, as printed.
inline std::string Line(const std::string& function, int line, const std::string& text) {
  return "orvane_util " + function + "(" + std::to_string(line) + ")::" + text;
}

inline std::string Quoted(const std::string& text) {
  return "\"" + text + "\"";
}

// Exactly one line was logged, at level 3 under "AI_FMK", with that text.
inline void ExpectSingleLine(const testkit::LogCapture& log, const std::string& text) {
  ASSERT_EQ(log.Lines().size(), 1u) << ::testing::PrintToString(log.Texts());
  EXPECT_EQ(log.Lines()[0].level, 3);
  EXPECT_EQ(log.Lines()[0].module, "AI_FMK");
  EXPECT_EQ(log.Lines()[0].text, text);
}

}  // namespace convtest

#endif
