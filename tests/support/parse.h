// Runs the Orvane parser, or one of its converters, on a model built with the test builder, the
// way a host (or the node conversion pass) does. Tests that include this link orvane_parser.
#ifndef TESU_TESTS_SUPPORT_PARSE_H
#define TESU_TESTS_SUPPORT_PARSE_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "graph/base_buffer.h"
#include "graph/compute_graph.h"
#include "graph/graph.h"
#include "log_capture.h"
#include "model_builder.h"
#include "orvane_parser.h"
#include "orvane_util.h"

namespace testkit {

struct ParseOutcome {
  tesu::Status status;
  std::shared_ptr<tov::ComputeGraph> graph;  // null unless the parse handed a graph back
};

inline ParseOutcome ParseBytes(const std::string& bytes, tesu::ParserOptions options = {}) {
  tesu::OrvaneModelParser parser;
  std::vector<tov::BaseBuffer> buffers{
      tov::BaseBuffer(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size())};
  tov::Graph graph;
  const tesu::Status status = parser.ParseFromMemory(options, buffers, graph);
  return {status, tov::GraphUtils::GetComputeGraph(graph)};
}

inline ParseOutcome Parse(const ModelBuilder& model, tesu::ParserOptions options = {}) {
  return ParseBytes(model.Bytes(), std::move(options));
}

// Looks the node's current type up in the converter registry and runs that converter.
inline uint32_t Convert(tov::ComputeGraph& graph, const std::string& name) {
  tov::Node& node = NodeOf(graph, name);
  return tesu::GetParserFuncMap().at(node.GetType())(node, graph);
}

// Converts node "n" and expects `status` with exactly one error line, of the converter source.
inline void ExpectConvertRefused(tov::ComputeGraph& graph, uint32_t status,
                                 const std::string& function, int line,
                                 const std::string& message) {
  LogCapture log;
  EXPECT_EQ(Convert(graph, "n"), status);
  ExpectOnlyLine(log, "AI_FMK", UtilLine(function, line, message));
}

}  // namespace testkit

#endif
