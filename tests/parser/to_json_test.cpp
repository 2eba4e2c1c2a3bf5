// Writing a host model file out as JSON: the failures. The dump itself is compared with the
// converted samples end to end.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "files.h"
#include "framework/proto_io.h"
#include "parse.h"

namespace {

using namespace testkit;

class ParserToJson : public ::testing::Test {
 protected:
  std::string Model(const std::string& bytes) const {
    WriteFile(dir_.Path("model.bin"), bytes);
    return dir_.Path("model.bin");
  }
  // Runs ToJson and returns the parser's log lines, which must be at most one.
  std::vector<LogLine> Run(const char* model, const char* json, tesu::Status status) {
    LogCapture logs;
    EXPECT_EQ(parser_.ToJson(model, json), status);
    auto lines = LinesFrom(logs, "orvane_parser ");
    EXPECT_LE(lines.size(), 1u);
    return lines;
  }

  TempDir dir_;
  tesu::OrvaneModelParser parser_;
};

TEST_F(ParserToJson, NullOrUnreadableInputFailsWithItsLineAndWritesNothing) {
  const std::string model = Model("\xff\xff\xff\x0f not a model");
  const std::string json = dir_.Path("out.json");
  const std::string missing = dir_.Path("missing.bin");
  const std::string unreadable = ParserLine(
      "ToJson", 463, "\"ReadProtoFromBinaryFile(modelFile, &ModelProto)\" \"false, return FAIL.\"");
  struct Case {
    const char* model;
    const char* json;
    std::string line;
  };
  const Case cases[] = {
      {nullptr, nullptr, ParserLine("ToJson", 459, "\"modelFile\" \"null, return FAIL.\"")},
      {nullptr, "out.json", ParserLine("ToJson", 459, "\"modelFile\" \"null, return FAIL.\"")},
      {"model.bin", nullptr, ParserLine("ToJson", 460, "\"jsonFile\" \"null, return FAIL.\"")},
      {model.c_str(), json.c_str(), unreadable},
      {missing.c_str(), json.c_str(), unreadable},
  };
  for (const auto& c : cases) {
    const auto lines = Run(c.model, c.json, 1);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].module, "AI_INFRA");
    EXPECT_EQ(lines[0].text, c.line);
  }
  EXPECT_EQ(dir_.Entries(), std::vector<std::string>{"model.bin"});
}

}  // namespace
