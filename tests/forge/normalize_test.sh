#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# forge normalize: a BER copy of a fixture signature (indefinite lengths on
# the outer structure, a long-form length, the token's eContent chunked)
# comes back as the fixture's exact DER bytes, which checktool accepts; a
# copy whose signed attributes are not DER is refused and nothing written.
#   normalize_test.sh FORGE TESTDATA_DIR
set -euo pipefail
forge=$1 data=$2 here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d /tmp/forge-normalize-test.XXXXXX)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }

PYTHONPATH=$here python3 - "$data/sig/valid.der" "$work" <<'PY'
import sys
from der import der, parse

def ber(node, path=()):
    """Indefinite lengths down the SignedData's outer structure, the
    SignerInfo and its unsigned attributes (the token included), but never
    inside a signed part: certificates, signed attributes, TSTInfo."""
    tag, body = node[0], node[1]
    cons = isinstance(body, list)
    name = {0x30: "SEQ", 0x31: "SET", 0xA0: "A0", 0xA1: "A1"}.get(tag, hex(tag))
    if not cons:
        if tag == 0x02 and len(body) == 1:  # a version: long-form length
            return bytes([tag, 0x81, 1]) + body
        if tag == 0x04 and path[-2:] == ("SEQ", "A0") and len(path) > 4:
            half = len(body) // 2  # the token's eContent, in two chunks
            chunks = der([0x04, body[:half], 0]) + der([0x04, body[half:], 0])
            return bytes([0x24, 0x80]) + chunks + b"\0\0"
        return der(node)
    if name == "A0" and (path[-4:] == ("A0", "SEQ", "SET", "SEQ") or path[-3:] == ("SEQ", "A0", "SEQ")):
        return der(node)  # signed attributes, or the certificates
    return bytes([tag, 0x80]) + b"".join(ber(k, path + (name,)) for k in body) + b"\0\0"

src = open(sys.argv[1], "rb").read()
root = parse(src)
assert der(root) == src
out = ber(root)
assert out != src and b"\x24\x80" in out, "the copy must be BER, chunked eContent included"
open(sys.argv[2] + "/ber.der", "wb").write(out)
# The signer's signed attributes with one long-form length: not DER.
si = root[1][1][1][0][1][-1][1][0]
attrs = next(k for k in si[1] if k[0] == 0xA0)
content = b"".join(der(k) for k in attrs[1])
bad = bytes([0xA0, 0x82]) + len(content).to_bytes(2, "big") + content
open(sys.argv[2] + "/bad.der", "wb").write(out.replace(der(attrs), bad, 1))
PY

"$forge" normalize --in "$work/ber.der" --out "$work/out.der" || fail "normalize refused the BER copy"
cmp -s "$work/out.der" "$data/sig/valid.der" || fail "the BER copy did not come back as the fixture's DER"
if "$forge" normalize --in "$work/bad.der" --out "$work/bad.out" 2> "$work/err"; then
  fail "signed attributes in BER were accepted"
fi
grep -q "signer's signed attributes are not DER" "$work/err" || fail "refusal does not name the signed attributes: $(cat "$work/err")"
[ ! -e "$work/bad.out" ] || fail "a refused input still wrote an output"
"$forge" normalize --in "$data/crlfiles/garbage.bin" --out "$work/g.out" 2> /dev/null && fail "garbage accepted"
echo "normalize: BER copy restored byte for byte, BER signed attributes refused"
