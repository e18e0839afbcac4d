#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The script regenerates the committed fixture set byte for byte (keys come
# from fixed seeds, dates are fixed), so the committed files are what the
# script says and nothing else.
#   reproduce_test.sh FORGE MAKE_FIXTURES_SCRIPT TESTDATA_DIR
set -uo pipefail
work=$(mktemp -d /tmp/forge-reproduce-test.XXXXXX)
trap 'rm -rf "$work"' EXIT
if ! bash "$2" --forge "$1" --out "$work/testdata" > "$work/log" 2>&1; then
  cat "$work/log"
  echo "FAIL: forge/make_fixtures.sh failed"
  exit 1
fi
diff -r "$work/testdata" "$3" > "$work/diff" && { echo "1 passed, 0 failed"; exit 0; }
head -20 "$work/diff"
echo "FAIL: the committed fixtures differ from what forge/make_fixtures.sh makes; run it again"
exit 1
