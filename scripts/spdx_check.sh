#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Lists every source file of the repository whose first lines (the second
# after a shebang) lack the project's SPDX licence identifier; fails if any.
#   scripts/spdx_check.sh
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"
missing=0
while IFS= read -r -d '' f; do
  if ! head -n 2 "$f" | grep -q 'SPDX-License-Identifier: Apache-2.0'; then
    echo "no SPDX identifier: $f"
    missing=1
  fi
done < <(git ls-files -z -- '*.c' '*.cc' '*.cpp' '*.h' '*.hpp' '*.py' '*.sh' '*.cmake' 'CMakeLists.txt' \
           '*/CMakeLists.txt' 'docs/*.[1-8]' '.ci/run' ':!tests/testdata/*')
exit $missing
