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
)

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "install-deps: installing ${missing[*]}"
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq >/dev/null
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
