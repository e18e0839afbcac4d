#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the libFuzzer targets and runs each for a bounded time; any finding
# (crash, leak, undefined behaviour, timeout, out-of-memory) fails the script.
#   scripts/fuzz.sh            20 s per target (CI)
#   scripts/fuzz.sh 3600       an hour per target
# Environment: FUZZ_JOBS (targets at once, default 2), FUZZ_BUILD (build dir,
# default build-fuzz), FUZZ_TARGETS (space-separated subset), FUZZ_RUNS (stop
# each target after this many executions instead of after the time).
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-20}
jobs=${FUZZ_JOBS:-2}
build=${FUZZ_BUILD:-$top/build-fuzz}
targets=${FUZZ_TARGETS:-"cert crl content_info add_input base64 crl_compare verify_image"}

cmake -G Ninja -S "$top" -B "$build" -DCHECKTOOL_WERROR=ON -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCHECKTOOL_FUZZ=ON -DCHECKTOOL_TESTS=OFF -DCHECKTOOL_FORGE=OFF >/dev/null
cmake --build "$build" -j "$jobs" >/dev/null

bin=$build/fuzz
work=$bin/run
mkdir -p "$work/upgradetool-log"
# A smaller quarantine and no fill of fresh blocks: the targets allocate and
# free whole contexts per input, and the default settings spend about a fifth
# of the time faulting in fresh pages and filling them.
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:allocator_may_return_null=1:quarantine_size_mb=16:max_malloc_fill_size=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

# Seeds: the fixture directories of what a target decodes, and for the
# two-part targets the inputs make_seeds.py derives.
seed_dirs() {
  local d
  case $1 in
    cert) d="pki" ;; crl) d="crl" ;; content_info) d="sig" ;; add_input) d="pki crl crlfiles sig" ;;
    base64) d="sig crlfiles" ;; *) echo "$bin/seeds/$1"; return ;;
  esac
  for d in $d; do echo "$top/tests/testdata/$d"; done
}

run_one() { # target: grows $bin/corpus/<target> from the seeds; findings land in $bin/artifacts/<target>
  local t=$1
  mkdir -p "$bin/corpus/$t" "$bin/artifacts/$t"
  # shellcheck disable=SC2046 # one directory per word
  (cd "$work" && "$bin/fuzz_$t" -max_total_time="$seconds" ${FUZZ_RUNS:+-runs="$FUZZ_RUNS"} -timeout=25 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$bin/artifacts/$t/" "$bin/corpus/$t" $(seed_dirs "$t")) >"$bin/$t.log" 2>&1
}

pids=() names=()
failed=0
wait_some() { # waits for the oldest running target and records its outcome
  local pid=${pids[0]} t=${names[0]}
  pids=("${pids[@]:1}") names=("${names[@]:1}")
  if wait "$pid"; then
    local runs secs
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$bin/$t.log")
    secs=$(sed -n 's/^Done [0-9]* runs in \([0-9]*\) second.*/\1/p' "$bin/$t.log")
    printf '%-14s ok   %12s runs in %6s s (%s/s)\n' "$t" "$runs" "$secs" "$(( runs / (secs > 0 ? secs : 1) ))"
  else
    printf '%-14s FAIL: see %s and %s\n' "$t" "$bin/$t.log" "$bin/artifacts/$t"
    grep -m3 -E 'ERROR|runtime error|SUMMARY' "$bin/$t.log" || true
    failed=1
  fi
}
for t in $targets; do
  [ "${#pids[@]}" -ge "$jobs" ] && wait_some
  run_one "$t" &
  pids+=($!) names+=("$t")
done
while [ "${#pids[@]}" -gt 0 ]; do wait_some; done
[ "$failed" = 0 ] && echo "fuzzing: no findings" || { echo "fuzzing: findings"; exit 1; }
