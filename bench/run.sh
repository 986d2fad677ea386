#!/usr/bin/env bash
# Runs every benchmark built in the given build tree and prints their ratios.
set -euo pipefail
build="${1:-build-bench}"
for b in "$build"/bench_*; do
  [ -x "$b" ] || continue
  echo "== $(basename "$b")"
  "$b"
  echo
done
