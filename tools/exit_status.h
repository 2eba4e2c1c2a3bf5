// The exit status a failed conversion reports, shared by every front end of the converter so
// that a script sees the same number whichever one it used.
#ifndef TESU_TOOLS_EXIT_STATUS_H
#define TESU_TOOLS_EXIT_STATUS_H

#include "framework/model_parser.h"

namespace tesu {
namespace cli {

// Any failure that is not a parser's own status.
constexpr int kFailure = 1;
// A file that holds no model, found before the parser sees it: the status the graph library
// gives a malformed model, so the exit status does not depend on who noticed.
constexpr int kNotAModel = 13;

// A parser's status as an exit status: the status itself when it fits (1-255), else kFailure.
inline int ExitCodeFor(Status status) {
  return status >= 1 && status <= 255 ? static_cast<int>(status) : kFailure;
}

}  // namespace cli
}  // namespace tesu

#endif
