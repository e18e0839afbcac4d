#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Images have the exact byte layout: body length at 0x460, magic at 0x490,
# the body at 0x10000, the trailer at the second 16-byte boundary after the
# body, each block's length at bytes 12..15 of its header and its data right
# behind. Checked on forge's own output (trailer arithmetic, fault options)
# and on every committed image against its blocks.
#   layout_test.sh FORGE TESTDATA_DIR
set -uo pipefail
export LC_ALL=C
forge=$1 data=$2
work=$(mktemp -d /tmp/forge-layout-test.XXXXXX)
trap 'rm -rf "$work"' EXIT
passed=0 failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
expect_eq() { # label, got, want
  if [ "$2" = "$3" ]; then passed=$((passed + 1)); else fail "$1: got $2, want $3"; fi
}

# Each file is read once, as hex text; the helpers cut fields out of it into
# R without starting a process.
declare -A hex_of
load() { [ -n "${hex_of[$1]+x}" ] || hex_of[$1]=$(od -An -v -tx1 "$1" | tr -d ' \n'); }
size_of() { load "$1"; R=$((${#hex_of[$1]} / 2)); }
bytes_at() { load "$1"; R=${hex_of[$1]:$(($2 * 2)):$(($3 * 2))}; }
le32_at() { bytes_at "$1" "$2" 4; R=$((16#${R:6:2}${R:4:2}${R:2:2}${R:0:2})); }
trailer() { R=$((0x10000 + $1 + 32 - $1 % 16)); }
expect_field() { le32_at "$2" "$3"; expect_eq "$1" "$R" "$4"; } # label, file, offset, want
expect_bytes() { # label, image, offset, expected file
  load "$4"
  bytes_at "$2" "$3" $((${#hex_of[$4]} / 2))
  expect_eq "$1" "$R" "${hex_of[$4]}"
}
check_image() { # label, image, body, signature, content, crl
  local L t n
  size_of "$3"; L=$R
  trailer "$L"; t=$R
  expect_field "$1 body length" "$2" $((0x460)) "$L"
  bytes_at "$2" $((0x490)) 8
  expect_eq "$1 magic" "$R" 55aa55aa3412cdab
  size_of "$6"; n=$R
  size_of "$2"; expect_eq "$1 size" "$R" $((t + 0x2810 + n))
  size_of "$4"; expect_field "$1 signature length" "$2" $((t + 12)) "$R"
  size_of "$5"; expect_field "$1 content length" "$2" $((t + 0x200C)) "$R"
  expect_field "$1 CRL length" "$2" $((t + 0x280C)) "$n"
  expect_bytes "$1 body" "$2" $((0x10000)) "$3"
  expect_bytes "$1 signature" "$2" $((t + 16)) "$4"
  expect_bytes "$1 content" "$2" $((t + 0x2010)) "$5"
  expect_bytes "$1 CRL" "$2" $((t + 0x2810)) "$6"
}

# Trailer arithmetic: body lengths on both sides of a 16-byte boundary.
head -c 100 /dev/urandom > "$work/sig.bin"
head -c 50 /dev/urandom > "$work/content.bin"
head -c 30 /dev/urandom > "$work/crl.bin"
blocks=(--signature "$work/sig.bin" --content "$work/content.bin" --crl "$work/crl.bin")
for pair in 0x1000:0x11020 0x1001:0x11020 0x100F:0x11020 0x1010:0x11030 0:0x10020; do
  L=$((${pair%%:*}))
  "$forge" body --size "$L" --out "$work/body$L.bin" &&
    "$forge" image --body "$work/body$L.bin" "${blocks[@]}" --out "$work/img$L" ||
    { fail "forge image failed for L=$L"; continue; }
  trailer "$L"
  expect_eq "L=$L trailer" "$R" $((${pair##*:}))
  check_image "L=$L" "$work/img$L" "$work/body$L.bin" "${blocks[1]}" "${blocks[3]}" "${blocks[5]}"
done

# The NV counter record ends the body: flag A5 A5 5A 5A, then the counter.
"$forge" image --body-size 0x1001 --nvcnt 7 "${blocks[@]}" --out "$work/nv.img"
expect_field "NV body length" "$work/nv.img" $((0x460)) $((0x1009))
bytes_at "$work/nv.img" $((0x10000 + 0x1009 - 8)) 8
expect_eq "NV record" "$R" a5a55a5a07000000
trailer $((0x1009))
expect_field "NV trailer" "$work/nv.img" $((R + 12)) 100

# Fault options change exactly what they name.
"$forge" body --size 0 --out "$work/empty.bin"
"$forge" image --body "$work/empty.bin" "${blocks[@]}" --magic reversed --body-len 5 --sig-len 8177 \
  --content-len 1 --crl-len 0xFFFFFFFF --flip-content-byte 2 --truncate-by 3 --out "$work/bad.img"
trailer 0
t=$R
bytes_at "$work/bad.img" $((0x490)) 8
expect_eq "reversed magic" "$R" abcd1234aa55aa55
expect_field "overridden body length" "$work/bad.img" $((0x460)) 5
expect_field "overridden signature length" "$work/bad.img" $((t + 12)) 8177
expect_field "overridden content length" "$work/bad.img" $((t + 0x200C)) 1
expect_field "overridden CRL length" "$work/bad.img" $((t + 0x280C)) 4294967295
bytes_at "$work/content.bin" 2 1
want=$(printf '%02x' $((16#$R ^ 1)))
bytes_at "$work/bad.img" $((t + 0x2012)) 1
expect_eq "flipped content byte" "$R" "$want"
size_of "$work/bad.img"
expect_eq "truncated size" "$R" $((t + 0x2810 + 30 - 3))
"$forge" image --body "$work/empty.bin" --magic none --out "$work/nomagic.img"
bytes_at "$work/nomagic.img" $((0x490)) 8
expect_eq "no magic" "$R" 0000000000000000
size_of "$work/nomagic.img"
expect_eq "empty blocks" "$R" $((t + 0x2810))
head -c 8177 /dev/zero > "$work/big.bin"
"$forge" image --body "$work/empty.bin" --signature "$work/big.bin" --out "$work/x" 2>/dev/null &&
  fail "a signature over its 8176-byte room was placed"

# Every committed image matches the blocks its scenario names; each broken
# one is the valid image apart from its named defect (that the defect is
# there, the scenarios' refusals show).
cd "$data" || exit 1
declare -A seen_image
while IFS=$'\t' read -r name op args blocks _ _; do
  [ "$op" = 3 ] && [ -z "${seen_image[${args#* }]:-}" ] || continue
  img=${args#* }
  seen_image[$img]=1
  read -r sig content <<< "$blocks"
  [[ "$name" == layout_* ]] || check_image "$img" "$img" body/body.bin "$sig" "$content" crlfiles/good.der
done < scenarios.txt
expect_eq "images checked" "${#seen_image[@]}" 22
size_of body/body.bin
trailer "$R"
t=$R
only_differs_in() { # image, first offset of the defect, its length, bytes missing at the end
  local outside
  outside=$(cmp -l "images/$1.img" images/valid.img 2>/dev/null | awk -v lo="$2" -v n="$3" '$1 - 1 < lo || $1 - 1 >= lo + n' | wc -l)
  expect_eq "$1 bytes changed outside the defect" "$outside" 0
  size_of "images/$1.img"; local got=$R
  size_of images/valid.img; expect_eq "$1 size" "$got" $((R - $4))
}
only_differs_in no_magic $((0x490)) 8 0
only_differs_in reversed_magic $((0x490)) 8 0
only_differs_in truncated 0 0 1
only_differs_in crl_len_past_end $((t + 0x280C)) 4 0
only_differs_in sig_len_over_room $((t + 12)) 4 0
size_of body/body.bin
bytes_at images/no_nvcnt.img $((0x10000 + R - 8)) 8
expect_eq "no_nvcnt record" "$R" 0000000007000000
size_of body/soc_image.bin
bytes_at body/soc_image.bin $((R - 8)) 8
expect_eq "soc image record" "$R" a5a55a5a09000000

echo "$passed passed, $failures failed"
[ "$failures" = 0 ]
