#!/usr/bin/env bash
# The Windows lane (`make test-windows`):
#  1. the x86_64 flavour of the library and every test suite, cross-built
#     with mingw-w64 into build-win64 and run under wine by ctest
#     (scripts/wine-run.sh demands each suite's GoogleTest summary);
#  2. the product itself, the i686 tmain.dll with its import library and CMake
#     package, installed into build-win32/install; its exported symbols are
#     checked with objdump, and a consumer program is built against the
#     installed package with find_package(tmain). Where a 32-bit wine exists
#     (wine32, i386 architecture) the consumer also runs.
#
#   scripts/test-windows.sh <linux-build-dir>
# The Linux build directory provides the peers the tests start from wine
# (the NTLM proxy); the Makefile builds it first.
set -euo pipefail

ROOT="$(cd "$(dirname "$0")/.." && pwd)"
LINUX_BUILD="$(cd "${1:?usage: test-windows.sh <linux-build-dir>}" && pwd)"
JOBS="${JOBS:-$(nproc 2>/dev/null || echo 2)}"
cd "$ROOT"
started=$(date +%s)

# ---------------------------------------------------------------- x86_64 under wine
bash scripts/build-win-deps.sh x86_64
cmake -S . -B build-win64 -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-x86_64.cmake -DCMAKE_BUILD_TYPE=Release \
  -DTMAIN_BUILD_EXAMPLES=ON -DTMAIN_BUILD_TESTS=ON -DTMAIN_LINUX_BUILD_DIR="$LINUX_BUILD" >/dev/null
cmake --build build-win64 -j "$JOBS"

# One prefix for every suite, made before they start in parallel.
export WINEPREFIX="$ROOT/build-win64/wineprefix"
if [ ! -f "$WINEPREFIX/system.reg" ]; then
  echo "test-windows: creating the wine prefix"
  WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d" \
    "$(command -v wine || command -v wine64)" cmd /c exit >/dev/null 2>&1 || true
  # The registry files are written when the wine server ends.
  "$(command -v wineserver || echo /usr/lib/wine/wineserver64)" -w
  [ -f "$WINEPREFIX/system.reg" ] || { echo "test-windows: wine could not create $WINEPREFIX" >&2; exit 1; }
fi
# One wine server for the whole run: left to itself it exits a few seconds
# after the last program ends, and a program starting just then fails with
# "a wine server seems to be running, but I cannot connect to it".
# Its background services (winedevice) start here too, away from the pipes
# of the suites' output, which they would otherwise hold open.
WINESERVER="$(command -v wineserver || echo /usr/lib/wine/wineserver64)"
"$WINESERVER" -p
trap '"$WINESERVER" -k >/dev/null 2>&1 || true' EXIT
WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d" \
  "$(command -v wine || command -v wine64)" cmd /c exit </dev/null >/dev/null 2>&1 || true
(cd build-win64 && ctest --output-on-failure -j "$JOBS")

# The command-line tool under wine: local commands, exact output, exit codes.
tool() { bash scripts/wine-run.sh build-win64/tmain.exe "$@" 2>&1 | tr -d '\r'; }
expect() { # expected-output command...
  local want="$1" got
  shift
  got="$(tool "$@")"
  [ "$got" = "$want" ] || { echo "test-windows: 'tmain $*' printed '$got', expected '$want'" >&2; exit 1; }
}
expect "tmain $(sed -n 's/^project(tmain VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)" --version
expect "7" eval "1+2*x" x=3
printf '{"b":[1,2],"a":"x"}' >build-win64/tool-smoke.json
tool json --check build-win64/tool-smoke.json >/dev/null || { echo "test-windows: tmain json --check failed" >&2; exit 1; }
if tool cat build-win64/no-such-file >/dev/null; then
  echo "test-windows: tmain cat of a missing file succeeded" >&2
  exit 1
fi
echo "test-windows: the command-line tool runs under wine"

# ---------------------------------------------------------------- i686 DLL and package
bash scripts/build-win-deps.sh i686
cmake -S . -B build-win32 -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-i686.cmake -DCMAKE_BUILD_TYPE=Release \
  -DTMAIN_BUILD_EXAMPLES=ON -DTMAIN_BUILD_TESTS=OFF -DCMAKE_INSTALL_PREFIX="$ROOT/build-win32/install" >/dev/null
cmake --build build-win32 -j "$JOBS"
rm -rf build-win32/install
cmake --install build-win32 >/dev/null
bash scripts/check-win32-package.sh "$ROOT/build-win32/install"

echo "test-windows: passed in $(($(date +%s) - started)) s"
