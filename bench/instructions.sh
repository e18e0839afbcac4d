#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Work per run, in instructions (valgrind --tool=callgrind), which repeat on
# a busy machine where times do not: checktool 1, 2 and 3 on the valid
# fixture, against a program that starts libcrypto without its
# configuration and makes one SHA-256 digest (bench/one_digest.c, built
# beside the tool), for the default build and one with libcrypto linked
# statically. The last column is the part spent in RSA public-key
# operations (RSA_public_decrypt, inclusive), which no change of ours
# removes: each signature of the chain is checked once.
#   bench/instructions.sh          (as root: checktool writes /var/log/upgradetool)
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
data=$top/tests/testdata
"$top/scripts/deps.sh"

build() { # dir, extra cmake arguments
  cmake -G Ninja -S "$top" -B "$1" -DCMAKE_BUILD_TYPE=Release -DCHECKTOOL_TESTS=OFF -DCHECKTOOL_FORGE=OFF \
    -DCHECKTOOL_BENCH=ON "${@:2}" > /dev/null
  cmake --build "$1" -j "$(nproc)" --target checktool one_digest > /dev/null
}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
count() { # command...: instructions executed, and those in RSA public-key operations
  # checktool 1 and 2 exit with their verdict
  valgrind --tool=callgrind --callgrind-out-file="$work/cg.out" "$@" > /dev/null 2>&1 || true
  printf '%s %s\n' "$(sed -n 's/^summary: *//p' "$work/cg.out")" \
    "$(callgrind_annotate --inclusive=yes "$work/cg.out" 2>/dev/null |
       awk '/[: ]RSA_public_decrypt / { gsub(",", "", $1); print $1; exit }')"
}
millions() { awk -v n="${1:-0}" 'BEGIN { printf "%.2f M", n / 1e6 }'; }

build "$top/build-instructions"
build "$top/build-instructions-static" -DCHECKTOOL_STATIC_CRYPTO=ON

row() { # label, build directory
  local base ct rsa ops
  read -r base _ < <(count "$2/bench/one_digest")
  printf '| %s | one digest | %s | | |\n' "$1" "$(millions "$base")"
  for ops in "3 $data/crlfiles/good.der $data/images/valid.img" \
             "1 $data/crlfiles/cmp_newer.der $data/crlfiles/good.der" "2 $data/crlfiles/good.der"; do
    # shellcheck disable=SC2086 # the operation's words
    read -r ct rsa < <(count "$2/bin/checktool" $ops)
    printf '| %s | checktool %s | %s | %sx | %s |\n' "$1" "${ops%% *}" "$(millions "$ct")" \
      "$(awk -v a="$ct" -v b="$base" 'BEGIN { printf "%.2f", a / b }')" "$(millions "$rsa")"
  done
}
echo "| build | program | instructions | ratio to one digest | of which RSA operations |"
echo "|---|---|---|---|---|"
row "shared libcrypto" "$top/build-instructions"
row "static libcrypto" "$top/build-instructions-static"
