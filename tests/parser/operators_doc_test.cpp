// docs/operators.md against the plug-in: the operator table there must list exactly the source
// types the plug-in accepts, the host type of each, and which of them have a converter.
#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orvane_parser.h"
#include "orvane_util.h"

namespace {

// The cells of one Markdown table row, trimmed: "| a | b |" gives {"a", "b"}.
std::vector<std::string> Cells(const std::string& line) {
  std::vector<std::string> cells;
  std::istringstream row(line.substr(1));
  std::string cell;
  while (std::getline(row, cell, '|')) {
    const auto first = cell.find_first_not_of(' ');
    const auto last = cell.find_last_not_of(' ');
    cells.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
  }
  return cells;
}

// "Source -> Host" with " (converter)" appended when the type has one.
std::string Row(const std::string& source, const std::string& host, bool converter) {
  return source + " -> " + host + (converter ? " (converter)" : "");
}

// The rows between the operator markers of the document, header and rule left out.
std::vector<std::string> DocumentedRows(const std::string& path) {
  std::ifstream doc(path);
  std::vector<std::string> rows;
  bool inTable = false;
  for (std::string line; std::getline(doc, line);) {
    if (line == "<!-- operators:begin -->" || line == "<!-- operators:end -->") {
      inTable = line == "<!-- operators:begin -->";
      continue;
    }
    if (!inTable || line.rfind("| ", 0) != 0 || line.rfind("| Source type", 0) == 0) {
      continue;
    }
    const auto cells = Cells(line);
    if (cells.size() >= 3) {
      rows.push_back(Row(cells[0], cells[1], cells[2].rfind("yes", 0) == 0));
    }
  }
  return rows;
}

TEST(OperatorsDoc, TableMatchesThePlugin) {
  std::vector<std::string> plugin;
  for (const auto& [source, host] : tesu::SupportedOperatorTable()) {
    plugin.push_back(Row(source, host, tesu::GetParserFuncMap().count(source) != 0));
  }
  const auto documented = DocumentedRows(TESU_OPERATORS_DOC);
  ASSERT_FALSE(documented.empty())
      << "no operator table between the markers of " << TESU_OPERATORS_DOC;
  for (const auto& row : plugin) {
    EXPECT_NE(std::find(documented.begin(), documented.end(), row), documented.end())
        << "missing from " << TESU_OPERATORS_DOC << ": " << row;
  }
  for (const auto& row : documented) {
    EXPECT_NE(std::find(plugin.begin(), plugin.end(), row), plugin.end())
        << "not what the plug-in does: " << row;
  }
  EXPECT_EQ(documented, plugin) << "rows are listed in the plug-in's (byte-wise) order";
}

}  // namespace
