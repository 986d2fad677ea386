#!/usr/bin/env bash
# Installs, from Debian's packages, whatever the build, the tests and the
# benchmarks need and the machine does not have yet. Safe to run twice;
# prints nothing when everything is already there.
set -euo pipefail

PACKAGES=(
  build-essential cmake pkg-config
  zlib1g-dev libminizip-dev libjansson-dev libcurl4-openssl-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev llvm
  libglm-dev libcereal-dev libboost-serialization-dev
  gzip pigz zip unzip python3 coreutils
  nginx-light squid curl openssl gss-ntlmssp libkrb5-dev
  python3-websockets python3-autobahn
  mcpp flex libmuparser-dev
  libcli11-dev tmux
  wine wine64 g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix libz-mingw-w64-dev dpkg-dev
)
# Node.js often comes from its own packages with npm inside; only a machine
# without any npm gets Debian's.
command -v npm >/dev/null 2>&1 || PACKAGES+=(npm)

# The Windows build compiles Jansson and minizip from Debian's source packages
# (scripts/build-win-deps.sh): apt needs the deb-src twin of the main archive.
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
SRC_LIST=/etc/apt/sources.list.d/tmain-deb-src.sources
need_update=0
if [ ! -f "$SRC_LIST" ] && [ -f /etc/apt/sources.list.d/debian.sources ]; then
  echo "install-deps: adding the deb-src entries of the Debian archive ($SRC_LIST)"
  sed 's/^Types: deb$/Types: deb-src/' /etc/apt/sources.list.d/debian.sources | $SUDO tee "$SRC_LIST" >/dev/null
  need_update=1
elif [ ! -f "$SRC_LIST" ] && [ -f /etc/apt/sources.list ]; then
  echo "install-deps: adding the deb-src entries of the Debian archive (${SRC_LIST%.sources}.list)"
  SRC_LIST="${SRC_LIST%.sources}.list"
  grep '^deb ' /etc/apt/sources.list | sed 's/^deb /deb-src /' | $SUDO tee "$SRC_LIST" >/dev/null
  need_update=1
fi

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -ne 0 ] || [ "$need_update" -eq 1 ]; then
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq >/dev/null
fi
if [ ${#missing[@]} -ne 0 ]; then
  echo "install-deps: installing ${missing[*]}"
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# The WebSocket tests' JavaScript client and the benchmark's peer server: the
# npm package ws, kept in the build tree (build/npm/node_modules, found by the
# tests through NODE_PATH).
NPM_PREFIX="$(cd "$(dirname "$0")/.." && pwd)/build/npm"
if [ ! -f "$NPM_PREFIX/node_modules/ws/package.json" ]; then
  echo "install-deps: npm install ws into $NPM_PREFIX"
  mkdir -p "$NPM_PREFIX"
  npm install --prefix "$NPM_PREFIX" --no-audit --no-fund --silent ws@8 >/dev/null
fi
