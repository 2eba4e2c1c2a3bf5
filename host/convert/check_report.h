// The operator support report that a parser writes during a conversion.
#ifndef TESU_CONVERT_CHECK_REPORT_H
#define TESU_CONVERT_CHECK_REPORT_H

#include <sys/types.h>
#include <string>

#include <nlohmann/json.hpp>

namespace tesu {
namespace convert {

// Notes the report file as it is before a conversion, to tell afterwards whether the
// conversion wrote it. The report is replaced by a rename, so a new write is a new inode.
class CheckReportWatch {
 public:
  explicit CheckReportWatch(const std::string& reportPath);
  // The file the report goes to (a directory path gets check_result.json inside it).
  const std::string& File() const { return file_; }
  bool Written() const;

 private:
  std::string file_;
  bool existed_ = false;
  ino_t inode_ = 0;
};

// The report as written; null when the file cannot be read or is not a JSON object.
nlohmann::json ReadCheckReport(const std::string& reportFile);

}  // namespace convert
}  // namespace tesu

#endif
