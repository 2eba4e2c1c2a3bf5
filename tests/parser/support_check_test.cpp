// The operator support check that runs before any graph change.
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "framework/pre_checker.h"
#include "log_capture.h"
#include "parse_helper.h"

namespace {

using parsertest::Parse;

class ParserSupportCheck : public ::testing::Test {
 protected:
  void SetUp() override {
    reportPath_ = ::testing::TempDir() + "orvane_support_" +
                  ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".json";
    std::remove(reportPath_.c_str());
    options_.checkReportPath = reportPath_;
  }
  void TearDown() override { std::remove(reportPath_.c_str()); }

  std::string Report() const {
    std::ifstream in(reportPath_);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }
  bool ReportExists() const { return std::ifstream(reportPath_).good(); }

  std::string reportPath_;
  tesu::ParserOptions options_;
};

// A status the host's checker returns for a report it cannot write.
tesu::Status UnwritableSaveStatus(const std::string& path) {
  return tesu::PreChecker("", tesu::SupportedOperatorTable()).Save(path);
}

TEST_F(ParserSupportCheck, ReportsEveryUnsupportedNodeEvenWithoutSaveRequest) {
  testkit::ModelBuilder model;
  model.Data("in");
  model.Unary("abs", "Abs", "in");
  model.Unary("first_odd", "Frobnicate", "abs");
  model.Unary("second_odd", "Wibble", "first_odd");
  testkit::LogCapture logs;
  const auto outcome = Parse(model, options_);
  EXPECT_EQ(outcome.status, 1u);
  EXPECT_EQ(outcome.graph, nullptr);
  ASSERT_TRUE(ReportExists());
  const std::string report = Report();
  EXPECT_NE(report.find("first_odd"), std::string::npos);
  EXPECT_NE(report.find("Wibble"), std::string::npos);
  EXPECT_FALSE(logs.Contains("orvane_parser"));
}

TEST_F(ParserSupportCheck, TypesAreMatchedCaseSensitively) {
  for (const char* type : {"relu", "RELU", "abs", "conv2d", "Maxpool", "Concatv2"}) {
    testkit::ModelBuilder model;
    model.Data("in");
    model.Unary("node", type, "in");
    EXPECT_EQ(Parse(model, options_).status, 1u) << type;
  }
}

TEST_F(ParserSupportCheck, SavesOnRequestWhenEverythingIsSupported) {
  testkit::ModelBuilder model;
  model.Data("in");
  model.ConstInt32("shape", {1, 192}, {2});
  model.Op("reshape", "Reshape").Input("in").Input("shape").Output({1, 192});
  options_.saveCheckReport = true;
  EXPECT_EQ(Parse(model, options_).status, 0u);
  EXPECT_TRUE(ReportExists());

  options_.saveCheckReport = false;
  std::remove(reportPath_.c_str());
  EXPECT_EQ(Parse(model, options_).status, 0u);
  EXPECT_FALSE(ReportExists());
}

TEST_F(ParserSupportCheck, FailingSaveTurnsIntoTheSaveStatus) {
  const std::string unwritable = ::testing::TempDir() + "no_such_dir/deeper/report.json";
  const tesu::Status saveStatus = UnwritableSaveStatus(unwritable);
  ASSERT_NE(saveStatus, 0u);
  options_.checkReportPath = unwritable;

  testkit::ModelBuilder supported;
  supported.Data("in");
  supported.Unary("relu", "Relu", "in");
  options_.saveCheckReport = true;
  EXPECT_EQ(Parse(supported, options_).status, saveStatus);

  testkit::ModelBuilder unsupported;
  unsupported.Data("in");
  unsupported.Unary("odd", "Frobnicate", "in");
  options_.saveCheckReport = false;
  EXPECT_EQ(Parse(unsupported, options_).status, saveStatus);
}

TEST_F(ParserSupportCheck, EmptyGraphPassesAndSavesOnlyOnRequest) {
  const testkit::ModelBuilder empty;
  EXPECT_EQ(Parse(empty, options_).status, 0u);
  EXPECT_FALSE(ReportExists());
  options_.saveCheckReport = true;
  EXPECT_EQ(Parse(empty, options_).status, 0u);
  EXPECT_TRUE(ReportExists());
}

}  // namespace
