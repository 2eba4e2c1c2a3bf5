// What tesu-convert does once its command line is accepted.
#ifndef TESU_TOOLS_CONVERT_COMMAND_H
#define TESU_TOOLS_CONVERT_COMMAND_H

#include <ostream>

#include "cli_options.h"

namespace tesu {
namespace cli {

// Lists the frameworks, dumps JSON or converts, as the options say. Results go to `out`, errors
// to `err`. Returns the process exit status: 0 on success, the parser's status (1-255, else 1)
// when it failed, 1 for any other failure and 2 for options refused on closer look.
int Run(const CliOptions& options, std::ostream& out, std::ostream& err);

}  // namespace cli
}  // namespace tesu

#endif
