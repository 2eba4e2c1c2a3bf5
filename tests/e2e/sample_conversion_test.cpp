// The bundled sample models through the command line, compared with the checked-in golden
// conversions where there is one.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "cli_run.h"
#include "model_builder.h"

namespace {

using nlohmann::json;
using namespace testkit;

// Compares values, so key order and indentation do not matter; names the first difference.
void ExpectMatchesGolden(const json& actual, const std::string& golden) {
  const json expected = json::parse(ReadFile(std::string(TESU_GOLDEN_DIR) + "/" + golden));
  if (actual == expected) return;
  const json first = json::diff(expected, actual).at(0);
  ADD_FAILURE() << "conversion differs from tests/e2e/golden/" << golden << ", first at "
                << first["path"].get<std::string>()
                << " (golden -> output: " << first["op"].get<std::string>()
                << "). If the change is intended, regenerate "
                << "the goldens with `bash scripts/update-goldens.sh BUILD_DIR` and review them.";
}

using SampleTest = CliTest;

TEST_F(SampleTest, EverySampleConvertsMatchesItsGoldenAndReloads) {
  // tiny.json led by blanks: a JSON model is told by its first non-blank character.
  WriteFile(Path("tiny.json"), "\n  " + ReadFile(TESU_EXAMPLES_DIR "/tiny.json"));
  struct Case {
    std::string model;
    std::string golden;
    std::string nodes;
  };
  const Case cases[] = {
      {SamplePath("mobile.pb"), "mobile.json", "nodes: 26 -> 29"},
      {SamplePath("mobile.json"), "mobile.json", "nodes: 26 -> 29"},
      {Path("tiny.json"), "tiny.json", "nodes: 3 -> 3"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.model);
    const auto r =
        Run({"--model", c.model, "--output", Path("out.pb"), "--json", Path("out.json")});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find(c.nodes), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("wrote model: " + Path("out.pb")), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("wrote json: " + Path("out.json")), std::string::npos) << r.out;
    EXPECT_EQ(Files(), (std::vector<std::string>{"out.json", "out.pb", "tiny.json"}));
    const json converted = json::parse(ReadFile(Path("out.json")));
    ExpectMatchesGolden(converted, c.golden);
    // The binary output loads again and holds what the JSON output shows.
    const auto reload = Run({"--to-json", "--model", Path("out.pb"), "--json", Path("out.json")});
    ASSERT_EQ(reload.exitCode, 0) << reload.err;
    EXPECT_EQ(json::parse(ReadFile(Path("out.json"))), converted);
  }
}

}  // namespace
