// The temporary files of outputs being written, kept where a signal handler can find them.
#ifndef TESU_FRAMEWORK_PENDING_OUTPUTS_H
#define TESU_FRAMEWORK_PENDING_OUTPUTS_H

#include <string>

namespace tesu {

// A temporary file that is removed when the object is destroyed, unless Keep was called, and by
// RemovePendingOutputs while it is listed. It is listed before the file is created and unlisted
// once the file is renamed or removed.
class PendingOutput {
 public:
  explicit PendingOutput(std::string path);
  ~PendingOutput();
  PendingOutput(const PendingOutput&) = delete;
  PendingOutput& operator=(const PendingOutput&) = delete;

  const std::string& Path() const { return path_; }
  // The file was renamed to its final name (or never created): nothing to remove.
  void Keep();

 private:
  std::string path_;
  int slot_;  // -1 when the list was full or the path too long
};

// Removes every listed temporary file. Async-signal-safe.
void RemovePendingOutputs();

}  // namespace tesu

#endif
