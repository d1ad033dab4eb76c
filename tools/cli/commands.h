#pragma once
// The single-request commands (register, create, get) and the dispatch of every command.

#include <ostream>

#include "tools/cli/cli_options.h"
#include "tools/cli/host_setup.h"

namespace halvora::cli {

// Starts the library, runs options.command, prints its result to `out` and problems to `err`.
// Returns the exit code. The single-request commands leave the device registered: they only look.
int runCommand(const CliOptions& options, const Host& host, std::ostream& out, std::ostream& err);

}  // namespace halvora::cli
