#!/usr/bin/env bash
# openssl, an independent verifier, accepts forge's good signatures and
# time-stamp tokens (with CRL checks on the whole chain, at genTime), and
# rejects the faulty ones for the reason the fixture claims, so a fixture's
# fault is in its bytes and not in forge.
#   openssl_test.sh FORGE TESTDATA_DIR
set -uo pipefail
forge=$1
data=$2
work=$(mktemp -d /tmp/forge-openssl-test.XXXXXX)
trap 'rm -rf "$work"' EXIT
cd "$data" || exit 1
GEN_EPOCH=1773576000 # 2026-03-15 12:00:00 UTC, the tokens' genTime
passed=0
failures=0
ok() { passed=$((passed + 1)); }
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# Trust store for openssl: the root plus the CRLs of a CRL file; the file's
# certificates go in as untrusted helpers.
split_crlfile() { # crlfile -> $work/NAME.ca.pem, $work/NAME.certs.pem
  local name
  name=$(basename "$1")
  "$forge" crlfile --form pem --out "$work/$name.pem" "$1" || return 1
  openssl x509 -inform DER -in pki/root.der -out "$work/$name.ca.pem"
  awk '/BEGIN X509 CRL/,/END X509 CRL/' "$work/$name.pem" >> "$work/$name.ca.pem"
  awk '/BEGIN CERTIFICATE/,/END CERTIFICATE/' "$work/$name.pem" > "$work/$name.certs.pem"
  # The second signer of two_signers is not embedded (two certificates at
  # most); it comes in here with the TSA.
  openssl x509 -inform DER -in pki/tsa.der >> "$work/$name.certs.pem"
  openssl x509 -inform DER -in pki/signer2.der >> "$work/$name.certs.pem"
}

cms_verify() { # signature, content, crlfile
  local form=DER
  case "$1" in *.pem) form=PEM ;; esac
  local name
  name=$(basename "$3")
  [ -f "$work/$name.ca.pem" ] || split_crlfile "$3" || return 2
  openssl cms -verify -binary -inform "$form" -in "$1" -content "$2" \
    -CAfile "$work/$name.ca.pem" -certfile "$work/$name.certs.pem" \
    -purpose any -crl_check_all -attime "$GEN_EPOCH" -out /dev/null 2>"$work/err"
}
ts_verify() { # signature, signer number, crlfile, [file the imprint should cover]
  local name
  name=$(basename "$3")
  [ -f "$work/$name.ca.pem" ] || split_crlfile "$3" || return 2
  "$forge" token --in "$1" --signer "$2" --out "$work/token.der" \
    --signature-out "$work/sigvalue.bin" || return 2
  openssl ts -verify -in "$work/token.der" -token_in -data "${4:-$work/sigvalue.bin}" \
    -CAfile "$work/$name.ca.pem" -untrusted "$work/$name.certs.pem" \
    -crl_check_all -attime "$GEN_EPOCH" >"$work/err" 2>&1
}
expect_ok() { # label, command...
  local label=$1
  shift
  if "$@"; then ok; else fail "$label: openssl refused it"; sed 's/^/    /' "$work/err" | head -5; fi
}
expect_refused() { # label, command...
  local label=$1
  shift
  if "$@"; then fail "$label: openssl accepted it"; else ok; fi
}
C=content/content.bin
G=crlfiles/good.der

# Good outputs: every signer verifies, every token verifies over the
# signer's signature value.
for s in valid valid_cms.pem valid_pkcs7.pem signer_expired_after sha384 sha512 no_signed_attrs \
         signing_time ts_with_root_cert ts_no_signed_attrs two_signers three_certs; do
  case "$s" in *.pem) sig=sig/$s ;; *) sig=sig/$s.der ;; esac
  expect_ok "cms $s" cms_verify "$sig" "$C" "$G"
done
expect_ok "cms ts_no_certs" cms_verify sig/ts_no_certs.der "$C" crlfiles/good_with_tsa.der
expect_ok "cms valid, PEM CRL file" cms_verify sig/valid.der "$C" crlfiles/good.pem
for s in valid valid_cms.pem signer_expired_after sha384 sha512 ts_with_root_cert ts_no_certs; do
  case "$s" in *.pem) sig=sig/$s ;; *) sig=sig/$s.der ;; esac
  expect_ok "ts $s" ts_verify "$sig" 1 "$G"
done
expect_ok "ts two_signers, signer 1" ts_verify sig/two_signers.der 1 "$G"
expect_ok "ts two_signers, signer 2" ts_verify sig/two_signers.der 2 "$G"

# Faults are real.
expect_refused "cms content_changed" cms_verify sig/valid.der content/content_changed.bin "$G"
expect_refused "cms signer_revoked" cms_verify sig/valid.der "$C" crlfiles/signer_revoked.der
expect_refused "cms intermediate_revoked" cms_verify sig/valid.der "$C" crlfiles/int_revoked.der
expect_refused "cms no_intermediate_crl" cms_verify sig/valid.der "$C" crlfiles/no_int_crl.der
expect_refused "cms expired_crl" cms_verify sig/valid.der "$C" crlfiles/int_crl_expired.der
expect_refused "cms bad CRL signature" cms_verify sig/valid.der "$C" crlfiles/int_crl_bad_signature.der
expect_refused "cms unrelated_root" cms_verify sig/unrelated_root.der "$C" "$G"
expect_refused "cms signer_expired_before" cms_verify sig/signer_expired_before.der "$C" "$G"
expect_refused "cms signer_not_yet_valid" cms_verify sig/signer_not_yet_valid.der "$C" "$G"
expect_refused "ts imprint_over_content" ts_verify sig/imprint_over_content.der 1 "$G"
expect_ok "ts imprint_over_content, over the content" \
  ts_verify sig/imprint_over_content.der 1 "$G" "$C"
expect_refused "ts gen_time_tampered" ts_verify sig/ts_gen_time_tampered.der 1 "$G"
expect_refused "ts tsa_codesign_eku" ts_verify sig/tsa_codesign_eku.der 1 "$G"
expect_refused "ts tsa_revoked" ts_verify sig/valid.der 1 crlfiles/tsa_revoked_after_gentime.der
if "$forge" token --in sig/no_token.der --out "$work/none.der" 2>/dev/null; then
  fail "no_token: forge found a token"
else
  ok
fi

echo "$passed passed, $failures failed"
[ "$failures" = 0 ]
