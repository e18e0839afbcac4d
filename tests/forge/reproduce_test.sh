#!/usr/bin/env bash
# The script regenerates the committed fixture set byte for byte (keys come
# from fixed seeds, dates are fixed), so the committed files are what the
# script says and nothing else.
#   reproduce_test.sh FORGE MAKE_FIXTURES_SCRIPT TESTDATA_DIR
set -uo pipefail
forge=$1
script=$2
data=$3
work=$(mktemp -d /tmp/forge-reproduce-test.XXXXXX)
trap 'rm -rf "$work"' EXIT
if ! bash "$script" --forge "$forge" --out "$work/testdata" > "$work/log" 2>&1; then
  cat "$work/log"
  echo "0 passed, 1 failed"
  exit 1
fi
if diff -r "$work/testdata" "$data" > "$work/diff"; then
  echo "1 passed, 0 failed"
  exit 0
fi
head -20 "$work/diff"
echo "the committed fixtures differ from what forge/make_fixtures.sh makes; run it again"
echo "0 passed, 1 failed"
exit 1
