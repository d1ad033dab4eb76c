#!/usr/bin/env bash
# The demo: builds what is needed, starts the reference service on loopback, checks the endpoint
# with halvora-cli doctor, and starts the demo shop (a Qt Quick application that embeds Halvora).
#
# With a display, it prints the agent console's address and the demo agent's sign-in and waits: a
# person opens the console in a browser, finds the shop's device, starts a session (the shop asks
# its user to approve), watches, points, draws, taps and types; or taps "Get help" in the shop and
# joins by the code it shows. Closing the shop's window (or Ctrl-C) ends the demo.
#
# Without a display, or with --scripted, a scripted agent (the official JavaScript Socket.IO client)
# does the tour instead, in two live sessions:
#  1. agent-started: the agent starts a session for the shop, watches the frames, points, draws,
#     touches, types and ends it;
#  2. user-started: a played user taps "Get help", reads the code out, approves the agent, and
#     later ends the session from the red banner.
# The frames the agent received are kept in demo-frames/<flow>/ as JPEG files, and the shop's own
# window at each screen the user saw in demo-frames/user-started/user-*.png.
set -euo pipefail
cd "$(dirname "$0")/.."

scripted=0
case "${1:-}" in
  --scripted) scripted=1 ;;
  "") ;;
  *) echo "usage: $0 [--scripted]" >&2; exit 64 ;;
esac
[ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] && scripted=1

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

if [ "$scripted" -eq 0 ]; then
  build/default/examples/quick-demo/halvora-demo-shop --api "$url" --data "$state/shop" &
  shop=$!
  password="$(node -e 'process.stdout.write(JSON.parse(require("fs").readFileSync(process.argv[1])).password)' \
    "$state/service.url.agent")"
  echo
  echo "The demo shop is running. Play the support agent in a browser:"
  echo "  console:  $url/console/"
  echo "  sign in:  demo / $password"
  echo "Start a session for the shop's device (the shop asks you to approve it), or tap \"Get help\" in"
  echo "the shop and join by the code it shows. Close the shop's window or press Ctrl-C to stop."
  wait "$shop" || true
  exit 0
fi

if [ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
  export QT_QPA_PLATFORM=offscreen QT_QUICK_BACKEND=software
  echo "No display: the shop runs offscreen and a scripted agent plays the console; look at demo-frames/ afterwards."
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
