// Runs a whole parse on raw bytes the way a host does, keeping the caller's graph handle so a
// test can see whether a failed parse touched it.
#ifndef TESU_TESTS_ROBUSTNESS_PARSE_OUTCOME_H
#define TESU_TESTS_ROBUSTNESS_PARSE_OUTCOME_H

#include <cstdint>
#include <string>
#include <vector>

#include "graph/base_buffer.h"
#include "graph/graph.h"
#include "orvane_parser.h"

namespace robustness {

struct ParseOutcome {
  tesu::Status status;
  tov::Graph graph;  // starts invalid; valid only when the parse handed a graph back
};

inline ParseOutcome ParseBytes(const std::string& bytes) {
  tesu::OrvaneModelParser parser;
  tesu::ParserOptions options;
  std::vector<tov::BaseBuffer> buffers{
      tov::BaseBuffer(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size())};
  ParseOutcome outcome{0, tov::Graph()};
  outcome.status = parser.ParseFromMemory(options, buffers, outcome.graph);
  return outcome;
}

}  // namespace robustness

#endif
