#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# forge inspect: the JSON report parses and describes the valid image; each
# encoding checktool refuses is reported with the byte offset where it lies
# in the image (checked against the bytes there).
#   inspect_test.sh FORGE TESTDATA_DIR
set -euo pipefail
forge=$1 data=$2 here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d /tmp/forge-inspect-test.XXXXXX)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
cd "$work"

img() { # name, signature, CRL file
  "$forge" image --body "$data/body/body.bin" --signature "$2" --content "$data/content/content.bin" --crl "$3" \
    --out "$1.img"
}
PYTHONPATH=$here python3 - "$data/sig/valid.der" <<'PY'
import sys
from der import der, parse
sig = open(sys.argv[1], "rb").read()
assert sig[0] == 0x30 and sig[1] == 0x82
open("ber.der", "wb").write(b"\x30\x80" + sig[4:] + b"\0\0")  # the outer SEQUENCE, indefinite

# The signer named by a subjectKeyIdentifier ([0]) instead of issuerAndSerialNumber.
root = parse(sig)
signer = root[1][1][1][0][1][-1][1][0]
signer[1][1] = [0x80, bytes(range(1, 21)), 0]
open("ski.der", "wb").write(der(root))
# A token whose genTime has a fraction of a second (its signature no longer matters here).
root = parse(sig)
signer = root[1][1][1][0][1][-1][1][0]
token = signer[1][-1][1][0][1][1][1][0]
octets = token[1][1][1][0][1][2][1][1][1][0]
tst = parse(octets[1])
tst[1][4] = [0x18, b"20260315120000.5Z", 0]
octets[1] = der(tst)
open("fraction.der", "wb").write(der(root))
PY
good=$data/crlfiles/good.der
img ber ber.der "$good"
img ski ski.der "$good"
img fraction fraction.der "$good"
img eku "$data/sig/signer_eku_codesign_second.der" "$good"
img v1 "$data/sig/valid.der" "$data/crlfiles/cmp_v1.der"
img no_next "$data/sig/valid.der" "$data/crlfiles/cmp_no_next_update.der"
cp "$data/images/valid.img" "$data/images/three_certs.img" "$data/images/two_signers.img" .
for i in valid three_certs two_signers ber eku v1 no_next ski fraction; do
  "$forge" inspect --json "$i.img" > "$i.json" || fail "inspect $i"
  "$forge" inspect "$i.img" > "$i.txt" || fail "inspect $i (text)"
done

python3 - <<'PY'
import json, sys
def report(name):
    return json.load(open(name + ".json"))
def expect(name, words, first_bytes):
    r = report(name)
    found = [f for f in r["refusedEncodings"] if words in f["encoding"]]
    assert found, f"{name}: no finding with '{words}': {r['refusedEncodings']}"
    at = found[0]["offset"]
    got = open(name + ".img", "rb").read()[at:at + len(first_bytes)]
    assert got == first_bytes, f"{name}: offset {at} holds {got.hex()}, not {first_bytes.hex()}"

valid = report("valid")
assert valid["refusedEncodings"] == [], valid["refusedEncodings"]
assert valid["nvCounter"] == {"present": True, "value": 7}
signer = valid["signature"]["signers"][0]
assert signer["sid"]["serial"] == "0x2001"
assert signer["timeStampToken"]["genTimeEncoded"] == "20260315120000Z"
assert signer["timeStampToken"]["imprintMatchesSignatureValue"] is True
assert [c["serial"] for c in valid["signature"]["certificates"]] == ["0x2001", "0x1001"]
assert len(valid["crlBlock"]["crls"]) == 2 and valid["layout"]["crl"]["insideFile"] is True

expect("three_certs", "3 certificates", b"\xa0")
expect("two_signers", "2 signers", b"\x31")
expect("ber", "indefinite length", b"\x30\x80")
expect("eku", "codeSigning is not the first", b"\x30\x82")
expect("v1", "v1 CRL", b"\x30")
expect("no_next", "without nextUpdate", b"\x30")
expect("ski", "subjectKeyIdentifier", bytes(range(1, 21)))
expect("fraction", "not in whole seconds", b"20260315120000.5Z")
assert "forge normalize" in report("ber")["refusedEncodings"][0]["advice"]
PY
grep -q "refusedEncodings: none" valid.txt || fail "the text report of the valid image"
echo "inspect: reports parse; every refused encoding found at its offset"
