#!/usr/bin/env bash
# Starts or stops the Socket.IO peer server of the sio conformance tests.
#   fixture.sh start PORT_FILE   writes the peer's ports (JSON) to PORT_FILE once it listens
#   fixture.sh stop PORT_FILE
set -euo pipefail
action="$1"
port_file="$2"
here="$(cd "$(dirname "$0")" && pwd)"
pid_file="$port_file.pid"

case "$action" in
  start)
    rm -f "$port_file"
    [ -f "$pid_file" ] && kill "$(cat "$pid_file")" 2>/dev/null || true
    setsid node "$here/peer.js" --port-file "$port_file" --path /custom/io --tls \
      >"$port_file.log" 2>&1 < /dev/null &
    echo $! > "$pid_file"
    for _ in $(seq 1 100); do
      [ -s "$port_file" ] && { echo "sio peer at $(cat "$port_file")"; exit 0; }
      kill -0 "$(cat "$pid_file")" 2>/dev/null || break
      sleep 0.1
    done
    echo "sio peer did not start:" >&2
    cat "$port_file.log" >&2 || true
    exit 1
    ;;
  stop)
    if [ -f "$pid_file" ]; then
      kill "$(cat "$pid_file")" 2>/dev/null || true
      rm -f "$pid_file"
    fi
    ;;
  *)
    echo "usage: $0 start|stop PORT_FILE" >&2
    exit 64
    ;;
esac
