#include "check_report.h"

#include <sys/stat.h>

#include <fstream>

#include <nlohmann/json.hpp>

#include "convert/conversion.h"
#include "framework/pre_checker.h"

namespace tesu {
namespace convert {

CheckReportWatch::CheckReportWatch(const std::string& reportPath)
    : file_(PreChecker::ReportFile(reportPath)) {
  struct stat info {};
  existed_ = stat(file_.c_str(), &info) == 0;
  inode_ = existed_ ? info.st_ino : 0;
}

bool CheckReportWatch::Written() const {
  struct stat info {};
  if (stat(file_.c_str(), &info) != 0) return false;
  return !existed_ || info.st_ino != inode_;
}

nlohmann::json ReadCheckReport(const std::string& reportFile) {
  std::ifstream in(reportFile);
  nlohmann::json report = nlohmann::json::parse(in, nullptr, false);
  return report.is_object() ? report : nlohmann::json();
}

std::string UnsupportedTypes(const nlohmann::json& report) {
  if (!report.is_object()) return std::string();
  const auto types = report.find("unsupported_types");
  if (types == report.end() || !types->is_array()) return std::string();
  std::string text;
  for (const auto& entry : *types) {
    if (!entry.is_object()) continue;
    text += (text.empty() ? "" : ", ") + entry.value("type", std::string("?")) + " (" +
            std::to_string(entry.value("count", 0)) + ")";
  }
  return text;
}

}  // namespace convert
}  // namespace tesu
