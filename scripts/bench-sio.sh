#!/usr/bin/env bash
# Compares sio with the official JavaScript client on the same Socket.IO server: binary "frame"
# events (30 KB by default), each acknowledged. Prints messages/second and the median round trip
# of each client and the ratios (sio / JavaScript).
#   scripts/bench-sio.sh [BUILD_DIR] [--messages N] [--size BYTES] [--round-trips N]
# BUILD_DIR (default build/default) gets the sio_frame_bench target built first.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build/default}"
shift || true
peer_dir="$root/sio/conformance"

[ -d "$peer_dir/node_modules" ] || (cd "$peer_dir" && npm ci --no-audit --no-fund)
[ -f "$build/CMakeCache.txt" ] || cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$build" --target sio_frame_bench
bench="$build/bench/sio_frame_bench"

work="$(mktemp -d)"
peer_pid=""
cleanup() {
  [ -n "$peer_pid" ] && kill "$peer_pid" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# The server's default heartbeat: the measurement is about the frame path, not the heartbeat.
node "$peer_dir/peer.js" --port-file "$work/ports.json" --ping-interval 25000 --ping-timeout 20000 --quiet &
peer_pid=$!
for _ in $(seq 1 100); do
  [ -s "$work/ports.json" ] && break
  sleep 0.1
done
[ -s "$work/ports.json" ] || { echo "peer server did not start" >&2; exit 1; }
port="$(node -e 'console.log(JSON.parse(require("fs").readFileSync(process.argv[1])).port)' "$work/ports.json")"
url="ws://127.0.0.1:$port"

"$bench" "$url" "$@" > "$work/sio.json"
node "$peer_dir/bench-client.js" "$url" "$@" > "$work/js.json"

node - "$work/sio.json" "$work/js.json" <<'JS'
const fs = require("fs");
const [ours, theirs] = process.argv.slice(2).map((f) => JSON.parse(fs.readFileSync(f, "utf8")));
const row = (r) => `${r.client.padEnd(18)} ${r.messagesPerSecond.toFixed(0).padStart(10)} ${r.medianRoundTripMs.toFixed(3).padStart(12)}`;
console.log(`${ours.messages} events of ${ours.bytes} bytes, each acknowledged`);
console.log(`${"client".padEnd(18)} ${"messages/s".padStart(10)} ${"median RTT ms".padStart(12)}`);
console.log(row(ours));
console.log(row(theirs));
console.log(`ratio sio/js: throughput ${(ours.messagesPerSecond / theirs.messagesPerSecond).toFixed(2)}, ` +
            `median RTT ${(ours.medianRoundTripMs / theirs.medianRoundTripMs).toFixed(2)}`);
JS
