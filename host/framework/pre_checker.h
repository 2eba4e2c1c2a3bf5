#ifndef TESU_FRAMEWORK_PRE_CHECKER_H
#define TESU_FRAMEWORK_PRE_CHECKER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "framework/model_parser.h"

namespace tesu {

// Checks every node of a model against the table of supported operator types and writes the
// check report. Records every node, so the report lists all unsupported nodes, not the first.
class PreChecker {
 public:
  struct Cause {
    int32_t code = 0;
    std::string message;
  };
  enum CauseCode : int32_t {
    kUnsupportedType = 1,
  };
  using CheckFunc = std::function<Status(const void*, Cause&)>;

  // The table is kept by reference and must outlive the checker; its keys are the supported
  // types.
  PreChecker(std::string name, const std::map<std::string, std::string>& supported);

  // Records the node; an unsupported type is recorded with a cause naming the type. Returns 0
  // unless an extra check function fails, whose status is then returned.
  Status Check(const void* handle, const std::string& name, const std::string& type);
  bool HasError() const;
  // Writes the report as JSON. An existing directory gets "check_result.json" inside it. The
  // file is written whole or not at all.
  Status Save(const std::string& path) const;
  // Adds a check run on every node after the type check.
  void AddCheckFunc(const std::string& name, CheckFunc func) {
    extraChecks_[name] = std::move(func);
  }

  // The file that Save writes for `path`: the path itself, or "check_result.json" inside it when
  // it names an existing directory (an empty path names the working directory).
  static std::string ReportFile(const std::string& path);

  // The report as a JSON text, for callers that want it without a file.
  std::string ReportJson() const;

 private:
  // Names and types of all records are kept in one text, so recording a node costs no
  // allocation of its own.
  struct Record {
    size_t nameAt;
    size_t typeAt;
    uint32_t nameSize;
    uint32_t typeSize;
    uint32_t causeCount;  // its causes follow those of the records before it in causes_
  };

  std::string_view Text(size_t at, uint32_t size) const { return {text_.data() + at, size}; }
  size_t Append(const std::string& text);

  std::string name_;
  const std::map<std::string, std::string>& supported_;
  std::vector<Record> records_;
  std::vector<Cause> causes_;  // in record order
  std::string text_;
  std::map<std::string, CheckFunc> extraChecks_;
};

}  // namespace tesu

#endif
