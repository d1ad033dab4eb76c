#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test (C++ suites, the service's own tests, the
# command-line tool against the reference service). Pass a preset (default, asan, tsan) to choose
# the build; the default is "default".
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"

scripts/install-deps.sh
cmake --preset "$preset"
cmake --build --preset "$preset" -j 2
ctest --preset "$preset"
