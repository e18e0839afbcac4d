#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# forge inspect --crl --root on every operation-3 scenario of the fixture
# list (the signature-only ones placed in an image first): forge exits with
# checktool 3's status for the same inputs, and its JSON report holds the
# listed code, its name and, for a refusal, the rule (and where a certificate
# is concerned, that certificate: revoked, expired, not yet valid, without a
# qualifying CRL (or whose CRL cannot speak for it), with the wrong usages,
# with an unprocessed critical extension or past a pathLenConstraint; a
# revoking CRL with its score).
#   inspect_verify_test.sh FORGE CHECKTOOL TESTDATA_DIR
set -uo pipefail
forge=$1 checktool=$2 data=$3
work=$(mktemp -d /tmp/forge-inspect-verify.XXXXXX)
trap 'rm -rf "$work"' EXIT
cd "$work"
failures=0 checked=0
while IFS=$'\t' read -r name op args blocks expect about; do
  case "$name" in \#*|"") continue ;; esac
  [ "$op" = 3 ] || [ "$op" = sig ] || continue
  read -r crl image <<< "$args"
  if [ "$op" = sig ]; then
    read -r sig content <<< "$blocks"
    "$forge" image --body "$data/body/body.bin" --signature "$data/$sig" --content "$data/$content" \
      --crl "$data/crlfiles/good.der" --out "$name.img" || { echo "FAIL $name: image"; failures=$((failures + 1)); continue; }
    image=$name.img
  else
    image=$data/$image
  fi
  "$checktool" 3 "$data/$crl" "$image" > /dev/null 2>&1
  want=$?
  "$forge" inspect --json "$image" --crl "$data/$crl" --root "$data/pki/root.der" > "$name.json" 2> "$name.err"
  got=$?
  checked=$((checked + 1))
  if [ "$got" != "$want" ]; then
    echo "FAIL $name: forge exits $got, checktool 3 $want"; failures=$((failures + 1)); continue
  fi
  python3 - "$name.json" "$expect" "$name" <<'PY' || failures=$((failures + 1))
import json, sys
v = json.load(open(sys.argv[1]))["verification"]
code = int(sys.argv[2], 16) if sys.argv[2].startswith("0x") else int(sys.argv[2])
name = sys.argv[3]
assert int(v["code"], 16) == code, f"{name}: code {v['code']}, listed {sys.argv[2]}"
assert v["name"] != "unknown", name
if code != 0:
    assert v["verdict"] == "refused" and "rule" in v, f"{name}: no rule: {v}"
if code in (0x88200002, 0x88200007, 0x88200012, 0x88200013, 0x88200014, 0x88200019, 0x8820001A):
    assert "reason" in v and "'" in v["reason"], f"{name}: no certificate named: {v.get('reason')}"
if code == 0x88200002:
    assert "score 0x" in v["reason"], f"{name}: the revoking CRL's score is missing: {v['reason']}"
PY
done < "$data/scenarios.txt"
echo "inspect --crl: $checked scenarios, $failures failures"
[ "$checked" -gt 20 ] && [ "$failures" = 0 ]
