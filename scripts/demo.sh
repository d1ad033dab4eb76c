#!/usr/bin/env bash
# The demo: builds what is needed, starts the reference service on loopback, and runs the
# command-line host's end-to-end check against it. (The Qt Quick demo application and the agent
# console will take this over as they land.)
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j 2 --target halvora-cli

state="$(mktemp -d)"
trap 'scripts/service-fixture.sh stop "$state/service.url"; rm -rf "$state"' EXIT
scripts/service-fixture.sh start "$state/service.url"
url="$(cat "$state/service.url")"

build/default/examples/cli/halvora-cli --api "$url" --data "$state/device" doctor
