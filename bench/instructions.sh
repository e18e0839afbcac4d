#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Work per run, in instructions (valgrind --tool=callgrind), which repeat on
# a busy machine where times do not: checktool 1, 2 and 3 on the valid
# fixture, against a program that starts libcrypto without its
# configuration and makes one SHA-256 digest (bench/one_digest.c), for the
# default build and one with libcrypto linked statically.
#   bench/instructions.sh          (as root: checktool writes /var/log/upgradetool)
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
data=$top/tests/testdata
"$top/scripts/deps.sh"
command -v valgrind > /dev/null || { apt-get install -y -q --no-install-recommends valgrind > /dev/null; }

build() { # dir, extra cmake arguments
  cmake -G Ninja -S "$top" -B "$1" -DCMAKE_BUILD_TYPE=Release -DCHECKTOOL_TESTS=OFF -DCHECKTOOL_FORGE=OFF \
    "${@:2}" > /dev/null
  cmake --build "$1" -j "$(nproc)" --target checktool > /dev/null
}
count() { # command...: instructions executed (checktool 1 and 2 exit with their verdict)
  { valgrind --tool=callgrind --callgrind-out-file=/dev/null "$@" 2>&1 >/dev/null || true; } |
    sed -n 's/.*Collected : *//p'
}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cc -O2 -o "$work/one_digest" "$top/bench/one_digest.c" -lcrypto
cc -O2 -o "$work/one_digest_static" "$top/bench/one_digest.c" -Wl,-Bstatic -lcrypto -Wl,-Bdynamic -ldl -pthread
build "$top/build-instructions"
build "$top/build-instructions-static" -DCHECKTOOL_STATIC_CRYPTO=ON

row() { # label, one-digest program, checktool
  local base ct ops
  base=$(count "$2")
  printf '| %s | one digest | %s | |\n' "$1" "$base"
  for ops in "3 $data/crlfiles/good.der $data/images/valid.img" \
             "1 $data/crlfiles/cmp_newer.der $data/crlfiles/good.der" "2 $data/crlfiles/good.der"; do
    # shellcheck disable=SC2086 # the operation's words
    ct=$(count "$3" $ops)
    printf '| %s | checktool %s | %s | %sx |\n' "$1" "${ops%% *}" "$ct" \
      "$(awk -v a="$ct" -v b="$base" 'BEGIN { printf "%.2f", a / b }')"
  done
}
echo "| build | program | instructions | ratio to one digest |"
echo "|---|---|---|---|"
row "shared libcrypto" "$work/one_digest" "$top/build-instructions/bin/checktool"
row "static libcrypto" "$work/one_digest_static" "$top/build-instructions-static/bin/checktool"
