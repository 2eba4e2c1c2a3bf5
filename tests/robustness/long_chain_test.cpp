// A model as deep as a model gets: a million operators in one chain (fewer in unoptimised and
// sanitizer builds, see CMakeLists.txt). Every step of the parse (loading, the cycle check, the
// walks, the converters, releasing the graph) must be iterative; a recursive one overflows the
// stack long before the end of the chain.
#include <cstddef>
#include <string>

#include <gtest/gtest.h>

#include "model_builder.h"
#include "parse.h"

#ifndef TESU_LONG_CHAIN_NODES
#define TESU_LONG_CHAIN_NODES 1000000
#endif

namespace {

TEST(LongChain, ReluChainOfAMillionParses) {
  constexpr size_t kRelus = TESU_LONG_CHAIN_NODES;
  testkit::ModelBuilder model;
  model.Data("x", {1});
  std::string previous = "x";
  for (size_t i = 0; i < kRelus; ++i) {
    std::string name = "r" + std::to_string(i);
    model.Op(name, "Relu").Input(previous).Output({1});
    previous = std::move(name);
  }
  const std::string bytes = model.Bytes();
  model = testkit::ModelBuilder();  // the message is not needed during the parse

  const auto outcome = testkit::ParseBytes(bytes);
  ASSERT_EQ(outcome.status, 0u);
  const auto graph = outcome.graph;
  ASSERT_NE(graph, nullptr);
  EXPECT_EQ(graph->GetNodesSize(), kRelus + 1);
  EXPECT_EQ(testkit::CountByType(*graph, "Activation"), kRelus);
  // Only the end of the chain is a graph output.
  EXPECT_NE(testkit::IntAttr(*graph, previous, "inferred_format"), -1);
  EXPECT_EQ(testkit::IntAttr(*graph, "r0", "inferred_format"), -1);
}

}  // namespace
