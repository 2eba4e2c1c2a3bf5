// The conversion report as one self-contained HTML page: the page, its style and its script
// are compiled into the program, and the data goes into the page as a JSON block, so opening
// the file needs nothing else.
#ifndef TESU_TOOLS_REPORT_REPORT_PAGE_H
#define TESU_TOOLS_REPORT_REPORT_PAGE_H

#include <future>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "framework/model_parser.h"

namespace tesu {
namespace cli {
namespace report {

// The page's data: one JSON object, given as its small members and as members already written
// as JSON text (see json_text.h), which go into the page as they are.
struct PageData {
  nlohmann::json object = nlohmann::json::object();
  struct Written {
    std::string name;
    std::vector<std::string> pieces;  // the value's JSON text, in pieces that are not joined
  };
  std::vector<Written> written;
};

// Appends the data as JSON text that can stand inside a <script> element: "</" and "<!" are
// written "\u003c/" and "\u003c!", so no name in the data can end the element or open a
// comment. Text that is not UTF-8 is replaced rather than refused.
void AppendScriptSafeJson(std::string& out, const nlohmann::json& data);

// The whole page for the data; a summary in the data's object comes last.
std::string ReportPage(const PageData& data);

// Writes the page, whole or not at all, in two steps: everything but the summary at once, on the
// calling thread, and flushed to the disk; then, once `summary` is ready (it holds the timings
// of the whole run, so it comes last), the summary and the rest of the page. `data` must not
// hold a summary. FILE_WRITE_FAILED when the page cannot be written or the summary is
// abandoned.
Status WriteReportPage(const std::string& path, const PageData& data,
                       std::future<nlohmann::json> summary);

}  // namespace report
}  // namespace cli
}  // namespace tesu

#endif
