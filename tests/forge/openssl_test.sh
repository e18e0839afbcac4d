#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# openssl, an independent verifier, accepts forge's good signatures and
# time-stamp tokens (with CRL checks on the whole chain, at genTime), and
# rejects the faulty ones for the reason the fixture claims, so a fixture's
# fault is in its bytes and not in forge.
#   openssl_test.sh FORGE TESTDATA_DIR
set -uo pipefail
forge=$1 data=$2
work=$(mktemp -d /tmp/forge-openssl-test.XXXXXX)
trap 'rm -rf "$work"' EXIT
cd "$data" || exit 1
GEN_EPOCH=1773576000 # 2026-03-15 12:00:00 UTC, the tokens' genTime
passed=0 failures=0

# openssl's trust store: the root and the CRLs of a CRL file, whose
# certificates go in as untrusted helpers together with the TSA and the
# second signer of two_signers (not embedded: two certificates at most).
split_crlfile() { # crlfile -> $work/NAME.ca.pem, $work/NAME.certs.pem
  local name=${1##*/}
  "$forge" crlfile --form pem --out "$work/$name.pem" "$1" || return 1
  openssl x509 -inform DER -in pki/root.der -out "$work/$name.ca.pem"
  awk '/BEGIN X509 CRL/,/END X509 CRL/' "$work/$name.pem" >> "$work/$name.ca.pem"
  awk '/BEGIN CERTIFICATE/,/END CERTIFICATE/' "$work/$name.pem" > "$work/$name.certs.pem"
  openssl x509 -inform DER -in pki/tsa.der >> "$work/$name.certs.pem"
  openssl x509 -inform DER -in pki/signer2.der >> "$work/$name.certs.pem"
}
cms_verify() { # signature, content, crlfile
  local form=DER name=${3##*/}
  case "$1" in *.pem) form=PEM ;; esac
  [ -f "$work/$name.ca.pem" ] || split_crlfile "$3" || return 2
  openssl cms -verify -binary -inform "$form" -in "$1" -content "$2" -CAfile "$work/$name.ca.pem" \
    -certfile "$work/$name.certs.pem" -purpose any -crl_check_all -attime "$GEN_EPOCH" -out /dev/null 2>"$work/err"
}
ts_verify() { # signature, signer number, crlfile, [file the imprint should cover]
  local name=${3##*/}
  [ -f "$work/$name.ca.pem" ] || split_crlfile "$3" || return 2
  "$forge" token --in "$1" --signer "$2" --out "$work/token.der" --signature-out "$work/sigvalue.bin" || return 2
  openssl ts -verify -in "$work/token.der" -token_in -data "${4:-$work/sigvalue.bin}" -CAfile "$work/$name.ca.pem" \
    -untrusted "$work/$name.certs.pem" -crl_check_all -attime "$GEN_EPOCH" >"$work/err" 2>&1
}
expect() { # ok|refused, label, command...
  local want=$1 label=$2 got=refused
  shift 2
  : > "$work/err"
  "$@" 2>>"$work/err" && got=ok
  if [ "$got" = "$want" ]; then
    passed=$((passed + 1))
  else
    echo "FAIL: $label: openssl $got it"
    sed 's/^/    /' "$work/err" | head -5
    failures=$((failures + 1))
  fi
}
sig_file() { case "$1" in *.pem) echo "sig/$1" ;; *) echo "sig/$1.der" ;; esac; }
C=content/content.bin
G=crlfiles/good.der

# Good outputs: every signer verifies, every token verifies over the
# signer's signature value.
for s in valid valid_cms.pem valid_pkcs7.pem signer_expired_after sha384 sha512 no_signed_attrs \
         signing_time ts_with_root_cert ts_no_signed_attrs two_signers three_certs; do
  expect ok "cms $s" cms_verify "$(sig_file $s)" "$C" "$G"
done
expect ok "cms ts_no_certs" cms_verify sig/ts_no_certs.der "$C" crlfiles/good_with_tsa.der
expect ok "cms valid, PEM CRL file" cms_verify sig/valid.der "$C" crlfiles/good.pem
for s in valid valid_cms.pem signer_expired_after sha384 sha512 ts_with_root_cert ts_no_certs; do
  expect ok "ts $s" ts_verify "$(sig_file $s)" 1 "$G"
done
expect ok "ts two_signers, signer 1" ts_verify sig/two_signers.der 1 "$G"
expect ok "ts two_signers, signer 2" ts_verify sig/two_signers.der 2 "$G"

# Faults are real.
expect refused "cms content_changed" cms_verify sig/valid.der content/content_changed.bin "$G"
for f in signer_revoked int_revoked no_int_crl int_crl_expired int_crl_bad_signature; do
  expect refused "cms with crlfiles/$f.der" cms_verify sig/valid.der "$C" "crlfiles/$f.der"
done
for s in unrelated_root signer_expired_before signer_not_yet_valid; do
  expect refused "cms $s" cms_verify "sig/$s.der" "$C" "$G"
done
expect refused "ts imprint_over_content" ts_verify sig/imprint_over_content.der 1 "$G"
expect ok "ts imprint_over_content, over the content" ts_verify sig/imprint_over_content.der 1 "$G" "$C"
expect refused "ts gen_time_tampered" ts_verify sig/ts_gen_time_tampered.der 1 "$G"
expect refused "ts tsa_codesign_eku" ts_verify sig/tsa_codesign_eku.der 1 "$G"
expect refused "ts tsa_revoked" ts_verify sig/valid.der 1 crlfiles/tsa_revoked_after_gentime.der
expect refused "no_token: forge finds no token" "$forge" token --in sig/no_token.der --out "$work/none.der"

echo "$passed passed, $failures failed"
[ "$failures" = 0 ]
