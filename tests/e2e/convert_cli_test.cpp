// tesu-convert's options, failures and pictures, on models written by the test builder.
#include <filesystem>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "cli_run.h"
#include "graph/proto/model.pb.h"
#include "model_builder.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using namespace testkit;

using ConvertCliTest = CliTest;

ModelBuilder SupportedModel() {
  ModelBuilder model;
  model.Data("in");
  model.Unary("abs", "Abs", "in");
  model.Unary("exp", "Exp", "abs");
  return model;
}

TEST_F(ConvertCliTest, EveryFailureNamesItsCauseAndKeepsTheInput) {
  const std::string model = dir_.Write("model.pb", SupportedModel().Bytes());
  const std::string garbage = dir_.Write("garbage", std::string(64, '\xff'));
  fs::create_directory(Path("empty"));
  struct Case {
    std::vector<std::string> args;
    int exitCode;
    std::string message;
  };
  const std::string out = Path("o.pb");
  const Case cases[] = {
      {{"--model", model, "--output", out, "--plugin-dir", Path("empty"), "--framework", "6"},
       1,
       "no parser for framework 6"},
      {{"--model", model, "--output", out, "--plugin-dir", Path("empty")},
       1,
       "no plug-in in " + Path("empty") + " reads this host's model format"},
      // Another framework's model is its plug-in's to judge, so bytes that are no model of this
      // host's format still reach the parser lookup.
      {{"--model", garbage, "--output", out, "--framework", "7"}, 1, "no parser for framework 7"},
      {{"--model", model, "--output", model}, 2, "would overwrite the model"},
      {{"--model", model, "--output", out, "--input_shape", "a:b", "--plugin-dir", Path("absent")},
       2,
       "invalid --input_shape value \"a:b\": "},
      {{"--model", SamplePath("unsupported.pb"), "--output", out, "--check_report", Path("empty")},
       1,
       "check report written to " + Path("empty") +
           "/check_result.json; unsupported operator types: Gelu (2), LayerNorm (1), Softmax (1)"},
  };
  const std::string before = ReadFile(model);
  for (const Case& c : cases) {
    const auto r = Run(c.args);
    EXPECT_EQ(r.exitCode, c.exitCode) << c.message << ": " << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
  }
  EXPECT_EQ(ReadFile(model), before);
  EXPECT_EQ(Files(), (std::vector<std::string>{"empty", "garbage", "model.pb"}));
}

// The pictures show the graph before and after the conversion; the profile lists every step.
TEST_F(ConvertCliTest, PicturesAndProfileOfAConversion) {
  const std::string model = dir_.Write("model.pb", SupportedModel().Bytes());
  const auto r = Run({"--model", model, "--output", Path("out.pb"), "--dot", Path("after.dot"),
                      "--dot-source", Path("before.dot"), "--profile"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(ReadFile(Path("before.dot")).find("abs\\nAbs"), std::string::npos);
  EXPECT_NE(ReadFile(Path("after.dot")).find("abs\\nActivation"), std::string::npos);
  for (const char* step : {"profile (ms):", "read model", "load model", "support check",
                           "node conversion", "write picture", "write source picture", "total"}) {
    EXPECT_NE(r.out.find(step), std::string::npos) << step << "\n" << r.out;
  }
}

// Names that match nothing get one warning each and the conversion goes on; the JSON dump hands
// a readable file to the plug-in asked for, which judges it.
TEST_F(ConvertCliTest, UnmatchedNamesAreWarnedAboutAndTheJsonDumpIsThePluginsToJudge) {
  const std::string model = dir_.Write("model.pb", SupportedModel().Bytes());
  auto r = Run({"--model", model, "--output", Path("o.pb"), "--input_type", "ghost:FLOAT16",
                "--out_nodes", "exp:0,3;gone:0"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  for (const char* line :
       {"tesu-convert: warning: input type given for \"ghost\", which is not in the graph: it is "
        "not used\n",
        "tesu-convert: warning: output 3 of node \"exp\" is beyond its 1 output: it is not an "
        "output\n",
        "tesu-convert: warning: output node \"gone\" is not in the graph: it is not an output\n"}) {
    EXPECT_NE(r.err.find(line), std::string::npos) << r.err;
  }
  const std::string junk = dir_.Write("junk.bin", std::string(64, '\xff'));
  r = Run({"--to-json", "--model", junk, "--json", Path("junk.json")});
  EXPECT_EQ(r.exitCode, 1) << r.err;
  EXPECT_NE(r.err.find("\"ReadProtoFromBinaryFile(modelFile, &ModelProto)\" \"false, return "
                       "FAIL.\""),
            std::string::npos)
      << r.err;
  r = Run({"--to-json", "--framework", "7", "--plugin-dir", TESU_EXAMPLE_PLUGIN_DIR, "--model",
           TESU_EXAMPLES_DIR "/plugin/sample.chain", "--json", Path("chain.json")});
  EXPECT_EQ(r.exitCode, 1) << r.err;
  EXPECT_NE(r.err.find("a chain model has no JSON form"), std::string::npos) << r.err;
  EXPECT_EQ(Files(), (std::vector<std::string>{"junk.bin", "model.pb", "o.pb"}));
}

}  // namespace
