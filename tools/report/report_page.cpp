#include "report_page.h"

#include <string_view>

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

std::string ScriptSafeJson(const nlohmann::json& data) {
  const std::string text = data.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  std::string safe;
  safe.reserve(text.size() + text.size() / 64);
  // '<' occurs only inside strings, where "\u003c" means the same character.
  for (size_t i = 0; i < text.size(); ++i) {
    const bool opensTag =
        text[i] == '<' && i + 1 < text.size() && (text[i + 1] == '/' || text[i + 1] == '!');
    if (opensTag) {
      safe += "\\u003c";
    } else {
      safe += text[i];
    }
  }
  return safe;
}

std::string ReportPage(const nlohmann::json& data) {
  const std::string json = ScriptSafeJson(data);
  const std::string_view html = resources::kReportHtml;
  const std::string_view css = resources::kReportCss;
  const std::string_view js = resources::kReportJs;
  std::string page;
  page.reserve(json.size() + html.size() + css.size() + js.size());
  // The template names the slots in this order: style in the head, then data, then script.
  std::string_view rest = html;
  rest = Fill(page, rest, kStyleSlot, css);
  rest = Fill(page, rest, kDataSlot, json);
  rest = Fill(page, rest, kScriptSlot, js);
  page.append(rest);
  return page;
}

Status WriteReportPage(const std::string& path, const nlohmann::json& data) {
  return WriteFileAtomically(path, ReportPage(data));
}

}  // namespace report
}  // namespace cli
}  // namespace tesu
