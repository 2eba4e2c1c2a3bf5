// The README's operator table is the user's reference; it must say exactly what the plug-in's
// own tables say.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "orvane_parser.h"
#include "orvane_util.h"

namespace {

struct Row {
  std::string hostType;
  bool converter;
};

std::string Trim(const std::string& text) {
  const size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// Rows of the table between the operators markers: | source | host | converter note |.
std::map<std::string, Row> ReadmeRows() {
  std::ifstream readme(TESU_README_PATH);
  std::map<std::string, Row> rows;
  std::string line;
  bool inTable = false;
  while (std::getline(readme, line)) {
    if (line.find("<!-- operators:begin -->") != std::string::npos) inTable = true;
    if (line.find("<!-- operators:end -->") != std::string::npos) break;
    if (!inTable || line.rfind("| ", 0) != 0 || line.find("---") != std::string::npos) continue;
    std::stringstream cells(line.substr(1));
    std::string source, host, note;
    std::getline(cells, source, '|');
    std::getline(cells, host, '|');
    std::getline(cells, note, '|');
    if (Trim(source) == "Source type") continue;
    rows[Trim(source)] = {Trim(host), Trim(note).rfind("yes", 0) == 0};
  }
  return rows;
}

TEST(ReadmeOperatorsTest, TableMatchesThePluginsTablesAndConverters) {
  const std::map<std::string, Row> rows = ReadmeRows();
  const auto& table = tesu::SupportedOperatorTable();
  const auto& converters = tesu::GetParserFuncMap();
  ASSERT_EQ(rows.size(), table.size()) << "README lists another set of operators";
  for (const auto& [source, host] : table) {
    auto row = rows.find(source);
    ASSERT_NE(row, rows.end()) << source << " is missing from the README";
    EXPECT_EQ(row->second.hostType, host) << source;
    EXPECT_EQ(row->second.converter, converters.count(source) == 1) << source;
  }
}

}  // namespace
