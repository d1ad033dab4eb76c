#!/usr/bin/env bash
# Runs every fuzz target for a number of executions (default 10 million each), offline, from its
# seed corpus, and prints how many ran and whether anything crashed. Takes a long while; CI runs
# the short, time-bound scripts/fuzz.sh instead.
#   scripts/fuzz-long.sh [RUNS]
set -euo pipefail
cd "$(dirname "$0")/.."
runs="${1:-10000000}"

scripts/install-deps.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j 2

scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
# The settings-file target writes and syncs a file per input: in memory it runs four times faster.
[ -d /dev/shm ] && export TMPDIR=/dev/shm
failed=0
for fuzzer in build/fuzz/fuzz/*_fuzzer; do
  name="$(basename "$fuzzer" _fuzzer)"
  mkdir -p "$scratch/$name"
  seeds=()
  [ -d "fuzz/corpus/$name" ] && seeds+=("fuzz/corpus/$name")
  started=$(date +%s)
  if "$fuzzer" -runs="$runs" -print_final_stats=1 -artifact_prefix="$scratch/$name-" \
       "$scratch/$name" "${seeds[@]}" >"$scratch/$name.log" 2>&1; then
    outcome="no crash"
  else
    outcome="FAILED (see the input below)"
    failed=1
    tail -n 30 "$scratch/$name.log"
    ls "$scratch"/"$name"-* 2>/dev/null || true
  fi
  executed=$(sed -n 's/^stat::number_of_executed_units: *//p' "$scratch/$name.log")
  printf '%-16s %12s executions in %5ss: %s\n' "$name" "${executed:-?}" "$(( $(date +%s) - started ))" "$outcome"
done
exit "$failed"
