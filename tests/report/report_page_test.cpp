// The page carries its data as a JSON block that no node name can break out of.
#include <gtest/gtest.h>

#include <string>

#include "report_page.h"

namespace {

using nlohmann::json;

// The text of the page's data block.
std::string DataBlock(const std::string& page) {
  const std::string open = "<script type=\"application/json\" id=\"report-data\">";
  const size_t start = page.find(open);
  if (start == std::string::npos) return std::string();
  const size_t end = page.find("</script>", start);
  return page.substr(start + open.size(), end - start - open.size());
}

TEST(ReportPageTest, DataSurvivesNamesThatLookLikeMarkup) {
  const json data = {{"nodes", {{"</script><script>alert(1)</script>", "<!-- x", "a<b", "@data"}}},
                     {"svg", "<svg><g id=\"s1\"></g></svg>"}};
  const std::string page = tesu::cli::report::ReportPage(data);
  const std::string block = DataBlock(page);
  EXPECT_EQ(block.find("</"), std::string::npos);
  EXPECT_EQ(block.find("<!"), std::string::npos);
  EXPECT_EQ(json::parse(block), data);
}

TEST(ReportPageTest, PageIsSelfContained) {
  const std::string page = tesu::cli::report::ReportPage(json{{"summary", json::object()}});
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

TEST(ReportPageTest, TextThatIsNotUtf8IsReplacedNotRefused) {
  const std::string page = tesu::cli::report::ReportPage(json{{"name", "bad\xff"}});
  EXPECT_EQ(json::parse(DataBlock(page))["name"], "bad\xEF\xBF\xBD");
}

}  // namespace
