#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# checktool-update-gate under busybox sh and dash: each row names an image
# and the device's state before the gate runs, and what must come out: the
# exit status and the device CRL afterwards (unchanged, replaced by the
# image's CRL, or created). Then two gates at once, and a gate killed with
# SIGKILL at every step of the CRL replacement.
#   gate_test.sh GATE FORGE CHECKTOOL TESTDATA_DIR
set -uo pipefail
gate=$1 forge=$2 checktool=$3 data=$4
work=$(mktemp -d /tmp/gate-test.XXXXXX)
trap 'rm -rf "$work"' EXIT
cd "$work"
export CHECKTOOL_LOG=$work/upgradetool-log/upgrade_crl.log # the test build's relative log
failures=0

# ---- images: the fixture one (its content a manifest of its body) and variants
cp "$data/images/valid.img" valid.img
cp "$data/images/content_changed.img" tampered_content.img
newer() { "$forge" image --body "$data/body/body.bin" --signature "$data/sig/valid.der" \
  --content "$data/content/content.bin" --crl "$data/crlfiles/$1.der" --out "$2"; }
newer cmp_newer newer_crl.img
cp valid.img body_changed.img
printf '\x5a' | dd of=body_changed.img bs=1 seek=$((0x10000 + 10)) conv=notrunc 2> /dev/null
signed() { # name, content file, body file
  "$forge" sign --content "$2" --cert "$data/pki/signer.der" --cert "$data/pki/int.der" \
    --signer-cert "$data/pki/signer.der" --signer-key "$data/keys/signer.key" --tsa-cert "$data/pki/tsa.der" \
    --tsa-key "$data/keys/tsa.key" --gen-time 20260315120000Z --out "$1.sig" &&
    "$forge" image --body "$3" --signature "$1.sig" --content "$2" --crl "$data/crlfiles/good.der" --out "$1.img"
}
sed 's/^body-length: .*/body-length: 263/' "$data/content/content.bin" > wrong_length.txt
signed wrong_length wrong_length.txt "$data/body/body.bin"
echo "release notes only" > not_manifest.txt
signed not_manifest not_manifest.txt "$data/body/body.bin"
"$forge" body --size 256 --nvcnt 7 --nvcnt-flag 0 --out no_counter.body
"$forge" manifest --body no_counter.body --out no_counter.txt
signed no_counter no_counter.txt no_counter.body
"$forge" manifest --body "$data/body/body.bin" --out manifest.txt
cmp -s <(grep '^body-' "$data/content/content.bin") manifest.txt || {
  echo "FAIL forge manifest differs from the fixture's manifest lines"; failures=$((failures + 1)); }

# ---- rows: name, image, device CRL before (a fixture, "none"), stored counter
# ("-": none), expected exit, device CRL after (old, image, none)
rows=(
  "same CRL on the device|valid.img|good|-|0|old"
  "older CRL on the device: the image's replaces it|newer_crl.img|good|-|0|image"
  "damaged device CRL: replaced|valid.img|garbage|-|0|image"
  "first install: the image's CRL is written|valid.img|none|-|0|image"
  "device CRL revokes the signer|valid.img|signer_revoked|-|1|old"
  "signed content tampered|tampered_content.img|good|-|1|old"
  "body changed after signing|body_changed.img|good|-|1|old"
  "manifest names another body length|wrong_length.img|good|-|1|old"
  "signed content is not a manifest|not_manifest.img|good|-|1|old"
  "counter below the stored one: rollback|newer_crl.img|good|IMAGE_NVCNT=8|1|old"
  "counter equal to the stored one|newer_crl.img|good|IMAGE_NVCNT=7|0|image"
  "stored counter file malformed|valid.img|good|NVCNT=7|1|old"
  "image without a counter|no_counter.img|good|-|1|old"
)
extracted() { : > "$2" && "$checktool" 0 "$1" "$2" > /dev/null 2>&1; }
for shell in "busybox sh" dash; do
  for row in "${rows[@]}"; do
    IFS='|' read -r name image before stored want after <<< "$row"
    rm -rf dev && mkdir dev
    [ "$before" = none ] || cp "$data/crlfiles/$before.der" dev/crl
    [ "$stored" = - ] || echo "$stored" > dev/nvcnt
    extracted "$image" image_crl
    $shell "$gate" --checktool "$checktool" "$image" dev/crl dev/nvcnt > out 2> err
    got=$?
    case $after in
      old) expect_file=$data/crlfiles/$before.der ;;
      image) expect_file=image_crl ;;
    esac
    problem=
    [ "$got" = "$want" ] || problem="exit $got, want $want ($(cat err))"
    if [ "$want" = 0 ]; then
      [ "$(cat out)" = "IMAGE_NVCNT=7" ] && [ ! -s err ] || problem="$problem; stdout '$(cat out)', stderr '$(cat err)'"
    else
      [ "$(wc -l < err)" = 1 ] && grep -q '^checktool-update-gate: refused at step [2-7] ' err ||
        problem="$problem; stderr is not one refusal line: $(cat err)"
    fi
    cmp -s dev/crl "$expect_file" || problem="$problem; device CRL is not the $after one"
    [ -z "$(ls -A dev | grep -v '^crl$\|^crl.lock$\|^nvcnt$')" ] || problem="$problem; files left: $(ls -A dev)"
    if [ -n "$problem" ]; then
      echo "FAIL [$shell] $name: $problem"; failures=$((failures + 1))
    fi
  done
