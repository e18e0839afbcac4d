#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Non-blank lines of test code (tests/ and fuzz/) against the rest of the
# code, counting C, C++, Python and shell sources.
set -euo pipefail
cd "$(dirname "$0")/.."
count() {
  git ls-files -- "$@" | grep -E '\.(c|cc|cpp|h|hpp|py|sh)$' | tr '\n' '\0' | xargs -0 cat | grep -cv '^[[:space:]]*$'
}
tests=$(count tests fuzz)
all=$(count .)
ratio=$((1000 * tests / (all - tests)))
echo "test code: $tests lines; other code: $((all - tests)) lines; ratio $((ratio / 10)).$((ratio % 10))%"
