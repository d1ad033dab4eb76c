#!/usr/bin/env bash
# Builds the libFuzzer targets and runs each from its seed corpus, either for a time (default
# 30 s each; CI's short run) or for a number of executions (the long offline run), and prints how
# many ran and whether anything crashed. New inputs go to a scratch directory, so the repository's
# seeds stay as committed.
#   scripts/fuzz.sh [SECONDS | --runs N] [TARGET...]    e.g. scripts/fuzz.sh --runs 10000000 sio_packet
set -euo pipefail
cd "$(dirname "$0")/.."
limit=(-max_total_time="${1:-30}")
if [ "${1:-}" = --runs ]; then
  limit=(-runs="${2:?--runs needs a number}")
  shift 2
elif [ $# -gt 0 ]; then
  shift
fi

scripts/install-deps.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j 2

scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
# The settings-file target writes and syncs a file per input: in memory it runs four times faster.
[ -d /dev/shm ] && export TMPDIR=/dev/shm
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=($(for f in build/fuzz/fuzz/*_fuzzer; do basename "$f" _fuzzer; done))
failed=0
for name in "${targets[@]}"; do
  fuzzer="build/fuzz/fuzz/${name}_fuzzer"
  [ -x "$fuzzer" ] || { echo "no fuzz target named $name" >&2; exit 2; }
  mkdir -p "$scratch/$name"
  seeds=()
  [ -d "fuzz/corpus/$name" ] && seeds+=("fuzz/corpus/$name")
  started=$(date +%s)
  if "$fuzzer" "${limit[@]}" -print_final_stats=1 -artifact_prefix="$scratch/$name-" \
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
