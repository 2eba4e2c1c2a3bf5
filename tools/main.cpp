// tesu-convert: converts a model file with a parser plug-in. Run with --help for the flags.
#include <iostream>
#include <new>

#include "cli_options.h"
#include "convert_command.h"
#include "framework/output_file.h"
#include "framework/profiler.h"
#include "log/log.h"
#include "status.h"

int main(int argc, char** argv) {
  // Interrupted runs leave no temporary files beside their outputs.
  tesu::RemoveTemporaryOutputsOnSignals();
  tesu::cli::CliOptions options;
  const tesu::cli::CommandLine line =
      tesu::cli::ParseCommandLine(argc, argv, options, std::cout, std::cerr);
  if (!line.run) return line.exitCode;
  tesu::log::SetLevel(options.logLevel);
  tesu::Profiler::Enable(options.profile);
  try {
    return tesu::cli::Run(options, std::cout, std::cerr);
  } catch (const std::bad_alloc&) {
    // Outputs being written have removed their temporary files on the way out, and the report
    // abandons its page when it is destroyed unwritten.
    const char* step = tesu::FailedStep();
    std::cerr << "tesu-convert: out of memory while " << (step != nullptr ? step : "converting")
              << "\n";
    return tesu::kOutOfMemory;
  }
}