done

# ---- usage and environment: exit 2 with one line
for args in "valid.img" "--checktool /nonexistent valid.img dev/crl dev/nvcnt" "valid.img /nonexistent-dir/crl dev/nvcnt"; do
  # shellcheck disable=SC2086 # the words of a command line
  dash "$gate" $args > out 2> err
  got=$?
  [ "$got" = 2 ] && [ "$(wc -l < err)" = 1 ] || { echo "FAIL usage '$args': exit $got, $(cat err)"; failures=$((failures + 1)); }
done

# ---- two gates at once: the second waits for the first's lock
rm -rf dev && mkdir dev
flock dev/crl.lock -c 'touch held; while [ ! -e release ]; do sleep 0.05; done' &
holder=$!
while [ ! -e held ]; do sleep 0.05; done
dash "$gate" --checktool "$checktool" valid.img dev/crl dev/nvcnt > out1 2>&1 &
waiter=$!
sleep 0.5
if ! kill -0 $waiter 2> /dev/null || [ -e dev/crl ]; then
  echo "FAIL a gate ran while another held the lock"; failures=$((failures + 1))
fi
busybox sh "$gate" --checktool "$checktool" newer_crl.img dev/crl dev/nvcnt > out2 2>&1 &
second=$!
touch release
wait $holder
wait $waiter; s1=$?
wait $second; s2=$?
extracted newer_crl.img newest_crl
[ "$s1" = 0 ] && [ "$s2" = 0 ] && cmp -s dev/crl newest_crl ||
  { echo "FAIL two gates: exits $s1 $s2 ($(cat out1 out2)), device CRL not the newest"; failures=$((failures + 1)); }

# ---- SIGKILL at every step of the replacement: the whole old or the whole new file
extracted newer_crl.img new_crl
for shell in "busybox sh" dash; do
  for point in copy rename directory done; do
    rm -rf dev && mkdir dev && cp "$data/crlfiles/good.der" dev/crl
    CHECKTOOL_GATE_KILL_AT=$point $shell "$gate" --checktool "$checktool" newer_crl.img dev/crl dev/nvcnt \
      > /dev/null 2>&1
    got=$?
    if [ "$got" != 137 ] || ! { cmp -s dev/crl "$data/crlfiles/good.der" || cmp -s dev/crl new_crl; }; then
      echo "FAIL [$shell] killed at $point: exit $got, device CRL neither old nor new"; failures=$((failures + 1))
    fi
    $shell "$gate" --checktool "$checktool" newer_crl.img dev/crl dev/nvcnt > /dev/null 2>&1
    got=$?
    if [ "$got" != 0 ] || ! cmp -s dev/crl new_crl || [ -n "$(ls -A dev | grep -v '^crl$\|^crl.lock$')" ]; then
      echo "FAIL [$shell] after a kill at $point the next gate gives $got, $(ls -A dev)"; failures=$((failures + 1))
    fi
  done
done

echo "gate: ${#rows[@]} rows under 2 shells, $failures failures"
[ "$failures" = 0 ]
