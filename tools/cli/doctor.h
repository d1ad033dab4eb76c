#pragma once
// `halvora-cli doctor`: walks the library through a device's whole round trip with the service,
// one printed line per step, and stops at the first failure.

#include <chrono>
#include <ostream>

#include "tools/cli/host_setup.h"

namespace halvora::cli {

// Expects the host installed and the library configured but not started. Prints the steps to
// `out` and returns the exit code: kExitOk when every step passed, else kExitFailure.
int runDoctor(const Host& host, std::chrono::milliseconds timeout, std::ostream& out, std::ostream& err);

}  // namespace halvora::cli
