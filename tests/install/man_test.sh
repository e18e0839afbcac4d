#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The manual pages format without a single groff warning and render through
# man(1). Exits 77 (skipped) when groff is not installed.
#
# man_test.sh PAGE...
set -euo pipefail
command -v groff > /dev/null || { echo "groff not installed; skipped"; exit 77; }
status=0
for page in "$@"; do
  warnings=$(groff -man -Tutf8 -ww -z "$page" 2>&1)
  if [ -n "$warnings" ]; then
    echo "FAIL: $page: $warnings"
    status=1
  fi
  if command -v man > /dev/null; then
    text=$(MANWIDTH=80 man -l "$page" 2>&1) || { echo "FAIL: man -l $page"; status=1; continue; }
    for section in NAME SYNOPSIS DESCRIPTION; do
      grep -q "^$section" <<< "$text" || { echo "FAIL: $page has no $section section"; status=1; }
    done
  fi
  echo "$page: checked"
done
exit $status
