#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds and runs the whole test suite: a g++ Release build and a clang build,
# both with warnings as errors (the clang one with the benchmarks, so they
# keep compiling), an AddressSanitizer + UndefinedBehaviorSanitizer build,
# then the hardening checks: every fuzz target for 20 s and the
# allocation-failure build, and last the armhf cross build with its suite
# under qemu-user. The install tests build the Debian packages and check
# them with lintian.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/deps.sh"
"$top/scripts/spdx_check.sh"
"$top/scripts/layer_check.sh"
jobs=$(nproc)

run_build() { # dir, then extra cmake arguments
  local dir=$1; shift
  cmake -G Ninja -S "$top" -B "$dir" -DCHECKTOOL_WERROR=ON "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
}

# Release: the optimiser's warnings differ from the other builds'.
run_build "$top/build-test/gcc" -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++
ctest --test-dir "$top/build-test/gcc" -j "$jobs" --output-on-failure

run_build "$top/build-test/clang" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCHECKTOOL_BENCH=ON
ctest --test-dir "$top/build-test/clang" -j "$jobs" --output-on-failure

run_build "$top/build-test/asan" -DCMAKE_BUILD_TYPE=Debug -DCHECKTOOL_SANITIZE=ON \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir "$top/build-test/asan" -j "$jobs" --output-on-failure

"$top/scripts/hardening.sh" 20

# 32-bit ARM, the bulk of the devices: cross-built, its whole suite under
# qemu-user, its packages through lintian.
"$top/scripts/cross.sh" armhf "$top/build-test/armhf"

echo "all test builds passed"
