#include "report_page.h"

#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "framework/profiler.h"
#include "framework/proto_io.h"
#include "json_text.h"
#include "report_resources.h"

namespace tesu {
namespace cli {
namespace report {
namespace {

// Where the page template takes its style, script and data.
constexpr std::string_view kStyleSlot = "/*@style*/";
constexpr std::string_view kScriptSlot = "/*@script*/";
constexpr std::string_view kDataSlot = "@data";

// The page up to the end of the data's members but the summary: the template names the slots in
// this order: style in the head, then data, then script.
template <typename Emit>
void EmitHead(const nlohmann::json& object, const std::vector<PageData::Written>& written,
              Emit emit) {
  const std::string_view html = resources::kReportHtml;
  const size_t style = html.find(kStyleSlot);
  const size_t data = html.find(kDataSlot);
  emit(html.substr(0, style));
  emit(resources::kReportCss);
  emit(html.substr(style + kStyleSlot.size(), data - style - kStyleSlot.size()));
  std::string text;
  AppendScriptSafeJson(text, object);
  text.pop_back();                // the written members join the object before its closing brace
  bool first = text.size() == 1;  // nothing but the opening brace
  for (const PageData::Written& member : written) {
    if (!first) text += ',';
    first = false;
    AppendJsonString(text, member.name);
    text += ':';
    emit(text);
    for (const std::string& piece : member.pieces) emit(piece);
    text.clear();
  }
  emit(text);
}

// The rest: the summary, when there is one, as the data's last member, and the script.
template <typename Emit>
void EmitTail(const nlohmann::json* summary, bool firstMember, Emit emit) {
  std::string text;
  if (summary != nullptr) {
    text = firstMember ? "\"summary\":" : ",\"summary\":";
    AppendScriptSafeJson(text, *summary);
  }
  text += '}';
  emit(text);
  const std::string_view html = resources::kReportHtml;
  const size_t data = html.find(kDataSlot) + kDataSlot.size();
  const size_t script = html.find(kScriptSlot);
  emit(html.substr(data, script - data));
  emit(resources::kReportJs);
  emit(html.substr(script + kScriptSlot.size()));
}

bool FirstMember(const nlohmann::json& object, const std::vector<PageData::Written>& written) {
  return object.empty() && written.empty();
}

bool WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(written));
  }
  return true;
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

std::string ReportPage(const PageData& data) {
  nlohmann::json object = data.object;
  nlohmann::json summary;
  const auto found = object.find("summary");
  if (found != object.end()) {
    summary = std::move(*found);
    object.erase(found);
  }
  std::string page;
  auto emit = [&page](std::string_view piece) { page.append(piece); };
  EmitHead(object, data.written, emit);
  EmitTail(summary.is_null() ? nullptr : &summary, FirstMember(object, data.written), emit);
  return page;
}

Status WriteReportPage(const std::string& path, const PageData& data,
                       std::future<nlohmann::json> summary) {
  return WriteFileAtomically(path, [&](int fd) {
    // Small pieces are gathered so that the file is written in large blocks.
    constexpr size_t kBlock = size_t{1} << 16;
    std::string buffer;
    bool ok = true;
    auto emit = [&](std::string_view piece) {
      if (!ok) return;
      if (buffer.size() + piece.size() <= kBlock) {
        buffer.append(piece);
        return;
      }
      ok = WriteAll(fd, buffer) && WriteAll(fd, piece);
      buffer.clear();
    };
    {
      ProfileScope step("report: write page");
      EmitHead(data.object, data.written, emit);
      // The bulk of the page goes to the disk now, so that the sync that completes the page
      // has little left to do.
      ok = ok && WriteAll(fd, buffer) && fdatasync(fd) == 0;
      buffer.clear();
    }
    nlohmann::json summaryData;
    try {
      summaryData = summary.get();
    } catch (const std::future_error&) {
      return false;  // the run ended without a summary: no page
    }
    EmitTail(&summaryData, FirstMember(data.object, data.written), emit);
    return ok && WriteAll(fd, buffer);
  });
}

}  // namespace report
}  // namespace cli
}  // namespace tesu
