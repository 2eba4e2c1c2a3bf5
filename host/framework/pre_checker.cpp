#include "framework/pre_checker.h"

#include <sys/stat.h>

#include <map>
#include <utility>

#include <nlohmann/json.hpp>

#include "framework/proto_io.h"
#include "log/log.h"

namespace tesu {
namespace {

constexpr const char* kReportFileName = "check_result.json";

bool IsDirectory(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace

std::string PreChecker::ReportFile(const std::string& path) {
  if (path.empty()) return kReportFileName;
  if (!IsDirectory(path)) return path;
  return path.back() == '/' ? path + kReportFileName : path + "/" + kReportFileName;
}

PreChecker::PreChecker(std::string name, const std::map<std::string, std::string>& supported)
    : name_(std::move(name)), supported_(supported) {}

size_t PreChecker::Append(const std::string& text) {
  const size_t at = text_.size();
  text_ += text;
  return at;
}

Status PreChecker::Check(const void* handle, const std::string& name, const std::string& type) {
  const size_t nameAt = Append(name);
  const size_t typeAt = Append(type);
  records_.push_back(Record{nameAt, typeAt, static_cast<uint32_t>(name.size()),
                            static_cast<uint32_t>(type.size()), 0});
  if (supported_.count(type) == 0) {
    causes_.push_back(Cause{kUnsupportedType, "operator type \"" + type + "\" is not supported"});
    ++records_.back().causeCount;
  }
  // An extra check fails the node by filling in its cause; a non-zero status means it could not
  // run at all and ends the check.
  for (const auto& entry : extraChecks_) {
    Cause cause;
    const Status status = entry.second(handle, cause);
    if (cause.code != 0 || !cause.message.empty()) {
      causes_.push_back(std::move(cause));
      ++records_.back().causeCount;
    }
    if (status != SUCCESS) return status;
  }
  return SUCCESS;
}

bool PreChecker::HasError() const {
  return !causes_.empty();
}

std::string PreChecker::ReportJson() const {
  // Keys stay in the order written here, so the summary comes first for a reader.
  using Json = nlohmann::ordered_json;
  Json ops = Json::array();
  std::map<std::string_view, size_t> unsupported;
  size_t failed = 0;
  auto cause = causes_.begin();
  for (const Record& record : records_) {
    const std::string_view type = Text(record.typeAt, record.typeSize);
    Json causes = Json::array();
    for (uint32_t i = 0; i < record.causeCount; ++i, ++cause) {
      causes.push_back(Json{{"code", cause->code}, {"message", cause->message}});
      if (cause->code == kUnsupportedType) ++unsupported[type];
    }
    if (record.causeCount != 0) ++failed;
    ops.push_back(Json{{"name", Text(record.nameAt, record.nameSize)},
                       {"type", type},
                       {"result", record.causeCount == 0 ? "pass" : "failed"},
                       {"causes", std::move(causes)}});
  }
  Json types = Json::array();
  for (const auto& entry : unsupported) {
    types.push_back(Json{{"type", entry.first}, {"count", entry.second}});
  }
  Json report;
  report["summary"] =
      Json{{"total", records_.size()}, {"passed", records_.size() - failed}, {"failed", failed}};
  report["unsupported_types"] = std::move(types);
  report["ops"] = std::move(ops);
  return report.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

Status PreChecker::Save(const std::string& path) const {
  const std::string file = ReportFile(path);
  const Status status = WriteFileAtomically(file, ReportJson());
  if (status != SUCCESS) {
    AI_Log_Print(AI_LOG_ERROR, "TESU_FMK", "cannot save the check report%s%s to %s",
                 name_.empty() ? "" : " of ", name_.c_str(), file.c_str());
  }
  return status;
}

}  // namespace tesu
