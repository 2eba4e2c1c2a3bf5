// Finds outputs of one run that would land on the same file, or on the model being read.
#ifndef TESU_FRAMEWORK_OUTPUT_CLASH_H
#define TESU_FRAMEWORK_OUTPUT_CLASH_H

#include <string>
#include <vector>

namespace tesu {

// A path as the user gave it, with the flag that gave it ("--output").
struct FlaggedPath {
  std::string flag;
  std::string path;
};

// Empty when every output names a file of its own and none names the model; otherwise the line
// that refuses the run, naming both flags:
//   "--output d.out and --json ./d.out name the same file; each output needs a file of its own"
//   "--check_report m.pb would overwrite the model (--model m.pb); the model is only read"
// Two paths name the same file when they lead to one name once links, "." and ".." are resolved,
// or to one existing file (hard links). Outputs written in place (a FIFO, device, socket or
// descriptor such as /dev/stdout or /dev/null) never clash. Pass the file an output lands in,
// e.g. the check report's file inside a directory. Nothing is read or created.
std::string FindOutputClash(const FlaggedPath& model, const std::vector<FlaggedPath>& outputs);

}  // namespace tesu

#endif
