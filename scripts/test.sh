#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test (C++ suites, the service's own tests, the
# command-line tool and the demo against the reference service). Pass a preset (default, asan,
# tsan) to choose the build; the default is "default", which also runs the consumer check: the SDK
# installed and added to small applications the three ways an integrator can (find_package,
# add_subdirectory, pkg-config), each run until it registers with the reference service.
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"

scripts/install-deps.sh
cmake --preset "$preset"
cmake --build --preset "$preset" -j 2
ctest --preset "$preset"
if [ "$preset" = default ]; then
  scripts/consumer-check.sh "build/$preset"
fi
