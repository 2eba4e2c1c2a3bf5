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

// Hands the page to `emit` piece by piece, in order.
template <typename Emit>
void EmitPage(const PageData& data, Emit emit) {
  // The template names the slots in this order: style in the head, then data, then script.
  std::string_view rest = resources::kReportHtml;
  size_t at = rest.find(kStyleSlot);
  if (at != std::string_view::npos) {
    emit(rest.substr(0, at));
    emit(resources::kReportCss);
    rest = rest.substr(at + kStyleSlot.size());
  }
  at = rest.find(kDataSlot);
  if (at != std::string_view::npos) {
    emit(rest.substr(0, at));
    std::string object;
    AppendScriptSafeJson(object, data.object);
    // The written members join the object before its closing brace.
    object.pop_back();
    bool first = object.size() == 1;  // nothing but the opening brace
    for (const PageData::Written& member : data.written) {
      if (!first) object += ',';
      first = false;
      AppendJsonString(object, member.name);
      object += ':';
      emit(object);
      for (const std::string& piece : member.pieces) emit(piece);
      object.clear();
    }
    object += '}';
    emit(object);
    rest = rest.substr(at + kDataSlot.size());
  }
  at = rest.find(kScriptSlot);
  if (at != std::string_view::npos) {
    emit(rest.substr(0, at));
    emit(resources::kReportJs);
    rest = rest.substr(at + kScriptSlot.size());
  }
  emit(rest);
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
  std::string page;
  EmitPage(data, [&page](std::string_view piece) { page.append(piece); });
  return page;
}

Status WriteReportPage(const std::string& path, const PageData& data) {
  ProfileScope step("report: write page");
  return WriteFileAtomically(path, [&data](int fd) {
    // Small pieces are gathered so that the file is written in large blocks.
    constexpr size_t kBlock = size_t{1} << 16;
    std::string buffer;
    bool ok = true;
    EmitPage(data, [&](std::string_view piece) {
      if (!ok) return;
      if (buffer.size() + piece.size() <= kBlock) {
        buffer.append(piece);
        return;
      }
      ok = WriteAll(fd, buffer) && WriteAll(fd, piece);
      buffer.clear();
    });
    return ok && WriteAll(fd, buffer);
  });
}

}  // namespace report
}  // namespace cli
}  // namespace tesu
