// tesu-convert: converts a model file with a parser plug-in. Run with --help for the flags.
#include <iostream>

#include "cli_options.h"
#include "convert_command.h"
#include "framework/output_file.h"
#include "framework/profiler.h"
#include "log/log.h"

int main(int argc, char** argv) {
  // Interrupted runs leave no temporary files beside their outputs.
  tesu::RemoveTemporaryOutputsOnSignals();
  tesu::cli::CliOptions options;
  const tesu::cli::CommandLine line =
      tesu::cli::ParseCommandLine(argc, argv, options, std::cout, std::cerr);
  if (!line.run) return line.exitCode;
  tesu::log::SetLevel(options.logLevel);
  tesu::Profiler::Enable(options.profile);
  return tesu::cli::Run(options, std::cout, std::cerr);
}
