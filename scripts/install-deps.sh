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
  wine wine64 g++-mingw-w64-x86-64-posix
)
# Node.js often comes from its own packages with npm inside; only a machine
# without any npm gets Debian's.
command -v npm >/dev/null 2>&1 || PACKAGES+=(npm)

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -ne 0 ]; then
  echo "install-deps: installing ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq >/dev/null
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
