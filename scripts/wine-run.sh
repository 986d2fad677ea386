#!/usr/bin/env bash
# Runs a Windows program of the cross build under wine and passes its exit
# status on. With --gtest it also demands GoogleTest's own summary: a run
# counts as passed only when the program exited 0 AND printed "[  PASSED  ]"
# with no "[  FAILED  ]" line, because a program that dies inside wine can
# still end with status 0.
#
#   scripts/wine-run.sh [--gtest] program.exe [arguments...]
#
# WINEPREFIX defaults to wineprefix/ beside the program (created on first
# use); WINEDEBUG defaults to -all.
set -uo pipefail

gtest=0
if [ "${1:-}" = "--gtest" ]; then
  gtest=1
  shift
fi
exe="${1:?usage: wine-run.sh [--gtest] program.exe [arguments...]}"
shift

WINE="${WINE:-}"
if [ -z "$WINE" ]; then
  for candidate in wine wine64 /usr/lib/wine/wine64; do
    if command -v "$candidate" >/dev/null 2>&1; then
      WINE="$candidate"
      break
    fi
  done
fi
[ -n "$WINE" ] || { echo "wine-run: no wine found (scripts/install-deps.sh installs it)" >&2; exit 1; }

export WINEPREFIX="${WINEPREFIX:-$(cd "$(dirname "$exe")" && pwd)/wineprefix}"
export WINEDEBUG="${WINEDEBUG:--all}"
# No wine-mono/gecko prompts, no desktop integration.
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=;winemenubuilder.exe=d}"
# The program's tests start Linux peers (nginx, python, node) that find their
# modules through the Linux environment, which wine passes on.

if [ "$gtest" -eq 0 ]; then
  "$WINE" "$exe" "$@"
  exit $?
fi

log="$(mktemp)"
trap 'rm -f "$log"' EXIT
"$WINE" "$exe" "$@" 2>&1 | tee "$log"
status=${PIPESTATUS[0]}
if [ "$status" -ne 0 ]; then
  echo "wine-run: $(basename "$exe") exited with status $status" >&2
  exit "$status"
fi
if grep -q '^\[  FAILED  \]' "$log" || ! grep -q '^\[  PASSED  \] [0-9]' "$log"; then
  echo "wine-run: $(basename "$exe") exited 0 without GoogleTest's passing summary" >&2
  exit 1
fi
exit 0
