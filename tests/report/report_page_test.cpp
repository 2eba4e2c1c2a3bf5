// The page carries its data as a JSON block that no node name can break out of, and is written
// whole or not at all, its summary last.
#include <gtest/gtest.h>

#include "conversion_report.h"
#include "files.h"
#include "json_text.h"
#include "log_capture.h"
#include "model_builder.h"
#include "report_page.h"

namespace {

using namespace testkit;

using nlohmann::json;

// The text of the page's data block.
std::string DataBlock(const std::string& page) {
  const std::string open = "<script type=\"application/json\" id=\"report-data\">";
  const size_t start = page.find(open);
  if (start == std::string::npos) return std::string();
  const size_t end = page.find("</script>", start);
  return page.substr(start + open.size(), end - start - open.size());
}

// Text that is not UTF-8 is replaced, not refused.
TEST(ReportPageTest, DataSurvivesNamesThatLookLikeMarkup) {
  json data = {{"nodes", {{"</script><script>alert(1)</script>", "<!-- x", "a<b", "@data"}}},
               {"svg", "<svg><g id=\"s1\"></g></svg>"},
               {"name", "bad\xff"}};
  const std::string page = tesu::cli::report::ReportPage({data, {}});
  const std::string block = DataBlock(page);
  EXPECT_EQ(block.find("</"), std::string::npos);
  EXPECT_EQ(block.find("<!"), std::string::npos);
  data["name"] = "bad\xEF\xBF\xBD";
  EXPECT_EQ(json::parse(block), data);
}

TEST(ReportPageTest, PageIsSelfContained) {
  const std::string page = tesu::cli::report::ReportPage({json{{"summary", json::object()}}, {}});
  EXPECT_EQ(page.rfind("<!DOCTYPE html>", 0), 0u);
  for (const char* slot : {"/*@style*/", "/*@script*/", "@data"}) {
    EXPECT_EQ(page.find(slot), std::string::npos) << slot << " left unfilled";
  }
  for (const char* remote : {"http://", "https://", " src=", "<link rel=\"stylesheet\""}) {
    // The only URL allowed is the SVG namespace the script names.
    const size_t at = page.find(remote);
    EXPECT_TRUE(at == std::string::npos || page.compare(at, 26, "http://www.w3.org/2000/svg") == 0)
        << page.substr(at, 60);
  }
}

// Text written straight as JSON reads back as the same text, except that what is not UTF-8
// becomes U+FFFD, and never ends or comments out the script element it stands in.
TEST(ReportPageTest, TextWrittenAsJsonReadsBack) {
  struct Case {
    std::string text;
    std::string readBack;
  };
  const std::string replaced = "\xEF\xBF\xBD";
  const Case cases[] = {
      {"plain name/0", "plain name/0"},
      {"quote\" back\\slash", "quote\" back\\slash"},
      {"</script><!-- a<b", "</script><!-- a<b"},
      {std::string("\n\t\r\x01\x1e\0", 6), std::string("\n\t\r\x01\x1e\0", 6)},
      {"caf\xC3\xA9 \xE2\x86\x92 \xF0\x9F\x98\x80", "caf\xC3\xA9 \xE2\x86\x92 \xF0\x9F\x98\x80"},
      {"bad\xff", "bad" + replaced},
      {"cut\xE2\x86", "cut" + replaced + replaced},                   // sequence cut short
      {"long\xC0\xAF", "long" + replaced + replaced},                 // overlong form
      {"half\xED\xA0\x80", "half" + replaced + replaced + replaced},  // a surrogate
  };
  for (const Case& c : cases) {
    std::string text;
    tesu::cli::report::AppendJsonString(text, c.text);
    EXPECT_EQ(text.find("</"), std::string::npos) << text;
    EXPECT_EQ(text.find("<!"), std::string::npos) << text;
    EXPECT_EQ(json::parse(text), c.readBack) << text;
  }
}

// The page is written by the worker up to the summary, which the run adds at its end; a run that
// never gives its summary leaves no page and no temporary file. The browser test reads the pages
// of converted and failed runs.
TEST(ReportPageTest, ThePageIsCompletedByTheSummaryOrNotWrittenAtAll) {
  using tesu::cli::report::ConversionReport;
  TempDir dir;
  ModelBuilder model;
  model.Data("in");
  model.Unary("act", "Relu", "in");
  const std::string bytes = model.Bytes();
  const auto graph = model.LoadGraph();
  {
    LogCapture log;
    {
      ConversionReport page(dir.Path("abandoned.html"));
      page.ReadSource(bytes, 2);
      page.Compare(graph.get(), nullptr);
      page.Wait();
    }
    EXPECT_TRUE(log.Contains("abandoned.html"));
  }
  ConversionReport page(dir.Path("converted.html"));
  page.ReadSource(bytes, 2);
  page.Compare(graph.get(), nullptr);
  tesu::cli::report::RunFacts run;
  run.modelFile = "net.pb";
  ASSERT_EQ(page.Write(run), tesu::SUCCESS);
  const json data = json::parse(DataBlock(ReadFile(dir.Path("converted.html"))));
  EXPECT_EQ(data["summary"]["model"], "net.pb");
  EXPECT_EQ(data["nodes"]["count"], 2);
  EXPECT_FALSE(data["nodes"]["after"]["types"][1].is_null());
  EXPECT_EQ(dir.Entries(), std::vector<std::string>{"converted.html"});
}

}  // namespace
