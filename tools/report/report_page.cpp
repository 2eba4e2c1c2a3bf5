#include "report_page.h"

#include <string_view>

#include "framework/profiler.h"
#include "framework/proto_io.h"
#include "report_resources.h"

namespace tesu {
namespace cli {
namespace report {
namespace {

// Where the page template takes its style, script and data.
constexpr std::string_view kStyleSlot = "/*@style*/";
constexpr std::string_view kScriptSlot = "/*@script*/";
constexpr std::string_view kDataSlot = "@data";

// Appends `text` to `page` up to `slot`, then `content`; returns the rest of `text`.
std::string_view Fill(std::string& page, std::string_view text, std::string_view slot,
                      std::string_view content) {
  const size_t at = text.find(slot);
  if (at == std::string_view::npos) return text;
  page.append(text.substr(0, at));
  page.append(content);
  return text.substr(at + slot.size());
}

}  // namespace

void AppendScriptSafeJson(std::string& out, const nlohmann::json& data) {
  const std::string text = data.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  out.reserve(out.size() + text.size());
  // '<' occurs only inside strings, where "\u003c" means the same character.
  size_t from = 0;
  for (size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at + 1)) {
    if (at + 1 < text.size() && (text[at + 1] == '/' || text[at + 1] == '!')) {
      out.append(text, from, at - from);
      out += "\\u003c";
      from = at + 1;
    }
  }
  out.append(text, from, std::string::npos);
}

std::string ReportPage(const nlohmann::json& data) {
  const std::string_view html = resources::kReportHtml;
  const std::string_view css = resources::kReportCss;
  const std::string_view js = resources::kReportJs;
  std::string page;
  page.reserve(html.size() + css.size() + js.size());
  // The template names the slots in this order: style in the head, then data, then script.
  std::string_view rest = Fill(page, html, kStyleSlot, css);
  const size_t dataSlot = rest.find(kDataSlot);
  if (dataSlot != std::string_view::npos) {
    page.append(rest.substr(0, dataSlot));
    AppendScriptSafeJson(page, data);
    rest = rest.substr(dataSlot + kDataSlot.size());
  }
  rest = Fill(page, rest, kScriptSlot, js);
  page.append(rest);
  return page;
}

Status WriteReportPage(const std::string& path, const nlohmann::json& data) {
  ProfileScope step("report: write page");
  return WriteFileAtomically(path, ReportPage(data));
}

}  // namespace report
}  // namespace cli
}  // namespace tesu
