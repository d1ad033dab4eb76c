#!/usr/bin/env bash
# halvora-cli end to end against a running reference service:
#   doctor_test.sh SERVICE_URL HALVORA_CLI
# 1. doctor passes every step against the service;
# 2. doctor against a closed port fails at the register step with exit 1;
# 3. get 000000 answers "Session not found" with exit 1.
set -u

if [[ $# -ne 2 ]]; then
    echo "usage: $0 SERVICE_URL HALVORA_CLI" >&2
    exit 2
fi
url=$1
cli=$2
if [[ ! -x $cli ]]; then
    echo "not an executable: $cli" >&2
    exit 2
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

fail() {
    echo "FAIL: $1" >&2
    echo "--- stdout" >&2
    cat "$work/out" >&2
    echo "--- stderr" >&2
    cat "$work/err" >&2
    failures=$((failures + 1))
}

# Runs halvora-cli with the given arguments; output in $work/out and $work/err, exit code in $status.
run() {
    "$cli" "$@" >"$work/out" 2>"$work/err"
    status=$?
}

# A loopback port that nothing listens on: one the kernel just handed out and that was closed again.
closed_port() {
    if command -v python3 >/dev/null; then
        python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1]); s.close()'
    elif command -v node >/dev/null; then
        node -e 'const s = require("net").createServer().listen(0, "127.0.0.1", () => { console.log(s.address().port); s.close(); });'
    else
        echo 1  # tcpmux: never served on a test machine
    fi
}

# 1. Every step passes.
run --api "$url" --data "$work/data" --timeout 20 doctor
if [[ $status -ne 0 ]]; then
    fail "doctor against $url exited with $status, expected 0"
else
    for step in "start" "register" "create session" "get session by code" "end session" "deregister and stop"; do
        if ! grep -Eq "^\[ OK \] $step +[0-9]+ ms\$" "$work/out"; then
            fail "doctor did not report step \"$step\" as OK"
        fi
    done
    grep -q '^All 6 steps passed$' "$work/out" || fail "doctor printed no summary"
    ! grep -q '^\[FAIL\]' "$work/out" || fail "doctor passed but printed a failed step"
fi

# 2. Nothing listening: the register step fails.
port=$(closed_port)
run --api "http://127.0.0.1:$port" --data "$work/data" --timeout 20 doctor
if [[ $status -ne 1 ]]; then
    fail "doctor against closed port $port exited with $status, expected 1"
elif ! grep -q '^\[FAIL\] register ' "$work/out"; then
    fail "doctor against closed port $port printed no [FAIL] register line"
fi

# 3. A code no session has.
run --api "$url" --data "$work/data" --timeout 20 --quiet get 000000
if [[ $status -ne 1 ]]; then
    fail "get 000000 exited with $status, expected 1"
elif ! grep -q 'Session not found' "$work/err"; then
    fail "get 000000 did not say \"Session not found\""
fi

if [[ $failures -ne 0 ]]; then
    echo "$failures check(s) failed" >&2
    exit 1
fi
echo "halvora-cli doctor checks passed"
