// Helpers shared by the converter tests: run a converter the way the node conversion pass does,
// and read what it left on a node.
#ifndef TESU_TESTS_CONVERTERS_CONVERTER_TEST_SUPPORT_H
#define TESU_TESTS_CONVERTERS_CONVERTER_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "graph/compute_graph.h"
#include "graph/op_desc_utils.h"
#include "log_capture.h"
#include "model_builder.h"
#include "orvane_util.h"

namespace convtest {

using Ints = std::vector<int64_t>;
constexpr uint32_t kNotRun = 0xFFFFFFFFu;

// The model's graph; an empty graph, and a test failure, when the model is refused.
inline std::shared_ptr<tov::ComputeGraph> Load(const testkit::ModelBuilder& model) {
  std::shared_ptr<tov::ComputeGraph> graph = model.LoadGraph();
  if (graph != nullptr) return graph;
  ADD_FAILURE() << "test model refused";
  return std::make_shared<tov::ComputeGraph>();
}

// Looks the node's current type up in the converter registry and runs that converter.
inline uint32_t Convert(tov::ComputeGraph& graph, const std::string& nodeName) {
  const tov::NodePtr node = testkit::NodeNamed(graph, nodeName);
  if (node == nullptr) {
    ADD_FAILURE() << "no node " << nodeName;
    return kNotRun;
  }
  const auto& registry = tesu::GetParserFuncMap();
  const auto entry = registry.find(node->ROLE(NodeSpec).Type());
  if (entry == registry.end()) {
    ADD_FAILURE() << "no converter for " << node->ROLE(NodeSpec).Type();
    return kNotRun;
  }
  return entry->second(*node, graph);
}

// The attribute's value when it exists with kind T.
template <typename T>
std::optional<T> AttrOf(const tov::ComputeGraph& graph, const std::string& nodeName,
                        const std::string& attr) {
  const tov::NodePtr node = testkit::NodeNamed(graph, nodeName);
  const tov::AttrValue* value = node == nullptr ? nullptr : node->GetOpDesc()->FindAttr(attr);
  const T* held = value == nullptr ? nullptr : value->Get<T>();
  return held == nullptr ? std::nullopt : std::optional<T>(*held);
}

inline std::string TypeOf(const tov::ComputeGraph& graph, const std::string& nodeName) {
  const tov::NodePtr node = testkit::NodeNamed(graph, nodeName);
  return node == nullptr ? "<missing>" : node->GetType();
}

inline std::vector<tov::TensorPtr> WeightsOf(const tov::ComputeGraph& graph,
                                             const std::string& nodeName) {
  const tov::NodePtr node = testkit::NodeNamed(graph, nodeName);
  return node == nullptr ? std::vector<tov::TensorPtr>{} : tov::OpDescUtils::MutableWeights(*node);
}

inline std::vector<bool> ConstFlagsOf(const tov::ComputeGraph& graph, const std::string& nodeName) {
  const tov::NodePtr node = testkit::NodeNamed(graph, nodeName);
  return node == nullptr ? std::vector<bool>{} : node->GetOpDesc()->GetIsInputConst();
}

// The one log line expected of a converter failure, as printed.
inline std::string Line(const std::string& function, int line, const std::string& message) {
  return "orvane_util " + function + "(" + std::to_string(line) + ")::" + message;
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
