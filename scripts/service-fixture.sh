#!/usr/bin/env bash
# Starts or stops a reference service for the integration tests.
#   service-fixture.sh start URL_FILE   writes the service's base URL to URL_FILE once it listens, and
#                                       the demo agent's sign-in to URL_FILE.agent
#   service-fixture.sh stop URL_FILE
set -euo pipefail
action="$1"
url_file="$2"
root="$(cd "$(dirname "$0")/.." && pwd)"
pid_file="$url_file.pid"

case "$action" in
  start)
    rm -f "$url_file"
    [ -f "$pid_file" ] && kill "$(cat "$pid_file")" 2>/dev/null || true
    rm -rf "$url_file.data" "$url_file.agent"
    # Every test plays the agent and the devices from this one address, polling as it waits: no
    # rate limits here (the service's own tests cover them).
    setsid node "$root/service/src/server.js" --port 0 --port-file "$url_file" --quiet --data "$url_file.data" \
      --demo-agent "$url_file.agent" --agent-rate-limit 0 --device-rate-limit 0 \
      >"$url_file.log" 2>&1 < /dev/null &
    echo $! > "$pid_file"
    for _ in $(seq 1 100); do
      [ -s "$url_file" ] && { echo "reference service at $(cat "$url_file")"; exit 0; }
      kill -0 "$(cat "$pid_file")" 2>/dev/null || break
      sleep 0.1
    done
    echo "reference service did not start:" >&2
    cat "$url_file.log" >&2 || true
    exit 1
    ;;
  stop)
    if [ -f "$pid_file" ]; then
      kill "$(cat "$pid_file")" 2>/dev/null || true
      rm -f "$pid_file"
    fi
    rm -rf "$url_file.data" "$url_file.agent"
    ;;
  *)
    echo "usage: $0 start|stop URL_FILE" >&2
    exit 64
    ;;
esac
