// Reading tesu-convert's command line into parse options.
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cli_options.h"

namespace {

using tesu::cli::CliOptions;

using Parse = std::function<std::string(const std::string&)>;

template <typename Out, typename Parser>
Parse Into(Parser parser) {
  return [parser](const std::string& text) {
    Out out{};
    return parser(text, out);
  };
}

TEST(CliValuesTest, EachParserAcceptsItsGrammarAndRefusesTheRest) {
  struct Case {
    const char* what;
    Parse parse;
    std::vector<std::string> valid;
    std::vector<std::string> invalid;
  };
  using Shapes = std::unordered_map<std::string, std::vector<int64_t>>;
  using Types = std::unordered_map<std::string, std::pair<tov::DataType, bool>>;
  using Formats = std::unordered_map<std::string, tov::Format>;
  using Nodes = std::map<std::string, std::vector<int32_t>>;
  const std::vector<Case> cases = {
      {"shape",
       Into<Shapes>(tesu::cli::ParseInputShapes),
       {"data:1,3,224,224", "a:1,10;b:", " a : 1 , -1 ;"},
       {"a:b", "a:1,,2", "a:-2", "a:1;a:2", "noColon", ":1", "", "a:99999999999999999999"}},
      {"type",
       Into<Types>(tesu::cli::ParseInputTypes),
       {"a:FLOAT16", "a:int64;b:BOOL", "a:3"},
       {"a:HALF", "a:27", "a:", "a:-1"}},
      {"format",
       Into<Formats>(tesu::cli::ParseInputFormats),
       {"a:NHWC", "a:nchw;b:5"},
       {"a:CHWN", "a:39", "a"}},
      {"out_nodes",
       Into<Nodes>(tesu::cli::ParseOutNodes),
       {"conv1:0;split:0,2"},
       {"conv1:", "conv1:-1", "conv1:x", "conv1:0;conv1:1"}},
      {"output_format",
       Into<std::vector<tesu::TrelTensorFormat>>(tesu::cli::ParseOutputFormats),
       {"3,0", "NC1HWC0,nchw"},
       {"4", "3,,0", ""}},
      {"log level", Into<int>(tesu::cli::ParseLogLevel), {"debug", "error", "2"}, {"4", "verbose"}},
  };
  for (const Case& c : cases) {
    for (const std::string& text : c.valid) EXPECT_EQ(c.parse(text), "") << c.what << " " << text;
    for (const std::string& text : c.invalid) EXPECT_NE(c.parse(text), "") << c.what << " " << text;
  }
}

struct Invocation {
  tesu::cli::CommandLine line;
  std::string err;
  CliOptions options;
};

Invocation Invoke(std::vector<std::string> args) {
  args.insert(args.begin(), "tesu-convert");
  std::vector<const char*> argv;
  for (const std::string& arg : args) argv.push_back(arg.c_str());
  Invocation result;
  std::ostringstream out, err;
  result.line = tesu::cli::ParseCommandLine(static_cast<int>(argv.size()), argv.data(),
                                            result.options, out, err);
  result.err = err.str();
  return result;
}

TEST(CliCommandLineTest, EveryFlagReachesTheOptions) {
  // clang-format off
  const Invocation r = Invoke({
      "--model", "m.pb", "--output", "o.pb", "--json=o.json",
      "--input_shape", "in:1,-1;mask:", "--input_type", "in:INT8;ids:1",
      "--input_format", "in:NHWC", "--out_nodes", "c:0", "--output_format", "3, nhwc",
      "--check_report", "r/", "--save_check_report", "--log-level", "debug",
      "--plugin-dir", "p", "--framework", "7"});
  // clang-format on
  ASSERT_TRUE(r.line.run) << r.err;
  const tesu::ParserOptions& p = r.options.parser;
  EXPECT_EQ(p.inputShapes.at("in"), (std::vector<int64_t>{1, -1}));
  EXPECT_TRUE(p.inputShapes.at("mask").empty());
  EXPECT_EQ(p.inputDataTypes.at("in"), std::make_pair(tov::DT_INT8, true));
  EXPECT_EQ(p.inputDataTypes.at("ids").first, tov::DT_FLOAT16);
  EXPECT_EQ(p.inputFormats.at("in"), tov::FORMAT_NHWC);
  EXPECT_EQ(p.outputNodes.at("c"), std::vector<int32_t>{0});
  EXPECT_EQ(p.outputFormats, (std::vector<tesu::TrelTensorFormat>{tesu::TREL_FORMAT_NC1HWC0,
                                                                  tesu::TREL_FORMAT_NHWC}));
  EXPECT_EQ(p.checkReportPath, "r/");
  EXPECT_TRUE(p.saveCheckReport);
  EXPECT_EQ(p.modelFile, "m.pb");
  EXPECT_EQ(r.options.jsonFile, "o.json");
  EXPECT_EQ(r.options.logLevel, AI_LOG_DEBUG);
  EXPECT_EQ(r.options.pluginDir, "p");
  EXPECT_EQ(r.options.framework, 7);
}

TEST(CliCommandLineTest, RefusedLinesExitWithTwoAndSayWhy) {
  struct Case {
    std::vector<std::string> args;
    std::string message;
  };
  const std::vector<Case> cases = {
      {{"--model", "m", "--input_shape", "a:b"}, "invalid --input_shape value \"a:b\": "},
      {{"--model", "m", "--log-level", "loud"}, "invalid --log-level value \"loud\": "},
      {{"--model", "m", "--framework", "x"}, "--framework"},
      {{"--model", "m", "--framework", "64"}, "--framework"},
      {{"--model", "m", "--bogus"}, "--bogus"},
      {{"--output", "o.pb"}, "--model is required"},
      {{"--model", "m", "--to-json"}, "--to-json needs --json"},
      {{"--model", "m", "--to-json", "--json", "j", "--output", "o"},
       "cannot be combined with --to-json"},
  };
  for (const Case& c : cases) {
    const Invocation r = Invoke(c.args);
    EXPECT_FALSE(r.line.run) << c.message;
    EXPECT_EQ(r.line.exitCode, tesu::kUsageError) << c.message;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
  }
}

}  // namespace
