// Runs the Orvane parser on a model built with the test builder, the way a host does.
#ifndef TESU_TESTS_PARSER_PARSE_HELPER_H
#define TESU_TESTS_PARSER_PARSE_HELPER_H

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "graph/attr_utils.h"
#include "graph/base_buffer.h"
#include "graph/compute_graph.h"
#include "graph/graph.h"
#include "log_capture.h"
#include "model_builder.h"
#include "orvane_parser.h"

namespace parsertest {

struct ParseOutcome {
  tesu::Status status;
  std::shared_ptr<tov::ComputeGraph> graph;  // null unless the parse succeeded
};

inline ParseOutcome ParseBytes(const std::string& bytes, tesu::ParserOptions options = {}) {
  tesu::OrvaneModelParser parser;
  std::vector<tov::BaseBuffer> buffers{
      tov::BaseBuffer(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size())};
  tov::Graph graph;
  const tesu::Status status = parser.ParseFromMemory(options, buffers, graph);
  return {status, tov::GraphUtils::GetComputeGraph(graph)};
}

inline ParseOutcome Parse(const testkit::ModelBuilder& model, tesu::ParserOptions options = {}) {
  return ParseBytes(model.Bytes(), std::move(options));
}

// The node's op description; fails the test when the node is missing.
inline tov::OpDesc& Desc(const tov::ComputeGraph& graph, const std::string& name) {
  tov::NodePtr node = testkit::NodeNamed(graph, name);
  if (node == nullptr) throw std::runtime_error("no node " + name);
  return *node->GetOpDesc();
}

// An integer attribute, or -1 when absent.
inline int64_t IntAttr(const tov::ComputeGraph& graph, const std::string& node,
                       const std::string& attr) {
  int64_t value = -1;
  (void)tov::AttrUtils::GetInt(Desc(graph, node), attr, value);
  return value;
}

// The lines this plug-in's parser source wrote, leaving out the host's own.
inline std::vector<testkit::LogLine> ParserLines(const testkit::LogCapture& logs) {
  std::vector<testkit::LogLine> lines;
  for (const auto& line : logs.Lines()) {
    if (line.text.rfind("orvane_parser ", 0) == 0) lines.push_back(line);
  }
  return lines;
}

// The exact text a parser log line carries.
inline std::string LogText(const std::string& function, int line, const std::string& message) {
  return "orvane_parser " + function + "(" + std::to_string(line) + ")::" + message;
}

// Exactly one line was logged: an error under `module` with that text.
inline void ExpectOnlyLine(const testkit::LogCapture& logs, const std::string& module,
                           const std::string& text) {
  ASSERT_EQ(logs.Lines().size(), 1u) << ::testing::PrintToString(logs.Texts());
  EXPECT_EQ(logs.Lines()[0].level, AI_LOG_ERROR);
  EXPECT_EQ(logs.Lines()[0].module, module);
  EXPECT_EQ(logs.Lines()[0].text, text);
}

}  // namespace parsertest

#endif
