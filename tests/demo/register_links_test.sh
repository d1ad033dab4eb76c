#!/usr/bin/env bash
# scripts/register-links.sh for a user of its own (a scratch HOME), without xdg-mime, as on a
# desktop that lacks xdg-utils: the entry is copied with the program's absolute path, made the
# scheme's only default however often it runs, and an entry that cannot take links is refused
# with nothing written.
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
home="$(mktemp -d)"
trap 'rm -rf "$home"' EXIT
# The tools the script needs, and not xdg-mime.
mkdir "$home/bin"
for tool in bash sed grep mkdir cp basename dirname touch cat; do ln -s "$(command -v "$tool")" "$home/bin/$tool"; done
run() { env -i HOME="$home" PATH="$home/bin" bash "$root/scripts/register-links.sh" "$@"; }
fail() { echo "FAIL: $*" >&2; exit 1; }

program="$home/my shop"
printf '#!/bin/sh\n' > "$program" && chmod +x "$program"
run "$root/examples/quick-demo/halvora-demo-shop.desktop" "$program" >/dev/null
run "$root/examples/quick-demo/halvora-demo-shop.desktop" "$program" >/dev/null
entry="$home/.local/share/applications/halvora-demo-shop.desktop"
grep -qx "Exec=\"$program\" %u" "$entry" || fail "Exec line: $(grep '^Exec=' "$entry")"
[ "$(grep -c '^x-scheme-handler/halvora=halvora-demo-shop.desktop$' "$home/.config/mimeapps.list")" = 1 ] ||
  fail "mimeapps.list: $(cat "$home/.config/mimeapps.list")"

printf '[Desktop Entry]\nExec=other %%u\n' > "$home/other.desktop"
status=0
run "$home/other.desktop" >/dev/null 2>&1 || status=$?
[ "$status" = 65 ] || fail "an entry without the scheme gave $status"
[ ! -e "$home/.local/share/applications/other.desktop" ] || fail "the refused entry was installed"
echo "register-links: installed with its program's path, one default, a wrong entry refused"
