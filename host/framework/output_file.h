// Writing output files: whole or not at all for regular files, directly for streams and devices,
// and without leaving temporary files behind when the process is interrupted.
#ifndef TESU_FRAMEWORK_OUTPUT_FILE_H
#define TESU_FRAMEWORK_OUTPUT_FILE_H

#include <functional>
#include <string>

#include "framework/model_parser.h"
#include "status.h"

namespace tesu {

// Where an output path leads: symbolic links at its last component are followed (relative ones
// from the directory of the link), so that the file behind a link is replaced and the link
// stays. `descriptor` is N when the path names an open descriptor of this process
// (/dev/stdout, /dev/fd/N, /proc/self/fd/N), else -1.
struct OutputTarget {
  std::string path;
  int descriptor = -1;
};
// False, with the reason in `error`, when the links loop or one cannot be read.
bool ResolveOutputTarget(const std::string& path, OutputTarget& target, std::string& error);

// Writes `bytes` to `path`. A regular file (or a path where nothing is yet) is written through a
// temporary file in the same directory and a rename, so it ends holding all of the bytes or is
// left as it was; a file that existed keeps its permission bits. A FIFO, character device,
// socket or open descriptor of this process is written to directly. A symbolic link is followed
// and the file behind it written. Returns 0 on success and FILE_WRITE_FAILED otherwise; a
// failed allocation in the writer is passed on once the temporary file is removed.
Status WriteFileAtomically(const std::string& path, const std::string& bytes);
// The same, with the content written by `writer` to the file's descriptor; the writer returns
// false when it fails.
Status WriteFileAtomically(const std::string& path, const std::function<bool(int fd)>& writer);

// Makes SIGINT and SIGTERM remove the temporary files of the outputs being written and then end
// the process as the signal would have. Call once, before outputs are written; signals whose
// action is not the default one (ignored, or handled by the program) are left as they are.
void RemoveTemporaryOutputsOnSignals();

}  // namespace tesu

#endif
