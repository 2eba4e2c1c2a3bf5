// tesu-convert run as a process on models written by the test builder, with the plug-in that
// the build puts next to it.
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <google/protobuf/util/json_util.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "framework/test_files.h"
#include "graph/proto/model.pb.h"
#include "model_builder.h"

namespace {

namespace fs = std::filesystem;
using frameworktest::HasKeyAnywhere;
using frameworktest::ReadFile;
using frameworktest::WriteFile;
using nlohmann::json;

std::string ShellQuote(const std::string& arg) {
  std::string quoted = "'";
  for (char c : arg) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

struct Result {
  int exitCode = -1;
  std::string out;
  std::string err;
};

class ConvertCliTest : public ::testing::Test {
 protected:
  std::string Path(const std::string& name) const { return dir_.Path(name); }

  // Runs the tool in the test directory, so its default report lands there, with
  // TESU_PLUGIN_DIR set to `pluginEnv` or unset.
  Result Run(const std::vector<std::string>& args, const std::string& pluginEnv = "") const {
    std::string command = "cd " + ShellQuote(dir_.Path()) + " && ";
    command += pluginEnv.empty() ? "unset TESU_PLUGIN_DIR; "
                                 : "export TESU_PLUGIN_DIR=" + ShellQuote(pluginEnv) + "; ";
    command += ShellQuote(TESU_CONVERT_PATH);
    for (const std::string& arg : args) command += " " + ShellQuote(arg);
    command += " >" + ShellQuote(Path("stdout.txt")) + " 2>" + ShellQuote(Path("stderr.txt"));
    const int raw = std::system(command.c_str());
    Result result;
    result.exitCode = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    result.out = ReadFile(Path("stdout.txt"));
    result.err = ReadFile(Path("stderr.txt"));
    fs::remove(Path("stdout.txt"));
    fs::remove(Path("stderr.txt"));
    return result;
  }

  std::string WriteModel(const testkit::ModelBuilder& model, const std::string& name = "model.pb") {
    WriteFile(Path(name), model.Bytes());
    return Path(name);
  }

  // Every file the runs left in the test directory.
  std::vector<std::string> Files() const { return dir_.Entries(); }

  frameworktest::TempDir dir_;
};

tesu::proto::ModelDef ReadModel(const std::string& path) {
  tesu::proto::ModelDef model;
  EXPECT_TRUE(model.ParseFromString(ReadFile(path))) << path;
  return model;
}

testkit::ModelBuilder SupportedModel() {
  testkit::ModelBuilder model;
  model.Data("in");
  model.Unary("abs", "Abs", "in");
  model.Unary("exp", "Exp", "abs");
  return model;
}

// The model is given in its JSON form, with blanks before the '{'.
TEST_F(ConvertCliTest, ConvertsAJsonModelAndWritesModelAndJsonWithASummary) {
  std::string text;
  ASSERT_TRUE(google::protobuf::util::MessageToJsonString(SupportedModel().Def(), &text).ok());
  WriteFile(Path("model.json"), "\n  " + text);
  const Result r =
      Run({"--model", Path("model.json"), "--output", Path("out.pb"), "--json", Path("out.json")});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const tesu::proto::ModelDef converted = ReadModel(Path("out.pb"));
  ASSERT_EQ(converted.graph(0).op_size(), 3);
  EXPECT_EQ(converted.graph(0).op(1).type(), "Activation");
  EXPECT_EQ(json::parse(ReadFile(Path("out.json")))["graph"][0]["op"][1]["type"], "Activation");
  EXPECT_NE(r.out.find("nodes: 3 -> 3"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("wrote model: " + Path("out.pb")), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("wrote json: " + Path("out.json")), std::string::npos) << r.out;
  EXPECT_EQ(Files(), (std::vector<std::string>{"model.json", "out.json", "out.pb"}));
}

TEST_F(ConvertCliTest, UnsupportedTypesFailWithTheReportAndNoOutput) {
  testkit::ModelBuilder builder;
  builder.Data("in");
  builder.Unary("w1", "Wibble", "in");
  builder.Unary("abs", "Abs", "w1");
  builder.Unary("f1", "Frob", "abs");
  builder.Unary("w2", "Wibble", "f1");
  const std::string model = WriteModel(builder);
  const std::string before = ReadFile(model);
  const Result r = Run({"--model", model, "--output", Path("out.pb"), "--json", Path("out.json")});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.err.find("tesu-convert: failed to convert " + model + ": status 1"),
            std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find("check report written to check_result.json; unsupported operator types: "
                       "Frob (1), Wibble (2)"),
            std::string::npos)
      << r.err;
  const json report = json::parse(ReadFile(Path("check_result.json")));
  EXPECT_EQ(report["summary"]["failed"], 3);
  EXPECT_EQ(report["ops"][1]["name"], "w1");
  EXPECT_EQ(Files(), (std::vector<std::string>{"check_result.json", "model.pb"}));
  EXPECT_EQ(ReadFile(model), before);
}

TEST_F(ConvertCliTest, ReportGoesIntoADirectoryOnRequest) {
  fs::create_directory(Path("reports"));
  const std::string model = WriteModel(SupportedModel());
  const Result r = Run({"--model", model, "--output", Path("out.pb"), "--check_report",
                        Path("reports"), "--save_check_report"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const json report = json::parse(ReadFile(Path("reports/check_result.json")));
  EXPECT_EQ(report["summary"]["passed"], 3);
  EXPECT_NE(r.out.find("wrote check report: " + Path("reports") + "/check_result.json"),
            std::string::npos)
      << r.out;
}

TEST_F(ConvertCliTest, ShapeAndOutputOptionsReachTheParser) {
  testkit::ModelBuilder builder;
  builder.Data("in", {});
  builder.Unary("exp", "Exp", "in");
  const std::string model = WriteModel(builder);

  const Result refused = Run({"--model", model, "--output", Path("out.pb")});
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_NE(refused.err.find("shape has no dim"), std::string::npos) << refused.err;
  EXPECT_FALSE(fs::exists(Path("out.pb")));

  const Result r = Run({"--model", model, "--output", Path("out.pb"), "--input_shape",
                        "in:1,3,16,16", "--out_nodes", "exp:0", "--output_format", "3"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const tesu::proto::ModelDef converted = ReadModel(Path("out.pb"));
  const auto& data = converted.graph(0).op(0);
  ASSERT_GT(data.input_desc_size(), 0);
  EXPECT_EQ(
      std::vector<int64_t>(data.input_desc(0).shape().begin(), data.input_desc(0).shape().end()),
      (std::vector<int64_t>{1, 3, 16, 16}));
  EXPECT_EQ(converted.graph(0).op(1).attr().at("inferred_format").i(), 3);
}

TEST_F(ConvertCliTest, EveryFailureNamesItsCauseAndKeepsTheInput) {
  const std::string model = WriteModel(SupportedModel());
  WriteFile(Path("junk.pb"), "\xff\xff not a model");
  fs::create_directory(Path("empty"));
  struct Case {
    std::vector<std::string> args;
    int exitCode;
    std::string message;
  };
  const std::vector<Case> cases = {
      {{"--model", Path("absent.pb"), "--output", Path("o.pb")}, 1, "cannot read"},
      {{"--model", model, "--output", Path("o.pb"), "--plugin-dir", Path("empty")},
       1,
       "no parser for framework 6"},
      {{"--model", model, "--output", Path("o.pb"), "--framework", "7"},
       1,
       "no parser for framework 7"},
      {{"--model", model, "--output", Path("model.pb/o.pb")}, 1, "cannot write model"},
      {{"--model", model, "--output", model}, 2, "would overwrite the input model"},
      {{"--model", model, "--output", Path("o.pb"), "--input_shape", "a:b", "--plugin-dir",
        Path("absent")},
       2,
       "invalid --input_shape value \"a:b\": "},
      {{"--model", Path("junk.pb"), "--output", Path("o.pb")}, 13, "status 13"},
  };
  const std::string before = ReadFile(model);
  for (const Case& c : cases) {
    const Result r = Run(c.args);
    EXPECT_EQ(r.exitCode, c.exitCode) << c.message << ": " << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
  }
  EXPECT_EQ(ReadFile(model), before);
  EXPECT_EQ(Files(), (std::vector<std::string>{"empty", "junk.pb", "model.pb"}));
}

TEST_F(ConvertCliTest, ToJsonDumpsTheModelWithoutTensorData) {
  testkit::ModelBuilder builder = SupportedModel();
  builder.ConstFloat("w", {1.0f, 2.0f});
  const std::string model = WriteModel(builder);
  const Result r = Run({"--to-json", "--model", model, "--json", Path("m.json")});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const json dumped = json::parse(ReadFile(Path("m.json")));
  EXPECT_EQ(dumped["graph"][0]["op"][3]["name"], "w");
  EXPECT_FALSE(HasKeyAnywhere(dumped, "data"));
}

TEST_F(ConvertCliTest, PluginDirectoryComesFromTheFlagThenTheEnvironment) {
  fs::create_directory(Path("empty"));
  const Result fromDefault = Run({"--list-frameworks"});
  ASSERT_EQ(fromDefault.exitCode, 0) << fromDefault.err;
  EXPECT_EQ(fromDefault.out, "6 orvane\n");

  const Result fromEnv = Run({"--list-frameworks"}, Path("empty"));
  EXPECT_EQ(fromEnv.exitCode, 0) << fromEnv.err;
  EXPECT_EQ(fromEnv.out, "");

  const std::string plugins = (fs::path(TESU_CONVERT_PATH).parent_path() / "plugins").string();
  const Result fromFlag = Run({"--list-frameworks", "--plugin-dir", plugins}, Path("empty"));
  EXPECT_EQ(fromFlag.out, "6 orvane\n");
}

}  // namespace
