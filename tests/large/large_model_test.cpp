// Weight-heavy models converted by tesu-convert: one past 2 GiB in a single file, and one with
// its weights in a side file. Each weight is zero but for distinct marker bytes at both ends,
// which the converted model must hold at the same places.
#include <filesystem>
#include <set>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "cli_run.h"
#include "graph/attr_utils.h"
#include "graph/compute_graph.h"
#include "graph/graph.h"
#include "graph/model.h"
#include "graph/node.h"
#include "sparse_model.h"

namespace {

using Ends = std::pair<std::string, std::string>;

std::string Text(const bench::Marker& marker) {
  return std::string(marker.begin(), marker.end());
}

// The first and last marker bytes of every Const tensor of `size` bytes in the model file.
std::multiset<Ends> WeightEnds(const std::string& path, uint64_t size) {
  std::multiset<Ends> ends;
  tov::Model model;
  EXPECT_EQ(model.LoadFile(path), tov::GRAPH_SUCCESS);
  const auto graph = tov::GraphUtils::GetComputeGraph(model.GetGraph());
  if (graph == nullptr) return ends;
  for (const auto& node : graph->GetDirectNode()) {
    tov::TensorPtr tensor;
    if (!tov::AttrUtils::GetTensor(node->GetOpDesc(), "value", tensor)) continue;
    const std::string_view bytes = tensor->GetData().View();
    if (bytes.size() != size) continue;
    ends.emplace(std::string(bytes.substr(0, bench::kMarkerBytes)),
                 std::string(bytes.substr(bytes.size() - bench::kMarkerBytes)));
  }
  return ends;
}

std::multiset<Ends> ExpectedEnds(size_t weights) {
  std::multiset<Ends> ends;
  for (size_t i = 0; i < weights; ++i) {
    ends.emplace(Text(bench::WeightMarker(i, false)), Text(bench::WeightMarker(i, true)));
  }
  return ends;
}

struct LargeCase {
  const char* name;
  size_t weights;
  int64_t side;          // each weight is side x side floats
  const char* sideFile;  // empty: every weight inline
};

class LargeModelTest : public testkit::CliTest, public ::testing::WithParamInterface<LargeCase> {};

TEST_P(LargeModelTest, ConvertsKeepingEveryWeightsBytes) {
  const LargeCase& c = GetParam();
  const std::string model = Path("model.pb");
  std::string error;
  ASSERT_TRUE(bench::WriteSparseModel(model, c.weights, c.side, c.sideFile, error)) << error;
  const auto r = Run({"--model", model, "--output", Path("out.pb")});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const uint64_t weightBytes = static_cast<uint64_t>(c.side) * static_cast<uint64_t>(c.side) * 4;
  EXPECT_EQ(WeightEnds(Path("out.pb"), weightBytes), ExpectedEnds(c.weights));
  std::filesystem::remove(Path("out.pb"));
}

std::string CaseName(const ::testing::TestParamInfo<LargeCase>& param) {
  return param.param.name;
}

INSTANTIATE_TEST_SUITE_P(Weights, LargeModelTest,
                         ::testing::Values(
                             // 29 weights of 75 MB: 2.17 GB, past protobuf's 2 GiB.
                             LargeCase{"PastTwoGiB", 29, 4330, ""},
                             LargeCase{"SideFile", 3, 1024, "weights.bin"}),
                         CaseName);

}  // namespace
