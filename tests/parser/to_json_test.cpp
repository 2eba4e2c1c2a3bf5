// Writing a host model file out as JSON: the failures. The dump itself is compared with the
// converted samples end to end.
#include <gtest/gtest.h>

#include "files.h"
#include "parse.h"

namespace {

using namespace testkit;

TEST(ParserToJson, NullOrUnreadableInputFailsWithItsLineAndWritesNothing) {
  const TempDir dir;
  const std::string model = dir.Write("model.bin", "\xff\xff\xff\x0f not a model");
  const std::string json = dir.Path("out.json");
  const std::string missing = dir.Path("missing.bin");
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
    LogCapture logs;
    EXPECT_EQ(tesu::OrvaneModelParser().ToJson(c.model, c.json), 1u);
    const auto lines = LinesFrom(logs, "orvane_parser ");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].module, "AI_INFRA");
    EXPECT_EQ(lines[0].text, c.line);
  }
  EXPECT_EQ(dir.Entries(), std::vector<std::string>{"model.bin"});
}

}  // namespace
