#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Hardening checks for CI: a short bounded run of every fuzz target, then the
# allocation-failure injection build (ASan + UBSan + LeakSanitizer) failing
# every allocation of operations 1, 2 and 3 in turn.
#   scripts/hardening.sh [seconds per fuzz target, default 20]
# Build dirs: FUZZ_BUILD (default build-test/fuzz), ALLOC_BUILD (default
# build-test/alloc).
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-20}
jobs=$(nproc)
export FUZZ_BUILD=${FUZZ_BUILD:-$top/build-test/fuzz}
alloc=${ALLOC_BUILD:-$top/build-test/alloc}

"$top/scripts/fuzz.sh" "$seconds"

cmake -G Ninja -S "$top" -B "$alloc" -DCHECKTOOL_WERROR=ON -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER=clang \
  -DCMAKE_CXX_COMPILER=clang++ -DCHECKTOOL_SANITIZE=ON -DCHECKTOOL_ALLOC_FAIL_INJECTION=ON \
  -DCHECKTOOL_FORGE=OFF >/dev/null
cmake --build "$alloc" -j "$jobs" --target checktool_test >/dev/null
ctest --test-dir "$alloc" -R '^AllocFail\.' --output-on-failure -V >"$alloc/alloc_fail.log" 2>&1 ||
  { cat "$alloc/alloc_fail.log"; exit 1; }
grep -E '^[0-9]+: operation' "$alloc/alloc_fail.log" | sed 's/^[0-9]*: //'

echo "hardening checks passed"
