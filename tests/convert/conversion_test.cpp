// One conversion call as a C++ user makes it: the model from a file or from memory, the parser
// chosen by what its plug-in declared, every failure in the result, warnings for names that
// match nothing, and the JSON dump handed to the plug-in as the file is.
#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "convert/conversion.h"
#include "files.h"
#include "model_builder.h"

namespace {

using tesu::convert::Failure;
using tesu::convert::Request;
using tesu::convert::Result;

testkit::ModelBuilder Model() {
  testkit::ModelBuilder model("net");
  model.Data("in");
  model.Unary("abs", "Abs", "in");
  model.Unary("relu", "Relu", "abs");
  return model;
}

Request RequestFor(const std::string& path, const char* pluginDir = ORVANE_PLUGIN_DIR) {
  Request request;
  request.modelPath = path;
  request.pluginDir = pluginDir;
  return request;
}

bool Logged(const Result& result, const std::string& text) {
  for (const auto& line : result.log) {
    if (line.text.find(text) != std::string::npos) return true;
  }
  return false;
}

class ConversionTest : public ::testing::Test {
 protected:
  testkit::TempDir dir_;
};

TEST_F(ConversionTest, AFileAndTheSameBytesConvertAlikeWithTheHostFormatsParser) {
  const std::string bytes = Model().Bytes();
  Request fromFile = RequestFor(dir_.Write("net.pb", bytes));
  Request fromBytes = RequestFor("");
  fromBytes.modelBytes = bytes;
  fromFile.options.saveCheckReport = true;
  for (const Request* request : {&fromFile, &fromBytes}) {
    const Result result = tesu::convert::Convert(*request);
    ASSERT_TRUE(result.Converted()) << result.error;
    EXPECT_EQ(result.framework, tesu::FRAMEWORK_ORVANE) << "the one plug-in of the host's format";
    EXPECT_EQ(result.model.GetName(), "net");
    EXPECT_EQ(result.before, (tesu::convert::OpCounts{{"Abs", 1}, {"Data", 1}, {"Relu", 1}}));
    EXPECT_EQ(result.after, (tesu::convert::OpCounts{{"Activation", 2}, {"Data", 1}}));
    EXPECT_TRUE(result.warnings.empty());
    EXPECT_FALSE(result.steps.empty());
  }
  // Without a path of the caller's the check report comes back in the result only.
  EXPECT_EQ(tesu::convert::Convert(fromFile).checkReport["summary"]["failed"], 0);
  EXPECT_EQ(dir_.Entries(), std::vector<std::string>{"net.pb"});
}

TEST_F(ConversionTest, NamesThatMatchNothingAreWarnedAboutAndChangeNothing) {
  Request request = RequestFor(dir_.Write("net.pb", Model().Bytes()));
  const Result plain = tesu::convert::Convert(request);
  request.options.inputShapes["ghost"] = {1};
  request.options.inputFormats["abs"] = tov::FORMAT_NHWC;
  request.options.outputNodes = {{"relu", {0, 2}}, {"nowhere", {0}}};
  const Result result = tesu::convert::Convert(request);
  ASSERT_TRUE(result.Converted()) << result.error;
  EXPECT_EQ(result.warnings,
            (std::vector<std::string>{
                "input shape given for \"ghost\", which is not in the graph: it is not used",
                "input format given for \"abs\", whose type is Activation, not Data: it is not "
                "used",
                "output node \"nowhere\" is not in the graph: it is not an output",
                "output 2 of node \"relu\" is beyond its 1 output: it is not an output"}));
  EXPECT_EQ(result.after, plain.after);
}

TEST_F(ConversionTest, EveryFailureIsInTheResult) {
  struct Case {
    const char* what;
    Request request;
    Failure failure;
    int exitCode;
    int fileError;
  };
  Request noParser = RequestFor(dir_.Write("net.pb", Model().Bytes()));
  noParser.framework = static_cast<tesu::FrameworkType>(9);
  Request unsupported = RequestFor(dir_.Write("bad.pb", [] {
    testkit::ModelBuilder model = Model();
    model.Unary("gelu", "Gelu", "relu");
    return model.Bytes();
  }()));
  const Case cases[] = {
      {"missing", RequestFor(dir_.Path("missing.pb")), Failure::kModelFile, 1, ENOENT},
      {"directory", RequestFor(dir_.Path()), Failure::kModelFile, 1, EISDIR},
      {"garbage", RequestFor(dir_.Write("junk", std::string(64, '\xff'))), Failure::kModelFile,
       tesu::kNotAModel, 0},
      {"no plug-in directory", RequestFor(dir_.Path("net.pb"), "/nonexistent"), Failure::kPlugins,
       1, 0},
      {"no parser", noParser, Failure::kNoParser, 1, 0},
      {"unsupported operator", unsupported, Failure::kParse, 1, 0},
  };
  for (const Case& c : cases) {
    const Result result = tesu::convert::Convert(c.request);
    EXPECT_FALSE(result.Converted()) << c.what;
    EXPECT_EQ(result.failure, c.failure) << c.what;
    EXPECT_EQ(result.exitCode, c.exitCode) << c.what << ": " << result.error;
    EXPECT_EQ(result.fileError, c.fileError) << c.what;
    EXPECT_FALSE(result.error.empty()) << c.what;
    EXPECT_EQ(result.graph, nullptr) << c.what;
  }
}

// A plug-in of its own format gets the file as it is, for conversion and for its JSON dump; the
// host's format's plug-in judges a file that is no model in its dump.
TEST_F(ConversionTest, ThePluginGetsTheFileAsItIs) {
  const std::string chain = TESU_EXAMPLES_DIR "/plugin/sample.chain";
  Request request = RequestFor(chain, CHAIN_PLUGIN_DIR);
  request.framework = static_cast<tesu::FrameworkType>(7);
  const Result converted = tesu::convert::Convert(request);
  ASSERT_TRUE(converted.Converted()) << converted.error;
  EXPECT_EQ(converted.graph->GetNodesSize(), 4u);

  const Result chainDump = tesu::convert::DumpJson(request, dir_.Path("chain.json"));
  EXPECT_EQ(chainDump.failure, Failure::kParse);
  EXPECT_TRUE(Logged(chainDump, "a chain model has no JSON form"));

  const Result junkDump = tesu::convert::DumpJson(
      RequestFor(dir_.Write("junk", std::string(64, '\xff'))), dir_.Path("junk.json"));
  EXPECT_EQ(junkDump.exitCode, 1);
  EXPECT_TRUE(Logged(
      junkDump, "\"ReadProtoFromBinaryFile(modelFile, &ModelProto)\" \"false, return FAIL.\""));

  Request fromBytes = RequestFor("");
  const std::string bytes = Model().Bytes();
  fromBytes.modelBytes = bytes;
  const Result dump = tesu::convert::DumpJson(fromBytes, "");
  ASSERT_TRUE(dump.error.empty()) << dump.error;
  EXPECT_NE(dump.json.find("\"Relu\""), std::string::npos);
  EXPECT_EQ(dir_.Entries(), std::vector<std::string>{"junk"});
}

}  // namespace
