#!/usr/bin/env bash
# Checks the installed i686 Windows package of tmain:
#  - bin/tmain.dll is a 32-bit PE DLL whose export table holds the library's
#    public classes and nothing of its static dependencies (zlib, minizip,
#    Jansson) or of the C++ runtime;
#  - lib/libtmain.dll.a and the CMake package are there;
#  - a consumer built with find_package(tmain) and the i686 toolchain links
#    against tmain.dll, and runs under a 32-bit wine where one is installed.
#
#   scripts/check-win32-package.sh <install-prefix>
set -euo pipefail

ROOT="$(cd "$(dirname "$0")/.." && pwd)"
PREFIX="$(cd "${1:?usage: check-win32-package.sh <install-prefix>}" && pwd)"
OBJDUMP=i686-w64-mingw32-objdump
fail() { echo "check-win32-package: $*" >&2; exit 1; }

DLL="$PREFIX/bin/tmain.dll"
[ -f "$DLL" ] || fail "no $DLL"
[ -f "$PREFIX/lib/libtmain.dll.a" ] || fail "no import library lib/libtmain.dll.a"
[ -f "$PREFIX/lib/cmake/tmain/tmainConfig.cmake" ] || fail "no CMake package"
for dll in libstdc++-6.dll libgcc_s_dw2-1.dll libwinpthread-1.dll; do
  [ -f "$PREFIX/bin/$dll" ] || fail "runtime $dll not installed beside tmain.dll"
done

dump="$($OBJDUMP -p "$DLL")"
grep -q "file format pei-i386" <<<"$dump" || fail "tmain.dll is not a 32-bit PE image"
# The export table's name column ("[ordinal] name" lines after "[Ordinal/Name Pointer] Table").
exports="$(awk '/\[Ordinal\/Name Pointer\] Table/ {on = 1; next} on && /^[ \t]*\[ *[0-9]+\]/ {print $NF} on && /^$/ {on = 0}' <<<"$dump")"
count=$(wc -l <<<"$exports")
[ "$count" -gt 1000 ] || fail "only $count exported names"

# Every public class with out-of-line members is exported: its mangled name
# (length + name) appears among the exports. Headers of templates, enums and
# inline-only types have nothing to export.
missing=()
checked=0
while IFS= read -r header; do
  name="$(basename "$header" .h)"
  case "$name" in
    tmain | Export | Platform | SmartPtr | LessStr | Future | Callback | CKHashMap | ZIPEntry | Header | Proxy | \
      FileAlreadyExistsException | FileNotFoundException | InputStream | OutputStream | Timer | CriticalSection | \
      Singleton | Bound | Matrix3 | Matrix4 | TextStore | URLComponents | \
      Lookup3 | Base64 | URLEncode | Unicode | MathUtil | TimeParse) continue ;;
  esac
  checked=$((checked + 1))
  grep -q "${#name}${name}" <<<"$exports" || missing+=("$name")
done < <(cd "$PREFIX/include" && find tmain -name '*.h' | sort)
# Headers of free functions: one function of each stands for the header.
for fn in hashlittle2 base64_encode decodeURL toUTF8 nearestPowerOfTwo tstrptime; do
  checked=$((checked + 1))
  grep -q "${#fn}${fn}" <<<"$exports" || grep -qx "_\?${fn}" <<<"$exports" || missing+=("$fn")
done
[ ${#missing[@]} -eq 0 ] || fail "public classes or functions without exports: ${missing[*]}"

# Nothing of the static dependencies or the runtime leaks into the table.
leaked="$(grep -E '^(_?)(inflate|deflate|crc32|adler32|gz|compress|uncompress|zlib|unz|zip[A-Z]|json_|jansson|fill_win32|win32_|_ZN7testing|_ZNSt|_ZSt|__gxx|__cxa)' <<<"$exports" || true)"
[ -z "$leaked" ] || fail "dependency or runtime symbols exported: $(head -5 <<<"$leaked" | tr '\n' ' ')"
echo "check-win32-package: tmain.dll (pei-i386) exports $count names; $checked public classes and function headers checked"

# ---------------------------------------------------------------- consumer
WORK="$(mktemp -d)"
trap 'rm -rf "$WORK"' EXIT
mkdir -p "$WORK/src"
cat >"$WORK/src/main.cpp" <<'EOF'
#include <tmain/tmain.h>
#include <cstdio>
int main() {
    tarso::vfs::CacheMap map;
    map.addEntry(0, 10);
    map.addEntry(10, 5);
    core::SmartPtr<tarso::core::NamedObject> n(new tarso::core::NamedObject("pkg"));
    CSHA1 sha;
    sha.Update((const unsigned char*)"abc", 3);
    sha.Final();
    std::string hex;
    sha.ReportHash(hex);
    try {
        throw core::IllegalArgumentException("thrown %d", 1);
    } catch (const core::Exception& e) {
        std::printf("%u %s %s %s\n", map.getCachedSize(), n->getName(), hex.c_str(), e.getMessage());
    }
    return 0;
}
EOF
cat >"$WORK/src/CMakeLists.txt" <<'EOF'
cmake_minimum_required(VERSION 3.16)
project(consumer CXX)
set(CMAKE_CXX_STANDARD 17)
find_package(tmain REQUIRED)
add_executable(consumer main.cpp)
target_link_libraries(consumer PRIVATE tmain::tmain)
EOF
cmake -S "$WORK/src" -B "$WORK/build" -DCMAKE_TOOLCHAIN_FILE="$ROOT/cmake/mingw-i686.cmake" \
  -DCMAKE_PREFIX_PATH="$PREFIX" -DCMAKE_FIND_ROOT_PATH="$PREFIX" -DCMAKE_BUILD_TYPE=Release >/dev/null ||
  fail "the consumer does not configure with find_package(tmain)"
cmake --build "$WORK/build" >/dev/null || fail "the consumer does not build against the package"
# (The dump is read whole first: grep -q ends early, and pipefail would count objdump's SIGPIPE.)
imports="$($OBJDUMP -p "$WORK/build/consumer.exe")"
grep -q "DLL Name: tmain.dll" <<<"$imports" || fail "the consumer does not import tmain.dll"
echo "check-win32-package: consumer built with find_package(tmain), imports tmain.dll"

if dpkg-query -W -f='${Status}' wine32:i386 2>/dev/null | grep -q "install ok installed"; then
  cp "$PREFIX"/bin/*.dll "$WORK/build/"
  expected="15 pkg a9993e364706816aba3e25717850c26c9cd0d89d thrown 1"
  got="$(WINEPREFIX="$WORK/wine32" WINEARCH=win32 WINEDEBUG=-all wine "$WORK/build/consumer.exe" | tr -d '\r')"
  [ "$got" = "$expected" ] || fail "the consumer printed '$got', expected '$expected'"
  echo "check-win32-package: the consumer runs under 32-bit wine"
else
  echo "check-win32-package: wine32 is not installed (no i386 architecture here): the consumer was built, not run"
fi
