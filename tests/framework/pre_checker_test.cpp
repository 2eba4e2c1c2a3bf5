// The operator support checker and its report.
#include <map>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "framework/pre_checker.h"
#include "framework/proto_io.h"
#include "test_files.h"

namespace {

using frameworktest::ReadFile;
using frameworktest::TempDir;
using nlohmann::json;

const std::map<std::string, std::string> kSupported = {{"Abs", "Activation"}, {"Data", "Data"}};

// Checks the nodes (name, type) in order.
void CheckAll(tesu::PreChecker& checker,
              const std::vector<std::pair<std::string, std::string>>& nodes) {
  for (const auto& node : nodes) {
    ASSERT_EQ(checker.Check(&node, node.first, node.second), tesu::SUCCESS);
  }
}

TEST(PreCheckerTest, ReportListsOpsInCheckOrderAndUnsupportedTypesSorted) {
  tesu::PreChecker checker("", kSupported);
  CheckAll(checker,
           {{"in", "Data"}, {"w1", "Wibble"}, {"abs", "Abs"}, {"f1", "Frob"}, {"w2", "Wibble"}});
  EXPECT_TRUE(checker.HasError());

  const json report = json::parse(checker.ReportJson());
  EXPECT_EQ(report["summary"], json::parse(R"({"total": 5, "passed": 2, "failed": 3})"));
  EXPECT_EQ(report["unsupported_types"],
            json::parse(R"([{"type": "Frob", "count": 1}, {"type": "Wibble", "count": 2}])"));
  std::vector<std::string> names;
  for (const json& op : report["ops"]) names.push_back(op["name"]);
  EXPECT_EQ(names, (std::vector<std::string>{"in", "w1", "abs", "f1", "w2"}));
  EXPECT_EQ(report["ops"][0]["result"], "pass");
  EXPECT_TRUE(report["ops"][0]["causes"].empty());
  EXPECT_EQ(report["ops"][1]["result"], "failed");
  EXPECT_EQ(report["ops"][1]["causes"][0]["code"], tesu::PreChecker::kUnsupportedType);
  EXPECT_EQ(report["ops"][1]["causes"][0]["message"], "operator type \"Wibble\" is not supported");
}

TEST(PreCheckerTest, AllSupportedOrNothingCheckedHasNoError) {
  tesu::PreChecker empty("", kSupported);
  EXPECT_FALSE(empty.HasError());
  EXPECT_EQ(json::parse(empty.ReportJson())["summary"]["total"], 0);

  tesu::PreChecker checker("", kSupported);
  CheckAll(checker, {{"in", "Data"}, {"abs", "Abs"}});
  EXPECT_FALSE(checker.HasError());
}

TEST(PreCheckerTest, ExtraCheckFailsANodeThroughItsCauseAndStopsOnStatus) {
  tesu::PreChecker checker("", kSupported);
  const std::string second = "second";
  checker.AddCheckFunc("names", [&second](const void* handle, tesu::PreChecker::Cause& cause) {
    if (handle != &second) return tesu::SUCCESS;
    cause.code = 7;
    cause.message = "bad name";
    return tesu::Status{5};
  });
  const std::string first = "first";
  EXPECT_EQ(checker.Check(&first, first, "Abs"), tesu::SUCCESS);
  EXPECT_FALSE(checker.HasError());
  EXPECT_EQ(checker.Check(&second, second, "Abs"), 5u);
  EXPECT_TRUE(checker.HasError());
  const json report = json::parse(checker.ReportJson());
  EXPECT_EQ(report["ops"][1]["causes"][0]["message"], "bad name");
  EXPECT_TRUE(report["unsupported_types"].empty());
}

TEST(PreCheckerTest, SaveIntoADirectoryWritesCheckResultJsonThere) {
  TempDir dir;
  tesu::PreChecker checker("", kSupported);
  CheckAll(checker, {{"x", "Wibble"}});
  for (const std::string& path : {dir.Path(), dir.Path() + "/"}) {
    ASSERT_EQ(checker.Save(path), tesu::SUCCESS) << path;
    EXPECT_EQ(json::parse(ReadFile(dir.Path("check_result.json"))),
              json::parse(checker.ReportJson()));
  }
  EXPECT_EQ(dir.Entries(), std::vector<std::string>{"check_result.json"});
}

TEST(PreCheckerTest, UnwritablePathFailsWithoutLeavingAFile) {
  TempDir dir;
  frameworktest::WriteFile(dir.Path("plain"), "not a directory");
  tesu::PreChecker checker("", kSupported);
  CheckAll(checker, {{"x", "Wibble"}});
  EXPECT_EQ(checker.Save(dir.Path("plain/report.json")), tesu::FILE_WRITE_FAILED);
  EXPECT_EQ(checker.Save(dir.Path("missing/report.json")), tesu::FILE_WRITE_FAILED);
  EXPECT_EQ(dir.Entries(), std::vector<std::string>{"plain"});
}

}  // namespace
