#!/usr/bin/env bash
# Rewrites tmain/tmain.h so that it includes every public header (all headers
# under tmain/ except detail/ folders).
set -euo pipefail
cd "$(dirname "$0")/.."
{
  echo '#pragma once'
  echo '/// Umbrella header: every public header of the library.'
  echo '#include <tmain/Export.h>'
  find tmain -name '*.h' ! -path '*/detail/*' ! -name tmain.h ! -name Export.h | LC_ALL=C sort | sed 's|^\(.*\)$|#include <\1>|'
} > tmain/tmain.h
