// The README's operator table is the user's reference; it must say exactly what the plug-in's
// own tables say.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "orvane_parser.h"
#include "orvane_util.h"

namespace {

TEST(ReadmeOperatorsTest, TableMatchesThePluginsTablesAndConverters) {
  std::ifstream readme(TESU_README_PATH);
  const std::string text{std::istreambuf_iterator<char>(readme), std::istreambuf_iterator<char>()};
  const size_t begin = text.find("<!-- operators:begin -->");
  const size_t end = text.find("<!-- operators:end -->");
  ASSERT_LT(begin, end);
  const std::string table = text.substr(begin, end - begin);
  const auto& converters = tesu::GetParserFuncMap();
  size_t rows = 0;
  for (const auto& [source, host] : tesu::SupportedOperatorTable()) {
    const std::string row =
        "\n| " + source + " | " + host + (converters.count(source) != 0 ? " | yes" : " | |");
    EXPECT_NE(table.find(row), std::string::npos) << row;
    ++rows;
  }
  size_t lines = 0;  // the header and one line per operator start with "| "
  for (size_t at = table.find("\n| "); at != std::string::npos; at = table.find("\n| ", at + 1)) {
    ++lines;
  }
  EXPECT_EQ(lines, rows + 1) << "the README lists other operators too";
}

}  // namespace
