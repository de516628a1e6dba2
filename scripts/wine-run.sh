#!/usr/bin/env bash
# Runs one Windows program, 64- or 32-bit, under Wine with a prefix of its own below
# build/deps (see cross-deps.sh). Its DLLs lie beside it.
#   scripts/wine-run.sh PROGRAM [ARGUMENT...]
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
deps=${KORIN_CROSS_DEPS:-$here/build/deps}

export WINEPREFIX=${KORIN_WINEPREFIX:-$deps/prefix}
export WINEDLLPATH=$deps/wine32/usr/lib/i386-linux-gnu/wine
export WINEDEBUG=${WINEDEBUG:--all}
export WINELOADER=/usr/lib/wine/wine64
# Neither a browser engine nor an entry in the desktop's menus.
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"
unset DISPLAY WAYLAND_DISPLAY

# The first start makes the prefix; programs started meanwhile wait for it.
(
  mkdir -p "$(dirname "$WINEPREFIX")"
  exec 9>"$WINEPREFIX.lock"
  flock 9
  if [ ! -e "$WINEPREFIX/.ready" ]; then
    rm -rf "$WINEPREFIX"
    "$WINELOADER" wineboot --init 9>&- >/dev/null 2>&1
    "$(dirname "$WINELOADER")/wineserver64" -w 9>&-
    touch "$WINEPREFIX/.ready"
  fi
)

# Wine's own programs, which the first one that needs them starts, hold its output open
# for minutes: a caller that waits for the end of a pipe gets the text from files.
[ -t 1 ] && exec "$WINELOADER" "$@"
texts=$(mktemp -d)
trap 'cat "$texts/out"; cat "$texts/err" >&2; rm -rf "$texts"' EXIT
"$WINELOADER" "$@" >"$texts/out" 2>"$texts/err"
