#!/usr/bin/env bash
# The demo: builds what is needed, starts the reference service on loopback, checks the endpoint
# with halvora-cli doctor, then runs two live sessions with the demo shop (a Qt Quick application
# that embeds Halvora) and a scripted agent (the official JavaScript Socket.IO client):
#  1. agent-started: the agent starts a session for the shop, watches the frames, points, draws,
#     touches, types and ends it;
#  2. user-started: a played user taps "Get help", reads the code out, approves the agent, and
#     later ends the session from the red banner.
# The frames the agent received are kept in demo-frames/<flow>/ as JPEG files, and the shop's own
# window at each screen the user saw in demo-frames/user-started/user-*.png. With a display the shop's window shows the
# banner and the agent's annotations; without one it runs offscreen.
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
echo "Live session 1: the agent starts a session for the shop and operates it by touch and keyboard."
build/default/examples/quick-demo/halvora-demo-shop --api "$url" --data "$state/shop" &
shop=$!
rm -rf demo-frames
node service/tools/demo-agent.js "$url" --agent "$state/service.url.agent" --save demo-frames/agent-started --watch 10
kill "$shop" 2>/dev/null || true
wait "$shop" 2>/dev/null || true

echo
echo "Live session 2: the user asks for help in the shop, reads the code out and approves the agent."
build/default/examples/quick-demo/halvora-demo-shop --api "$url" --data "$state/shop" \
  --play-user 8 --screenshots demo-frames/user-started > >(tee "$state/user-shop.out") &
shop=$!
node service/tools/demo-agent.js "$url" --agent "$state/service.url.agent" --save demo-frames/user-started --code-from "$state/user-shop.out"
echo "The agent's view: $(ls demo-frames/agent-started | wc -l) frames in demo-frames/agent-started/,"
echo "$(ls demo-frames/user-started/frame-*.jpg | wc -l) in demo-frames/user-started/, with the shop's own"
echo "window at each screen the user saw: $(cd demo-frames/user-started && ls user-*.png | tr '\n' ' ')"
