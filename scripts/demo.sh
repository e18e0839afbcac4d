#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds checktool and runs all five operations on the committed demo
# fixtures (made by forge/make_fixtures.sh): the CRL an image carries, CRL
# comparison and integrity, image verification (a good image and one whose
# signed content was changed by one byte), and the NV counter. Shows exit
# statuses, output files and the log lines each run added.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/deps.sh"
cmake -G Ninja -S "$top" -B "$top/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$top/build" -j "$(nproc)" --target checktool
tool="$top/build/bin/checktool"
data="$top/tests/testdata"
demo=$(mktemp -d /tmp/checktool-demo.XXXXXX)
log=/var/log/upgradetool/upgrade_crl.log

run() {
  local before=0
  [ -f "$log" ] && before=$(wc -l < "$log")
  echo "\$ checktool $*"
  set +e; "$tool" "$@"; local rc=$?; set -e
  echo "exit status: $rc"
  echo "new log lines:"
  tail -n +$((before + 1)) "$log" | grep -v '^\r\?$' | sed 's/^/  /'
  echo
}

echo "== operation 0: extract the CRL an image carries"
: > "$demo/image.crl"
run 0 "$data/images/valid.img" "$demo/image.crl"
echo "image.crl: $(stat -c %s "$demo/image.crl") bytes"
echo

echo "== operation 2: check one CRL file"
run 2 "$demo/image.crl"

echo "== operation 1: compare an update CRL file with the device's (the update is newer: verdict 1)"
run 1 "$data/crlfiles/cmp_newer.der" "$data/crlfiles/good.der"

echo "== operation 3: verify a signed image against a CRL file"
run 3 "$data/crlfiles/good.der" "$data/images/valid.img"

echo "== operation 3: the same image with one byte of its signed content changed"
run 3 "$data/crlfiles/good.der" "$data/images/content_changed.img"

echo "== operation 4: read the image's NV counter"
: > "$demo/nvcnt.txt"
run 4 0 "$data/images/valid.img" "$demo/nvcnt.txt"
echo "nvcnt.txt: $(cat "$demo/nvcnt.txt")"
echo
echo "demo output files are in $demo"
