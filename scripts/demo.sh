#!/usr/bin/env bash
# The demo: builds what is needed, starts the reference service on loopback, checks the endpoint
# with halvora-cli doctor, then runs a live session: the demo shop (a Qt Quick application that
# embeds Halvora) tours its screens while a scripted agent (the official JavaScript Socket.IO
# client) starts a session for it, watches the frames, points, draws, touches, types and ends it.
# The frames the agent received are kept in demo-frames/ as JPEG files. With a display the shop's
# window shows the red banner and the agent's annotations; without one it runs offscreen.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j 2 --target halvora-cli halvora-demo-shop

state="$(mktemp -d)"
shop=""
cleanup() {
  [ -n "$shop" ] && kill "$shop" 2>/dev/null || true
  scripts/service-fixture.sh stop "$state/service.url"
  rm -rf "$state"
}
trap cleanup EXIT
scripts/service-fixture.sh start "$state/service.url"
url="$(cat "$state/service.url")"

build/default/tools/cli/halvora-cli --api "$url" --data "$state/cli" doctor

if [ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
  export QT_QPA_PLATFORM=offscreen QT_QUICK_BACKEND=software
  echo "No display: the shop runs offscreen; look at demo-frames/ afterwards."
fi
echo
echo "Live session: the agent starts a session for the shop and operates it by touch and keyboard."
build/default/examples/quick-demo/halvora-demo-shop --api "$url" --data "$state/shop" &
shop=$!
rm -rf demo-frames
node service/tools/demo-agent.js "$url" --save demo-frames --watch 10
echo "The agent's view of the session: $(ls demo-frames | wc -l) frames in demo-frames/"
