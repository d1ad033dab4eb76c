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
#
# With --desktop, the desk demo (a 1280x800 order desk: a sidebar, a table, a form, a dialog) runs
# instead of the shop, in a window when there is a display and offscreen otherwise, and waits for
# a person at the console (start a session for its device; it joins at once).
set -euo pipefail
cd "$(dirname "$0")/.."

scripted=0
desktop=0
case "${1:-}" in
  --scripted) scripted=1 ;;
  --desktop) desktop=1 ;;
  "") ;;
  *) echo "usage: $0 [--scripted | --desktop]" >&2; exit 64 ;;
esac
[ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] && [ "$desktop" -eq 0 ] && scripted=1

scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j 2 --target halvora-cli halvora-demo-shop halvora-desktop-demo

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

# Runs an application for a person at the console until its window closes: PROGRAM NAME HINT...
serve_person() {
  local program="$1" name="$2"
  shift 2
  "$program" --api "$url" --data "$state/app" &
  shop=$!
  echo
  echo "The $name is running. Play the support agent in a browser:"
  echo "  console:  $url/console/"
  echo "  sign in:  demo / $(node -e 'process.stdout.write(JSON.parse(require("fs").readFileSync(process.argv[1])).password)' "$state/service.url.agent")"
  printf '%s\n' "$@"
  wait "$shop" || true
  exit 0
}

if [ "$desktop" -eq 1 ]; then
  if [ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
    export QT_QPA_PLATFORM=offscreen QT_QUICK_BACKEND=software
    echo "No display: the desk runs offscreen; the console still shows it."
  fi
  serve_person build/default/examples/quick-desktop/halvora-desktop-demo "desk demo (1280x800)" \
    "Start a session for the desk's device and press \"Actual size\" to see it one pixel per pixel." \
    "Close the desk's window or press Ctrl-C to stop."
fi

if [ "$scripted" -eq 0 ]; then
  serve_person build/default/examples/quick-demo/halvora-demo-shop "demo shop" \
    "Start a session for the shop's device (the shop asks you to approve it), or tap \"Get help\" in" \
    "the shop and join by the code it shows. Close the shop's window or press Ctrl-C to stop."
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
