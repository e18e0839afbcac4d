#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Keys in a PKCS#11 token: SoftHSM2 with a token directory of the test's own
# holds the fixture signer's key; forge sign with a pkcs11: URI makes the
# same bytes as with the key file (PKCS#1 v1.5 is deterministic), so the
# token really signed with that key, and checktool 3 accepts the image. The
# PIN from the environment works too; a wrong PIN or object is refused.
#   pkcs11_test.sh FORGE CHECKTOOL TESTDATA_DIR
set -euo pipefail
forge=$1 checktool=$2 data=$3
module=/usr/lib/softhsm/libsofthsm2.so
command -v softhsm2-util > /dev/null && [ -f "$module" ] || { echo "softhsm2 not installed; skipped"; exit 77; }
work=$(mktemp -d /tmp/forge-pkcs11-test.XXXXXX)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
cd "$work"

mkdir tokens
printf 'directories.tokendir = %s/tokens\nobjectstore.backend = file\nlog.level = ERROR\n' "$work" > softhsm2.conf
export SOFTHSM2_CONF=$work/softhsm2.conf
softhsm2-util --init-token --free --label "forge test" --pin 1234 --so-pin 5678 > /dev/null
openssl pkcs8 -topk8 -nocrypt -in "$data/keys/signer.key" -out signer.p8
softhsm2-util --import signer.p8 --token "forge test" --label signer --id 01 --pin 1234 > /dev/null

sign() { # key, output, extra options...
  local key=$1 out=$2
  shift 2
  "$forge" sign --content "$data/content/content.bin" --cert "$data/pki/signer.der" --cert "$data/pki/int.der" \
    --signer-cert "$data/pki/signer.der" --signer-key "$key" --tsa-cert "$data/pki/tsa.der" \
    --tsa-key "$data/keys/tsa.key" --gen-time 20260315120000Z "$@" --out "$out"
}
uri="pkcs11:token=forge%20test;object=signer?module-path=$module&pin-value=1234"
sign "$uri" token.der || fail "signing with the token's key failed"
cmp -s token.der "$data/sig/valid.der" || fail "the token's signature differs from the key file's"
FORGE_PKCS11_PIN=1234 sign "pkcs11:token=forge%20test;object=signer" env.der --pkcs11-module "$module" ||
  fail "PIN from FORGE_PKCS11_PIN with --pkcs11-module"
cmp -s env.der "$data/sig/valid.der" || fail "the second token signature differs"
"$forge" image --body "$data/body/body.bin" --signature token.der --content "$data/content/content.bin" \
  --crl "$data/crlfiles/good.der" --out token.img
"$checktool" 3 "$data/crlfiles/good.der" token.img || fail "checktool 3 refused the token-signed image"

for bad in "pkcs11:token=forge%20test;object=signer?module-path=$module&pin-value=9999" \
           "pkcs11:token=forge%20test;object=nobody?module-path=$module&pin-value=1234" \
           "pkcs11:token=elsewhere;object=signer?module-path=$module&pin-value=1234"; do
  if sign "$bad" bad.der 2> err; then fail "accepted: $bad"; fi
  [ ! -e bad.der ] || fail "wrote a signature for $bad"
  grep -q "pkcs11:" err || fail "the message does not name the URI: $(cat err)"
done
echo "pkcs11: token key signs exactly as the key file does; checktool 3 accepts; wrong PIN, object, token refused"
