#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# alloc_fail_test.sh CHECKTOOL TESTDATA WORKDIR
# Counts the allocations of operations 1, 2 and 3 on good inputs, then fails
# each one in turn. Every run must end without a crash or a sanitizer report
# (leaks included) and log its result: a failing one, or the unchanged 0 when
# the failed allocation was not needed (a CRL file is first tried as a
# certificate, so the records and diagnostics of that trial are allocated
# and dropped for each CRL in it).
set -uo pipefail
tool=$1 data=$2 work=$3
rm -rf "$work" && mkdir -p "$work/upgradetool-log"
cd "$work" || exit 1
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
log=upgradetool-log/upgrade_crl.log
status=0

run() { # allocation to fail (0: none), then the tool's arguments; sets code and result
  local at=$1
  shift
  : > "$log"
  VEXA_FAIL_ALLOC_AT=$at VEXA_ALLOC_COUNT_FILE=count "$tool" "$@" > out 2> err
  code=$?
  result=$(sed -n 's/.*return result: \(-\{0,1\}[0-9]*\)\..*/\1/p' "$log" | tail -1)
}

flow() { # name, then the tool's arguments
  local name=$1 bad=0 unchanged=0 calls n why
  shift
  run 0 "$@"
  calls=$(cat count 2>/dev/null || echo 0)
  if [ "$code" != 0 ] || [ "$result" != 0 ] || [ -s err ]; then
    echo "$name: the run without failure gave exit $code, result '$result'"; cat err; status=1; return
  fi
  for ((n = 1; n <= calls; n++)); do
    run "$n" "$@"
    why=""
    if [ "$code" -ge 128 ] || grep -qE 'Sanitizer|runtime error' err; then
      why="crash or sanitizer report (exit $code)"
    elif ! grep -q 'malloc failed\.' "$log"; then
      why="allocation $n was not failed"
    elif [ -z "$result" ]; then
      why="no result logged (exit $code)"
    elif [ "$result" = 0 ]; then
      unchanged=$((unchanged + 1))
    fi
    [ -z "$why" ] || { echo "$name: allocation $n: $why"; head -20 err; bad=1; }
  done
  echo "$name: $calls allocations, each failed in turn: $((calls - unchanged)) failed the operation," \
    "$unchanged not needed (result unchanged): $([ $bad = 0 ] && echo ok || echo FAILED)"
  [ $bad = 0 ] || status=1
}

flow "operation 1 (good.der, good.der)" 1 "$data/crlfiles/good.der" "$data/crlfiles/good.der"
flow "operation 2 (good.der)" 2 "$data/crlfiles/good.der"
flow "operation 3 (good.der, valid.img)" 3 "$data/crlfiles/good.der" "$data/images/valid.img"
exit $status
