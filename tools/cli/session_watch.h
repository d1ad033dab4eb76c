#pragma once
// join and listen: the tool takes part in a live session like an application would, answers the
// agent's liveness probes and prints every event it receives, until the session ends.

#include <ostream>

#include "tools/cli/cli_options.h"
#include "tools/cli/host_setup.h"

namespace halvora::cli {

// Joins options.code and stays until the session ends (kExitOk), --duration runs out
// (kExitDurationElapsed) or joining fails (kExitFailure). The library must be configured.
int runJoin(const CliOptions& options, const Host& host, std::ostream& out, std::ostream& err);
// Registers, then waits for the agent to start a session for this device and stays in it as
// join does. Join failures are logged and the tool keeps waiting.
int runListen(const CliOptions& options, const Host& host, std::ostream& out, std::ostream& err);

}  // namespace halvora::cli
