#!/usr/bin/env bash
# The demo: builds what is needed, starts the reference service on loopback, checks the endpoint
# with halvora-cli doctor, then runs a live session: halvora-cli listen is the device, a scripted
# agent (the official JavaScript Socket.IO client) starts a session for it, points, draws, touches,
# types and ends it. (The Qt Quick demo application and the agent console will take this over.)
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j 2 --target halvora-cli

state="$(mktemp -d)"
trap 'scripts/service-fixture.sh stop "$state/service.url"; rm -rf "$state"' EXIT
scripts/service-fixture.sh start "$state/service.url"
url="$(cat "$state/service.url")"
cli=build/default/examples/cli/halvora-cli

"$cli" --api "$url" --data "$state/device" doctor

echo
echo "Live session: the device listens, the agent starts a session for it."
"$cli" --api "$url" --data "$state/device" --quiet listen --duration 60 &
device=$!
node service/tools/demo-agent.js "$url"
wait "$device"
