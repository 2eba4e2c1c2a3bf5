// JSON text written straight into a string, for the report's large values: a graph of 100k nodes
// has columns of 100k entries, and building them as JSON values only to print them costs more
// than the rest of the report. The text can stand inside the page's <script> element.
#ifndef TESU_TOOLS_REPORT_JSON_TEXT_H
#define TESU_TOOLS_REPORT_JSON_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>

namespace tesu {
namespace cli {
namespace report {

// Appends `text` as the inside of a JSON string, without the quotes. '<' is written "\u003c",
// so that no text can end the script element or open a comment, and bytes that are not UTF-8
// become U+FFFD rather than making the page unreadable.
void AppendJsonChars(std::string& out, std::string_view text);

// The same with the quotes.
void AppendJsonString(std::string& out, std::string_view text);

void AppendJsonNumber(std::string& out, uint64_t value);

}  // namespace report
}  // namespace cli
}  // namespace tesu

#endif
