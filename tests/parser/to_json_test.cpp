// Writing a host model file out as JSON.
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "framework/proto_io.h"
#include "log_capture.h"
#include "parse_helper.h"

namespace {

using parsertest::LogText;

class ParserToJson : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string base = ::testing::TempDir() + "orvane_to_json_" +
                             ::testing::UnitTest::GetInstance()->current_test_info()->name();
    modelPath_ = base + ".bin";
    jsonPath_ = base + ".json";
    std::remove(jsonPath_.c_str());
  }
  void TearDown() override {
    std::remove(modelPath_.c_str());
    std::remove(jsonPath_.c_str());
  }
  void WriteModel(const std::string& bytes) const {
    std::ofstream(modelPath_, std::ios::binary) << bytes;
  }
  bool JsonExists() const { return std::ifstream(jsonPath_).good(); }

  std::string modelPath_;
  std::string jsonPath_;
  tesu::OrvaneModelParser parser_;
};

TEST_F(ParserToJson, WritesTheModelWithoutTensorBytes) {
  testkit::ModelBuilder model("json_model");
  model.Data("in");
  model.ConstInt32("weights", {11, 22, 33}, {3});
  WriteModel(model.Bytes());
  ASSERT_EQ(parser_.ToJson(modelPath_.c_str(), jsonPath_.c_str()), 0u);
  std::ifstream in(jsonPath_);
  std::stringstream text;
  text << in.rdbuf();
  EXPECT_NE(text.str().find("json_model"), std::string::npos);
  EXPECT_NE(text.str().find("weights"), std::string::npos);
  EXPECT_EQ(text.str().find("\"data\""), std::string::npos);
}

TEST_F(ParserToJson, NullPathsAreCheckedModelFirst) {
  struct Case {
    const char* model;
    const char* json;
    std::string line;
  };
  const Case cases[] = {
      {nullptr, nullptr, LogText("ToJson", 459, "\"modelFile\" \"null, return FAIL.\"")},
      {nullptr, "out.json", LogText("ToJson", 459, "\"modelFile\" \"null, return FAIL.\"")},
      {"model.bin", nullptr, LogText("ToJson", 460, "\"jsonFile\" \"null, return FAIL.\"")},
  };
  for (const auto& c : cases) {
    testkit::LogCapture logs;
    EXPECT_EQ(parser_.ToJson(c.model, c.json), 1u);
    ASSERT_EQ(logs.Lines().size(), 1u);
    EXPECT_EQ(logs.Lines()[0].module, "AI_INFRA");
    EXPECT_EQ(logs.Lines()[0].text, c.line);
  }
}

TEST_F(ParserToJson, UnreadableModelFailsAndWritesNothing) {
  const std::string line = LogText(
      "ToJson", 463, "\"ReadProtoFromBinaryFile(modelFile, &ModelProto)\" \"false, return FAIL.\"");
  WriteModel(std::string("\xff\xff\xff\x0f not a model", 16));
  for (const std::string& path : {modelPath_, modelPath_ + ".missing"}) {
    testkit::LogCapture logs;
    EXPECT_EQ(parser_.ToJson(path.c_str(), jsonPath_.c_str()), 1u);
    const auto lines = parsertest::ParserLines(logs);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].text, line);
    EXPECT_FALSE(JsonExists());
  }
}

TEST_F(ParserToJson, UnwritableJsonPathReturnsTheSaversStatus) {
  const std::string unwritable = ::testing::TempDir() + "no_such_dir/out.json";
  const tesu::Status saverStatus = tesu::ModelSaver::SaveJsonToFile(unwritable.c_str(), {});
  ASSERT_NE(saverStatus, 0u);
  testkit::ModelBuilder model;
  model.Data("in");
  WriteModel(model.Bytes());
  testkit::LogCapture logs;
  EXPECT_EQ(parser_.ToJson(modelPath_.c_str(), unwritable.c_str()), saverStatus);
  EXPECT_FALSE(logs.Contains("orvane_parser"));
}

}  // namespace
