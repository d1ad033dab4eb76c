#!/usr/bin/env bash
# Adds Halvora to applications the three ways an integrator can, and runs them against the
# reference service until each has registered its device:
#   1. cmake --install into a temporary prefix, then examples/minimal-quick with find_package;
#   2. examples/minimal-quick with the checkout as a subdirectory (add_subdirectory);
#   3. examples/minimal-cpp built with `pkg-config --cflags --libs halvora` against the prefix.
# Usage: scripts/consumer-check.sh [BUILD_DIR]   (default build/default, already built)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$(cd "${1:-$root/build/default}" && pwd)"
work="$root/build/consumers"   # kept between runs so the builds stay incremental
prefix="$work/prefix"
mkdir -p "$work"
tmp="$(mktemp -d)"
url_file="$tmp/service.url"
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  "$root/scripts/service-fixture.sh" stop "$url_file" >/dev/null 2>&1 || true
  rm -rf "$tmp"
}
trap cleanup EXIT

step() { printf '\n== %s\n' "$*"; }

step "install into $prefix"
rm -rf "$prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null
# Nothing internal may be installed: only headers under include/halvora.
if find "$prefix/include" -name '*.h' | grep -v "^$prefix/include/halvora/" | grep -q .; then
  echo "headers outside include/halvora were installed" >&2; exit 1
fi

step "find_package(Halvora) consumer"
cmake -S "$root/examples/minimal-quick" -B "$work/find-package" -G Ninja \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/find-package" -j 2

step "add_subdirectory consumer"
cmake -S "$root/examples/minimal-quick" -B "$work/subdirectory" -G Ninja \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DHALVORA_SOURCE_DIR="$root" >/dev/null
cmake --build "$work/subdirectory" -j 2

step "pkg-config consumer"
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
# shellcheck disable=SC2046  # pkg-config's flags are meant to be split
c++ "$root/examples/minimal-cpp/main.cpp" -o "$work/minimal-cpp" $(pkg-config --cflags --libs halvora)

# An application that includes an internal header must not compile against the package.
echo '#include "session/session_sockets.h"' > "$tmp/internal.cpp"
# shellcheck disable=SC2046
if c++ -fsyntax-only "$tmp/internal.cpp" $(pkg-config --cflags halvora) 2>/dev/null; then
  echo "an internal header compiled against the installed package" >&2; exit 1
fi

step "run each against the reference service"
"$root/scripts/service-fixture.sh" start "$url_file" >/dev/null
url="$(cat "$url_file")"
# The agent API answers signed-in agents only: the fixture's demo agent signs in once.
curl -fsS -o /dev/null -c "$tmp/agent.cookies" -H 'Content-Type: application/json' \
  --data-binary @"$url_file.agent" "$url/api/1/agent/sign-in"
# Waits until the program prints its device and the service sees that device's notification
# socket, which it opens right after registering.
registers() {
  local name="$1"; shift
  local log="$tmp/$name.log"
  : >"$log"  # exists before the loop reads it, however late the program starts
  env XDG_DATA_HOME="$tmp/$name-data" QT_QPA_PLATFORM=offscreen QT_QUICK_BACKEND=software \
    "$@" "$url" >"$log" 2>&1 &
  local pid=$!
  pids+=("$pid")
  for _ in $(seq 1 200); do
    local device
    device="$(sed -n 's/^device \(.*\)$/\1/p' "$log" | head -1)"
    if [ -n "$device" ] &&
       curl -fsS -b "$tmp/agent.cookies" "$url/api/1/agent/devices/$device/sockets" 2>/dev/null | grep -q '"notification":[1-9]'; then
      echo "$name: device $device registered"
      kill "$pid" 2>/dev/null || true
      return 0
    fi
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
  echo "$name did not register; its output:" >&2
  cat "$log" >&2
  return 1
}
registers find-package "$work/find-package/minimal-quick"
registers subdirectory "$work/subdirectory/minimal-quick"
registers pkg-config "$work/minimal-cpp"
echo "consumer check passed"
