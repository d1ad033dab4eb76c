#!/usr/bin/env bash
# Builds the libFuzzer targets and runs each for a while (default 30 s) from its seed corpus.
# New inputs go to a scratch directory, so the repository's seeds stay as committed.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-30}"

scripts/install-deps.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j 2

scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
for fuzzer in build/fuzz/fuzz/*_fuzzer; do
  name="$(basename "$fuzzer" _fuzzer)"
  mkdir -p "$scratch/$name"
  seeds=()
  [ -d "fuzz/corpus/$name" ] && seeds+=("fuzz/corpus/$name")
  echo "== $name: ${seconds}s"
  "$fuzzer" -max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$scratch/" \
    "$scratch/$name" "${seeds[@]}" 2>&1 | tail -n 12
done
