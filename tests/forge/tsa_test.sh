#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# forge sign --tsa-url against a time-stamping service on 127.0.0.1
# (tsa_server.py, stopped when the test ends): a good token goes into an
# image that checktool 3 accepts; a genTime with fractions of a second, a
# rejection, a token for another nonce, an HTTP error and an unreachable
# address are each refused with their cause, and no signature is written.
#   tsa_test.sh FORGE CHECKTOOL TESTDATA_DIR
set -euo pipefail
forge=$1 checktool=$2 data=$3
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d /tmp/forge-tsa-test.XXXXXX)
server=""
trap '[ -n "$server" ] && kill "$server" 2>/dev/null; rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
cd "$work"

openssl x509 -inform DER -in "$data/pki/tsa.der" -out tsa.pem
cp "$data/keys/tsa.key" tsa.key
echo 01 > serial
section() { # name, digits
  cat <<CNF
[ $1 ]
serial = $work/serial
crypto_device = builtin
signer_cert = $work/tsa.pem
signer_key = $work/tsa.key
signer_digest = sha256
default_policy = 1.2.3.4.1
digests = sha256, sha384, sha512
accuracy = secs:1
clock_precision_digits = $2
ordering = no
tsa_name = no
ess_cert_id_chain = no
ess_cert_id_alg = sha256
CNF
}
{ echo "[ tsa ]"; echo "default_tsa = good"; section good 0; section fraction 3; } > tsa.cnf
python3 "$here/tsa_server.py" "$work" &
server=$!
for _ in $(seq 100); do [ -f port ] && break; sleep 0.1; done
[ -f port ] || fail "the test service did not start"
url="http://127.0.0.1:$(cat port)"

# A signer and CRLs valid for decades, so the token's genTime (now) is
# inside every validity period checktool looks at.
"$forge" cert --subject "/C=XX/O=Checktool/CN=Pipeline Signer" --key "$data/keys/signer.key" \
  --issuer-cert "$data/pki/int.der" --issuer-key "$data/keys/int.key" --serial 0x3001 \
  --not-before 250101000000Z --not-after 20491231000000Z --ca no --key-usage digitalSignature \
  --eku codeSigning --out signer.der
for ca in root int; do
  "$forge" crl --issuer-cert "$data/pki/$ca.der" --issuer-key "$data/keys/$ca.key" \
    --this-update 250101000000Z --next-update 20491231000000Z --out "$ca.crl"
done
"$forge" crlfile --out crlfile.der root.crl int.crl "$data/pki/int.der"

sign() { # mode, output
  "$forge" sign --content "$data/content/content.bin" --cert signer.der --cert "$data/pki/int.der" \
    --signer-cert signer.der --signer-key "$data/keys/signer.key" --tsa-url "$url/$1" --tsa-timeout 10 \
    --out "$2"
}
sign good good.der || fail "a good token was refused"
"$forge" image --body "$data/body/body.bin" --signature good.der --content "$data/content/content.bin" \
  --crl crlfile.der --out good.img
status=0
"$checktool" 3 crlfile.der good.img || status=$?
[ "$status" = 0 ] || fail "checktool 3 refused the image signed with the service's token (exit $status)"

refused() { # mode (or a whole URL), the cause forge must name
  local target=$1
  case "$target" in http://*) ;; *) target="$url/$1" ;; esac
  if "$forge" sign --content "$data/content/content.bin" --signer-cert signer.der \
       --signer-key "$data/keys/signer.key" --tsa-url "$target" --tsa-timeout 10 --out bad.der 2> err; then
    fail "$1: accepted"
  fi
  grep -q "$2" err || fail "$1: the message does not name the cause: $(cat err)"
  [ ! -e bad.der ] || fail "$1: a signature was written"
}
refused fraction "whole seconds"
refused reject "not granted"
refused nonce "token's nonce"
refused http500 "HTTP status 500"
refused "http://127.0.0.1:1/" "no answer"
echo "tsa: good token accepted by checktool 3; fractions, rejection, foreign nonce, HTTP error, no service refused"
