#!/usr/bin/env bash
# Registers an application as the desktop's handler of Halvora session links
# (halvora://link.halvora.io/session/123456), for the current user:
#   scripts/register-links.sh DESKTOP_FILE [PROGRAM]
# DESKTOP_FILE is the application's .desktop entry (with MimeType=x-scheme-handler/halvora; and
# an Exec line ending in %u, as examples/quick-demo/halvora-demo-shop.desktop has); PROGRAM, when
# given, replaces the program its Exec line names (a build tree's executable, say). The entry is
# copied to ~/.local/share/applications and made the default for the scheme in
# ~/.config/mimeapps.list, as xdg-mime would (xdg-mime itself is used when installed).
# A link opened while the application runs reaches the running copy (see README, "Links").
set -euo pipefail

usage() { echo "usage: $0 DESKTOP_FILE [PROGRAM]" >&2; exit 64; }
[ $# -ge 1 ] && [ $# -le 2 ] || usage
entry="$1"
program="${2:-}"
[ -f "$entry" ] || { echo "$0: no such desktop entry: $entry" >&2; exit 66; }
grep -q '^MimeType=.*x-scheme-handler/halvora;' "$entry" || { echo "$0: $entry does not name x-scheme-handler/halvora in its MimeType" >&2; exit 65; }
grep -q '^Exec=.*%u' "$entry" || { echo "$0: $entry has no Exec line taking the link (%u)" >&2; exit 65; }
if [ -n "$program" ]; then
  [ -x "$program" ] || { echo "$0: not an executable: $program" >&2; exit 66; }
  program="$(cd "$(dirname "$program")" && pwd)/$(basename "$program")"
fi

applications="${XDG_DATA_HOME:-$HOME/.local/share}/applications"
config="${XDG_CONFIG_HOME:-$HOME/.config}"
name="$(basename "$entry")"
mkdir -p "$applications" "$config"
if [ -n "$program" ]; then
  # The program's path quoted for the Exec key: spaces and quotes inside double quotes.
  quoted="\"$(printf '%s' "$program" | sed 's/[\\"`$]/\\\\&/g')\""
  sed "s|^Exec=[^ ]*|Exec=$(printf '%s' "$quoted" | sed 's/[|&]/\\&/g')|" "$entry" > "$applications/$name"
else
  cp "$entry" "$applications/$name"
fi

if command -v xdg-mime >/dev/null 2>&1; then
  xdg-mime default "$name" x-scheme-handler/halvora
else
  list="$config/mimeapps.list"
  touch "$list"
  # Drop an earlier default for the scheme, then add ours under [Default Applications].
  sed -i '/^x-scheme-handler\/halvora=/d' "$list"
  if grep -q '^\[Default Applications\]' "$list"; then
    sed -i "/^\[Default Applications\]/a x-scheme-handler/halvora=$name" "$list"
  else
    printf '[Default Applications]\nx-scheme-handler/halvora=%s\n' "$name" >> "$list"
  fi
fi
command -v update-desktop-database >/dev/null 2>&1 && update-desktop-database "$applications" >/dev/null 2>&1 || true
echo "Session links (halvora://) now open $applications/$name"
