// The operator support checker and its report.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "files.h"
#include "framework/pre_checker.h"
#include "framework/proto_io.h"
#include "log_capture.h"

namespace {

using nlohmann::json;
using namespace testkit;

const std::map<std::string, std::string> kSupported = {{"Abs", "Activation"}, {"Data", "Data"}};

// A checker that has checked the nodes (name, type) in order.
std::unique_ptr<tesu::PreChecker> Checked(
    const std::vector<std::pair<std::string, std::string>>& nodes) {
  auto checker = std::make_unique<tesu::PreChecker>("", kSupported);
  for (const auto& node : nodes) {
    EXPECT_EQ(checker->Check(&node, node.first, node.second), tesu::SUCCESS);
  }
  return checker;
}

TEST(PreCheckerTest, ReportListsOpsInCheckOrderAndUnsupportedTypesSorted) {
  const auto checker =
      Checked({{"in", "Data"}, {"w1", "Wibble"}, {"abs", "Abs"}, {"f1", "Frob"}, {"w2", "Wibble"}});
  EXPECT_TRUE(checker->HasError());
  const json report = json::parse(checker->ReportJson());
  EXPECT_EQ(report["summary"], json::parse(R"({"total": 5, "passed": 2, "failed": 3})"));
  EXPECT_EQ(report["unsupported_types"],
            json::parse(R"([{"type": "Frob", "count": 1}, {"type": "Wibble", "count": 2}])"));
  std::vector<std::string> names;
  for (const json& op : report["ops"]) names.push_back(op["name"]);
  EXPECT_EQ(names, (std::vector<std::string>{"in", "w1", "abs", "f1", "w2"}));
  EXPECT_EQ(report["ops"][0], json::parse(R"({"name": "in", "type": "Data", "result": "pass",
      "causes": []})"));
  EXPECT_EQ(report["ops"][1]["result"], "failed");
  EXPECT_EQ(
      report["ops"][1]["causes"],
      json::parse(R"([{"code": 1, "message": "operator type \"Wibble\" is not supported"}])"));

  EXPECT_FALSE(Checked({})->HasError());
  EXPECT_FALSE(Checked({{"in", "Data"}, {"abs", "Abs"}})->HasError());
}

TEST(PreCheckerTest, ExtraCheckFailsANodeThroughItsCauseAndStopsOnStatus) {
  const auto checker = Checked({});
  const std::string first = "first";
  const std::string second = "second";
  checker->AddCheckFunc("names", [&second](const void* handle, tesu::PreChecker::Cause& cause) {
    if (handle != &second) return tesu::SUCCESS;
    cause.code = 7;
    cause.message = "bad name";
    return tesu::Status{5};
  });
  EXPECT_EQ(checker->Check(&first, first, "Abs"), tesu::SUCCESS);
  EXPECT_FALSE(checker->HasError());
  EXPECT_EQ(checker->Check(&second, second, "Abs"), 5u);
  EXPECT_TRUE(checker->HasError());
  const json report = json::parse(checker->ReportJson());
  EXPECT_EQ(report["ops"][1]["causes"][0]["message"], "bad name");
  EXPECT_TRUE(report["unsupported_types"].empty());
}

// A directory gets check_result.json; an unwritable path fails without leaving a file.
TEST(PreCheckerTest, SaveWritesIntoADirectoryOrFailsCleanly) {
  TempDir dir;
  WriteFile(dir.Path("plain"), "not a directory");
  const auto checker = Checked({{"x", "Wibble"}});
  EXPECT_EQ(checker->Save(dir.Path("plain/report.json")), tesu::FILE_WRITE_FAILED);
  EXPECT_EQ(checker->Save(dir.Path("missing/report.json")), tesu::FILE_WRITE_FAILED);
  for (const std::string& path : {dir.Path(), dir.Path() + "/"}) {
    ASSERT_EQ(checker->Save(path), tesu::SUCCESS) << path;
    EXPECT_EQ(json::parse(ReadFile(dir.Path("check_result.json"))),
              json::parse(checker->ReportJson()));
  }
  EXPECT_EQ(dir.Entries(), (std::vector<std::string>{"check_result.json", "plain"}));
  // A named checker's failure names it; without a path the report goes to the default file.
  LogCapture log;
  EXPECT_EQ(tesu::PreChecker("net", kSupported).Save(dir.Path("missing/r.json")),
            tesu::FILE_WRITE_FAILED);
  EXPECT_TRUE(log.Contains("cannot save the check report of net to "))
      << ::testing::PrintToString(log.Texts());
  EXPECT_EQ(tesu::PreChecker::ReportFile(""), "check_result.json");
}

}  // namespace
