#!/usr/bin/env bash
# Builds the Windows dependencies of tmain with mingw-w64, without the internet
# beyond Debian's own archive: Jansson and minizip from their Debian source
# packages (apt-get source), GoogleTest from the googletest package's sources
# in /usr/src/googletest. zlib comes from libz-mingw-w64-dev, the headers of
# GLM and CLI11 from libglm-dev and libcli11-dev. Everything is
# static and installed under build-win-deps/<arch> (lib/, include/ and
# lib/pkgconfig/); a finished architecture is not built again.
#
#   scripts/build-win-deps.sh x86_64|i686
set -euo pipefail

ARCH="${1:?usage: build-win-deps.sh x86_64|i686}"
case "$ARCH" in x86_64 | i686) ;; *) echo "build-win-deps: unknown architecture $ARCH" >&2; exit 2 ;; esac
ROOT="$(cd "$(dirname "$0")/.." && pwd)"
PREFIX="$ROOT/build-win-deps/$ARCH"
WORK="$ROOT/build-win-deps/src"
TRIPLE="$ARCH-w64-mingw32"
STAMP="$PREFIX/.complete-3"
[ -f "$STAMP" ] && exit 0

JOBS="$(nproc 2>/dev/null || echo 2)"
TOOLCHAIN="$ROOT/cmake/mingw-$ARCH.cmake"
mkdir -p "$PREFIX/lib/pkgconfig" "$PREFIX/include" "$WORK"

# Debian's source packages, fetched once for both architectures.
fetch() { # package -> prints the unpacked directory
  local pkg="$1" dir
  dir="$(find "$WORK" -maxdepth 1 -type d -name "$pkg-[0-9]*" | head -n1)"
  if [ -z "$dir" ]; then
    (cd "$WORK" && apt-get source -qq "$pkg" >/dev/null 2>&1) || {
      echo "build-win-deps: 'apt-get source $pkg' failed (is a deb-src entry configured? scripts/install-deps.sh adds one)" >&2
      exit 1
    }
    dir="$(find "$WORK" -maxdepth 1 -type d -name "$pkg-[0-9]*" | head -n1)"
  fi
  echo "$dir"
}

cmake_build() { # source-dir build-name cmake-args...
  local src="$1" build="$WORK/build-$2-$ARCH"
  shift 2
  cmake -S "$src" -B "$build" -DCMAKE_TOOLCHAIN_FILE="$TOOLCHAIN" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$PREFIX" -DBUILD_SHARED_LIBS=OFF "$@" >/dev/null
  cmake --build "$build" -j "$JOBS" >/dev/null
  cmake --install "$build" >/dev/null
}

echo "build-win-deps: building Jansson, minizip and GoogleTest for $TRIPLE"

# Jansson (its own CMake build writes jansson.pc).
JANSSON_SRC="$(fetch jansson)"
cmake_build "$JANSSON_SRC" jansson -DJANSSON_BUILD_DOCS=OFF -DJANSSON_EXAMPLES=OFF -DJANSSON_WITHOUT_TESTS=ON

# minizip 1.1: the library part of the package (ioapi, unzip, zip and the
# Win32 file functions), as Debian's libminizip does, against mingw's zlib.
MINIZIP_SRC="$(fetch minizip)"
MZ_BUILD="$WORK/build-minizip-$ARCH"
mkdir -p "$MZ_BUILD" "$PREFIX/include/minizip"
for f in ioapi unzip zip iowin32; do
  "$TRIPLE-gcc-posix" -O2 -c "$MINIZIP_SRC/$f.c" -o "$MZ_BUILD/$f.o" -I"$MINIZIP_SRC"
done
rm -f "$PREFIX/lib/libminizip.a"
"$TRIPLE-ar" rcs "$PREFIX/lib/libminizip.a" "$MZ_BUILD"/*.o
cp "$MINIZIP_SRC"/{ioapi,unzip,zip,iowin32,crypt}.h "$PREFIX/include/minizip/"
cat >"$PREFIX/lib/pkgconfig/minizip.pc" <<EOF
prefix=$PREFIX
libdir=\${prefix}/lib
includedir=\${prefix}/include

Name: minizip
Description: Minizip zip file manipulation library (mingw build of Debian's source)
Version: $(basename "$MINIZIP_SRC" | sed 's/^minizip-//')
Requires.private: zlib
Libs: -L\${libdir} -lminizip
Cflags: -I\${includedir}/minizip
EOF

# zlib from libz-mingw-w64-dev, linked statically (libz.a).
cat >"$PREFIX/lib/pkgconfig/zlib.pc" <<EOF
prefix=/usr/$TRIPLE
libdir=\${prefix}/lib
includedir=\${prefix}/include

Name: zlib
Description: zlib compression library (libz-mingw-w64-dev)
Version: 1.2.13
Libs: \${libdir}/libz.a
Cflags: -I\${includedir}
EOF

# GLM, the math tests' reference, is header-only: libglm-dev's headers serve
# every target.
rm -rf "$PREFIX/include/glm"
cp -r /usr/include/glm "$PREFIX/include/glm"
# CLI11, the command-line tool's argument parser, is header-only too (libcli11-dev).
rm -rf "$PREFIX/include/CLI"
cp -r /usr/include/CLI "$PREFIX/include/CLI"

# GoogleTest from the googletest package's sources.
cmake_build /usr/src/googletest gtest -Dgtest_disable_pthreads=OFF -DINSTALL_GTEST=ON -DBUILD_GMOCK=ON

touch "$STAMP"
echo "build-win-deps: done ($PREFIX)"
