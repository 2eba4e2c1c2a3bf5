// The operator support check that runs before any graph change.
#include <filesystem>

#include <gtest/gtest.h>

#include "files.h"
#include "framework/pre_checker.h"
#include "parse.h"

namespace {

using namespace testkit;

class ParserSupportCheck : public ::testing::Test {
 protected:
  ParserSupportCheck() { options_.checkReportPath = dir_.Path("report.json"); }
  // True when the report exists; removes it.
  bool TakeReport() const { return std::filesystem::remove(dir_.Path("report.json")); }

  TempDir dir_;
  tesu::ParserOptions options_;
};

ModelBuilder WithTypes(std::initializer_list<const char*> types) {
  ModelBuilder model;
  model.Data("n0");
  for (size_t i = 0; i < types.size(); ++i) {
    model.Unary("n" + std::to_string(i + 1), types.begin()[i], "n" + std::to_string(i));
  }
  return model;
}

TEST_F(ParserSupportCheck, ReportsEveryUnsupportedNodeEvenWithoutSaveRequest) {
  LogCapture logs;
  const auto outcome = Parse(WithTypes({"Abs", "Frobnicate", "Wibble"}), options_);
  EXPECT_EQ(outcome.status, 1u);
  EXPECT_EQ(outcome.graph, nullptr);
  const std::string report = ReadFile(dir_.Path("report.json"));
  EXPECT_NE(report.find("\"n2\""), std::string::npos);
  EXPECT_NE(report.find("Wibble"), std::string::npos);
  EXPECT_TRUE(LinesFrom(logs, "orvane_parser ").empty());
  for (const char* type : {"relu", "Maxpool"}) {
    EXPECT_EQ(Parse(WithTypes({type}), options_).status, 1u) << "types match case-sensitively";
  }
}

// Without unsupported nodes the report is written only on request; an empty graph passes.
TEST_F(ParserSupportCheck, SavesOnRequestWhenEverythingIsSupported) {
  for (const auto& model : {WithTypes({"Relu", "Exp"}), ModelBuilder()}) {
    options_.saveCheckReport = false;
    EXPECT_EQ(Parse(model, options_).status, 0u);
    EXPECT_FALSE(TakeReport());
    options_.saveCheckReport = true;
    EXPECT_EQ(Parse(model, options_).status, 0u);
    EXPECT_TRUE(TakeReport());
  }
}

TEST_F(ParserSupportCheck, FailingSaveTurnsIntoTheSaveStatus) {
  options_.checkReportPath = dir_.Path("no_such_dir/report.json");
  const tesu::Status saveStatus =
      tesu::PreChecker("", tesu::SupportedOperatorTable()).Save(options_.checkReportPath);
  ASSERT_NE(saveStatus, 0u);
  options_.saveCheckReport = true;
  EXPECT_EQ(Parse(WithTypes({"Relu"}), options_).status, saveStatus);
  options_.saveCheckReport = false;
  EXPECT_EQ(Parse(WithTypes({"Frobnicate"}), options_).status, saveStatus);
}

}  // namespace
