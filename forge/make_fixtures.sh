#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Regenerates the whole fixture set from scratch, keys included, with forge:
# a development PKI (root, code-signing CA, signers, time-stamping
# authority), CRLs and CRL files, detached signatures, signed images, the
# scenario list that says what each is for, and a manifest of every file.
#
# Keys come from fixed seeds and every date is fixed, so two runs give the
# same bytes and no verdict depends on the clock (genTime is 2026-03-15).
#
#   forge/make_fixtures.sh [--forge PATH] [--out DIR] [--root-out FILE]
#
# Defaults: forge from build-forge-standalone (built when missing), output
# tests/testdata, and the root also written to tool/development_root_cert.der
# (the development trust anchor compiled into checktool). With --out and
# no --root-out, the root is written to DIR only.
set -euo pipefail

top=$(cd "$(dirname "$0")/.." && pwd)
forge=""
out="$top/tests/testdata"
root_out=""
custom_out=0
while [ $# -gt 0 ]; do
  case "$1" in
    --forge) forge=$2; shift 2 ;;
    --out) out=$2; custom_out=1; shift 2 ;;
    --root-out) root_out=$2; shift 2 ;;
    -h|--help) sed -n '3,16p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "make_fixtures.sh: unknown argument $1" >&2; exit 2 ;;
  esac
done
if [ "$custom_out" = 0 ] && [ -z "$root_out" ]; then
  root_out="$top/tool/development_root_cert.der"
fi
if [ -z "$forge" ]; then
  forge="$top/build-forge-standalone/bin/forge"
  if [ ! -x "$forge" ]; then
    cmake -G Ninja -S "$top/forge" -B "$top/build-forge-standalone" >/dev/null
    cmake --build "$top/build-forge-standalone" -j 2 >/dev/null
  fi
fi
[ -x "$forge" ] || { echo "make_fixtures.sh: no forge at $forge" >&2; exit 2; }
abspath() { case "$1" in /*) echo "$1" ;; *) echo "$PWD/$1" ;; esac; }
forge=$(abspath "$forge")
out=$(abspath "$out")
[ -n "$root_out" ] && root_out=$(abspath "$root_out")

# Only ever wipe a directory that holds a fixture set (or nothing).
if [ -e "$out" ]; then
  if [ -n "$(ls -A "$out")" ] && [ ! -f "$out/scenarios.txt" ]; then
    echo "make_fixtures.sh: $out is not empty and holds no scenarios.txt; refusing to wipe it" >&2
    exit 2
  fi
  rm -rf "$out"
fi
mkdir -p "$out"/{keys,pki,crl,crlfiles,sig,content,body,images}
work=$(mktemp -d /tmp/make_fixtures.XXXXXX)
trap 'rm -rf "$work"' EXIT
cd "$out"

F() { "$forge" "$@"; }

GEN=20260315120000Z          # genTime of every token
GEN_TAMPERED=20260316120000Z # written over it after signing in one variant
DN="/C=XX/O=Checktool"

# ---------------------------------------------------------------- keys
key() { F key --bits "$2" --seed "checktool-fixtures/$1" --out "keys/$1.key"; }
key root 4096
key int 3072
key intb 2048
key tsa 2048
key signer 2048
key signer2 2048
key other_root 2048
key other_int 2048
key other_signer 2048
key int_new 2048

# ---------------------------------------------------------------- certificates
# An issuer is named by its certificate, whose key file has the same name, or
# as CERTIFICATE:KEY where they differ.
issuer() { echo --issuer-cert "pki/${1%%:*}.der" --issuer-key "keys/${1##*:}.key"; }
ca() { # name, key, issuer (or -), serial, subject, not-after, extra...
  local issuer_args=(--self-signed)
  [ "$3" != "-" ] && read -r -a issuer_args <<< "$(issuer "$3")"
  local name=$1 k=$2 serial=$4 subject=$5 na=$6
  shift 6
  F cert --subject "$subject" --key "keys/$k.key" "${issuer_args[@]}" --serial "$serial" \
    --not-before 250101000000Z --not-after "$na" --ca yes --key-usage keyCertSign,cRLSign "$@" \
    --out "pki/$name.der"
}
ca root root - 1 "$DN/CN=Checktool Development Root 1" 20501231235959Z
ca int int root 0x1001 "$DN/CN=Checktool Development Code Signing CA" 351231235959Z
ca intb intb root 0x1004 "$DN/CN=Checktool Development Recovery CA" 351231235959Z
# The unrelated PKI reuses the real names, so only keys and signatures
# tell it apart.
ca other_root other_root - 1 "$DN/CN=Checktool Development Root 1" 20501231235959Z
ca other_int other_int other_root 0x1101 "$DN/CN=Checktool Development Code Signing CA" 351231235959Z
# Same-name CA certificates: the code-signing CA rolled over to a new key,
# its old key in a certificate that expired before genTime, and two CAs whose
# names differ only in a second attribute of an RDN.
ca int_new int_new root 0x1005 "$DN/CN=Checktool Development Code Signing CA" 351231235959Z
ca int_old_expired int root 0x1006 "$DN/CN=Checktool Development Code Signing CA" 260201000000Z
ca vendor_signing intb root 0x1007 "$DN/CN=Vendor CA+OU=Code Signing" 351231235959Z
ca vendor_recovery int_new root 0x1008 "$DN/CN=Vendor CA+OU=Key Recovery" 351231235959Z
# CAs that issue indirect CRLs for each other and have no CRL of their
# own from the root: their CRL signers can only be verified through each
# other, down to the nesting limit.
ca loop1 int root 0x1111 "$DN/CN=Checktool Loop CA 1" 351231235959Z
ca loop2 intb root 0x1112 "$DN/CN=Checktool Loop CA 2" 351231235959Z
ca loop3 signer root 0x1113 "$DN/CN=Checktool Loop CA 3" 351231235959Z
ca loop4 signer2 root 0x1114 "$DN/CN=Checktool Loop CA 4" 351231235959Z
ca chain1 int root 0x1201 "$DN/CN=Checktool Chain CA 1" 351231235959Z
ca chain2 intb chain1:int 0x1202 "$DN/CN=Checktool Chain CA 2" 351231235959Z
ca chain3 signer chain2:intb 0x1203 "$DN/CN=Checktool Chain CA 3" 351231235959Z
ca chain4 signer2 chain3:signer 0x1204 "$DN/CN=Checktool Chain CA 4" 351231235959Z
# Constraints a path must honour: a CA allowed no CA below it that issued
# one anyway, and a CA constrained by critical name constraints.
ca pathlen0 int root 0x1301 "$DN/CN=Checktool PathLen0 CA" 351231235959Z --path-len 0
ca pathlen0_sub intb pathlen0:int 0x1302 "$DN/CN=Checktool PathLen0 Sub CA" 351231235959Z
ca name_constrained int root 0x1303 "$DN/CN=Checktool Name Constrained CA" 351231235959Z \
  --ext "nameConstraints=critical,permitted;DNS:example.com"

leaf() { # name, key, issuer, serial, subject, not-before, not-after, key usage, eku, extra...
  local name=$1 k=$2 issuer=$3 serial=$4 subject=$5 nb=$6 na=$7 ku=$8 eku=$9
  shift 9
  # shellcheck disable=SC2046
  F cert --subject "$subject" --key "keys/$k.key" $(issuer "$issuer") --serial "$serial" --not-before "$nb" --not-after "$na" \
    --ca no --key-usage "$ku" --eku "$eku" "$@" --out "pki/$name.der"
}
S="$DN/CN=Checktool Development Image Signer"
T="$DN/CN=Checktool Development Time-Stamping Authority"
leaf tsa tsa root 0x1002 "$T" 250101000000Z 351231235959Z digitalSignature timeStamping --eku-critical
leaf tsa_codesign tsa root 0x1003 "$T" 250101000000Z 351231235959Z digitalSignature codeSigning
leaf signer signer int 0x2001 "$S" 250601000000Z 280601000000Z digitalSignature codeSigning
leaf signer_expired_before signer int 0x2002 "$S" 250101000000Z 260131235959Z digitalSignature codeSigning
leaf signer_expired_after signer int 0x2003 "$S" 250101000000Z 260630235959Z digitalSignature codeSigning
leaf signer_not_yet_valid signer int 0x2004 "$S" 260401000000Z 290401000000Z digitalSignature codeSigning
leaf signer_ts_eku signer int 0x2005 "$S" 250601000000Z 280601000000Z digitalSignature timeStamping
leaf signer_no_digital_signature signer int 0x2006 "$S" 250601000000Z 280601000000Z nonRepudiation codeSigning
leaf signer_sha1 signer int 0x2007 "$S" 250601000000Z 280601000000Z digitalSignature codeSigning --md sha1
leaf signer_eku_codesign_second signer int 0x2008 "$S" 250601000000Z 280601000000Z digitalSignature serverAuth,codeSigning
leaf signer2 signer2 int 0x2009 "$S 2" 250601000000Z 280601000000Z digitalSignature codeSigning
leaf other_signer other_signer other_int 0x2101 "$S" 250601000000Z 280601000000Z digitalSignature codeSigning
leaf signer_ku_decipher_only signer int 0x200a "$S" 250601000000Z 280601000000Z keyAgreement,decipherOnly codeSigning
leaf signer_ku_with_decipher_only signer int 0x200b "$S" 250601000000Z 280601000000Z digitalSignature,decipherOnly codeSigning
leaf vendor_signer signer vendor_signing:intb 0x2010 "$S" 250601000000Z 280601000000Z digitalSignature codeSigning
leaf signer_below_pathlen0 signer pathlen0:int 0x2011 "$S" 250601000000Z 280601000000Z digitalSignature codeSigning
leaf signer_below_pathlen0_sub signer pathlen0_sub:intb 0x2012 "$S" 250601000000Z 280601000000Z digitalSignature codeSigning
leaf signer_name_constrained signer name_constrained:int 0x2013 "$S" 250601000000Z 280601000000Z digitalSignature codeSigning
leaf signer_dp signer int 0x2014 "$S" 250601000000Z 280601000000Z digitalSignature codeSigning \
  --ext "crlDistributionPoints=URI:http://crl.example/int.crl"

root_size=$(stat -c %s pki/root.der)
if [ "$root_size" != 1363 ]; then
  echo "make_fixtures.sh: note: the root is $root_size bytes (the device build's is 1363)" >&2
fi

# ---------------------------------------------------------------- CRLs
crl() { # name, issuer, this-update, next-update (or -), extra...
  local name=$1 issuer=$2 tu=$3 nu=$4
  shift 4
  local next=(--next-update "$nu")
  [ "$nu" = "-" ] && next=(--no-next-update)
  # shellcheck disable=SC2046
  F crl $(issuer "$issuer") --this-update "$tu" \
    "${next[@]}" "$@" --out "crl/$name.crl"
}
NOW=(260101000000Z 270101000000Z)    # the current CRLs: valid at genTime
NEWER=(260401000000Z 270401000000Z)  # a later issue, for the comparisons
ROOT_ENTRY=(--revoke 0x1fff:251201000000Z:superseded)  # revokes no fixture certificate
INT_ENTRY=(--revoke 0x2fff:251201000000Z:keyCompromise)
crl root root "${NOW[@]}" "${ROOT_ENTRY[@]}" --crl-number 1
crl int int "${NOW[@]}" "${INT_ENTRY[@]}" --crl-number 1
crl intb intb "${NOW[@]}" --crl-number 1
crl int_revokes_signer int "${NOW[@]}" "${INT_ENTRY[@]}" --revoke 0x2001:260201000000Z:keyCompromise
crl int_revokes_signer_later int "${NOW[@]}" "${INT_ENTRY[@]}" --revoke 0x2001:260501000000Z:keyCompromise
crl root_revokes_int root "${NOW[@]}" "${ROOT_ENTRY[@]}" --revoke 0x1001:260201000000Z:keyCompromise
crl root_int_superseded_later root "${NOW[@]}" "${ROOT_ENTRY[@]}" --revoke 0x1001:260501000000Z:superseded
crl root_int_keycompromise_later root "${NOW[@]}" "${ROOT_ENTRY[@]}" --revoke 0x1001:260501000000Z:keyCompromise
crl root_revokes_tsa_later root "${NOW[@]}" "${ROOT_ENTRY[@]}" --revoke 0x1002:260501000000Z
crl int_expired int 250701000000Z 251231235959Z "${INT_ENTRY[@]}"
crl int_bad_signature int "${NOW[@]}" "${INT_ENTRY[@]}" --corrupt-signature
crl root_indirect root "${NOW[@]}" "${ROOT_ENTRY[@]}" --indirect
crl root_newer root "${NEWER[@]}" "${ROOT_ENTRY[@]}" --crl-number 2
crl int_newer int "${NEWER[@]}" "${INT_ENTRY[@]}" --crl-number 2
crl int_older int 251201000000Z 261201000000Z "${INT_ENTRY[@]}"
crl root_newer_revokes_int root "${NEWER[@]}" "${ROOT_ENTRY[@]}" --revoke 0x1001:260320000000Z:keyCompromise
crl root_20_entries root "${NOW[@]}" --revoke-range 0x3000:20:251201000000Z
crl root_21_entries root "${NOW[@]}" --revoke-range 0x3000:21:251201000000Z
crl root_no_next_update root 260101000000Z - "${ROOT_ENTRY[@]}"
crl root_v1 root "${NOW[@]}" --version 1 --no-key-id
crl int_new int_new "${NOW[@]}" "${INT_ENTRY[@]}" --crl-number 1
crl root_revokes_vendor_signing root "${NOW[@]}" "${ROOT_ENTRY[@]}" --revoke 0x1007:260201000000Z:keyCompromise
crl vendor_recovery vendor_recovery:int_new "${NOW[@]}" --crl-number 1
loop_keys=(- int intb signer signer2)
for i in 1 2 3 4; do crl "loop$i" "loop$i:${loop_keys[$i]}" "${NOW[@]}" --indirect; done
crl chain1 chain1:int "${NOW[@]}"
crl chain2 chain2:intb "${NOW[@]}"
crl chain3 chain3:signer "${NOW[@]}" --indirect
crl chain4 chain4:signer2 "${NOW[@]}" --indirect
crl pathlen0 pathlen0:int "${NOW[@]}"
crl pathlen0_sub pathlen0_sub:intb "${NOW[@]}"
crl name_constrained name_constrained:int "${NOW[@]}"
# CRLs that cannot speak for the certificates they would cover
crl root_only_user root "${NOW[@]}" "${ROOT_ENTRY[@]}" --ext "issuingDistributionPoint=critical,onlyuser:TRUE"
crl int_delta int "${NOW[@]}" "${INT_ENTRY[@]}" --ext "deltaCRL=critical,DER:02:01:01"
crl int_unknown_critical int "${NOW[@]}" "${INT_ENTRY[@]}" --ext "1.3.6.1.4.1.99999.1=critical,DER:05:00"
crl int_dp int "${NOW[@]}" "${INT_ENTRY[@]}" \
  --ext "issuingDistributionPoint=critical,fullname:URI:http://crl.example/int.crl"

# ---------------------------------------------------------------- CRL files
cf() { # name, members... (crl/NAME.crl or pki/NAME.der)
  local name=$1
  shift
  F crlfile --out "crlfiles/$name.der" "$@"
}
C() { echo "crl/$1.crl"; }
cf good "$(C root)" "$(C int)" pki/int.der
F crlfile --form pem --out crlfiles/good.pem crlfiles/good.der
cf good_with_tsa "$(C root)" "$(C int)" pki/int.der pki/tsa.der
cf signer_revoked "$(C root)" "$(C int_revokes_signer)" pki/int.der
cf signer_revoked_after_gentime "$(C root)" "$(C int_revokes_signer_later)" pki/int.der
cf int_revoked "$(C root_revokes_int)" "$(C int)" pki/int.der
cf int_superseded_after_gentime "$(C root_int_superseded_later)" "$(C int)" pki/int.der
cf int_keycompromise_after_gentime "$(C root_int_keycompromise_later)" "$(C int)" pki/int.der
cf tsa_revoked_after_gentime "$(C root_revokes_tsa_later)" "$(C int)" pki/int.der
cf no_int_crl "$(C root)" pki/int.der
cf int_crl_expired "$(C root)" "$(C int_expired)" pki/int.der
cf int_crl_bad_signature "$(C root)" "$(C int_bad_signature)" pki/int.der
cf indirect_root_only "$(C root_indirect)" pki/int.der
cf cmp_newer "$(C root_newer)" "$(C int_newer)" pki/int.der
cf cmp_mixed "$(C root_newer)" "$(C int_older)" pki/int.der
cf cmp_more_issuers "$(C root)" "$(C int)" "$(C intb)" pki/int.der pki/intb.der
cf cmp_root_revokes_int "$(C root_newer_revokes_int)" pki/int.der
cf cmp_int_crl_dropped "$(C root_newer)" pki/int.der
cf cmp_dup_issuer "$(C root)" "$(C root_newer)" "$(C int)" pki/int.der
cf cmp_unverified "$(C root)" "$(C int)" pki/tsa.der
cf cmp_no_cert "$(C root)" "$(C int)"
cf cmp_20_entries "$(C root_20_entries)" "$(C int)" pki/int.der
cf cmp_21_entries "$(C root_21_entries)" "$(C int)" pki/int.der
cf cmp_no_next_update "$(C root_no_next_update)" "$(C int)" pki/int.der
cf cmp_v1 "$(C root_v1)" "$(C int)" pki/int.der
cf rollover_old_key_revoked "$(C root_revokes_int)" "$(C int_new)" pki/int_new.der
cf rollover "$(C root)" "$(C int_new)" pki/int_new.der
cf vendor_recovery_crl "$(C root_revokes_vendor_signing)" "$(C vendor_recovery)" pki/vendor_recovery.der
cf loop_indirect_3 "$(C loop1)" "$(C loop2)" "$(C loop3)" pki/loop1.der pki/loop2.der pki/loop3.der
cf loop_indirect_4 "$(C loop1)" "$(C loop2)" "$(C loop3)" "$(C loop4)" pki/loop1.der pki/loop2.der \
  pki/loop3.der pki/loop4.der
cf chain_two_indirect "$(C chain1)" "$(C chain2)" "$(C chain3)" "$(C chain4)" pki/chain1.der \
  pki/chain2.der pki/chain3.der pki/chain4.der
cf pathlen0 "$(C root)" "$(C pathlen0)" "$(C pathlen0_sub)" pki/pathlen0.der pki/pathlen0_sub.der
cf name_constrained "$(C root)" "$(C name_constrained)" pki/name_constrained.der
cf root_crl_only_user "$(C root_only_user)" "$(C int)" pki/int.der
cf int_crl_delta "$(C root)" "$(C int_delta)" pki/int.der
cf int_crl_unknown_critical "$(C root)" "$(C int_unknown_critical)" pki/int.der
cf int_crl_dp "$(C root)" "$(C int_dp)" pki/int.der
F crlfile --trailing-zeros 20 --out crlfiles/good_trailing_20.der crlfiles/good.der
F crlfile --trailing-zeros 40 --out crlfiles/good_trailing_40.der crlfiles/good.der
F body --size 600 --out crlfiles/garbage.bin

# ---------------------------------------------------------------- body and content
F body --size 256 --nvcnt 7 --out body/body.bin
F body --size 256 --nvcnt 9 --out body/soc_image.bin
F body --size 256 --nvcnt 7 --nvcnt-flag 0 --out "$work/body_no_nvcnt.bin"
{
  echo "checktool image manifest"
  echo "body-length: $(stat -c %s body/body.bin)"
  echo "body-sha256: $(sha256sum body/body.bin | cut -d' ' -f1)"
  echo "nvcnt: 7"
} > content/content.bin
F body --in content/content.bin --flip-byte 30 --out content/content_changed.bin

# ---------------------------------------------------------------- signatures
# sig NAME [sign options]: the usual signer, chain and token unless the
# options add or override (signer options apply to the last --signer-cert).
sign_with() { # name, signer cert, signer key, embedded certs (comma list), extra...
  local name=$1 cert=$2 k=$3 certs=$4
  shift 4
  local cert_args=()
  local c
  IFS=, read -r -a list <<< "$certs"
  for c in "${list[@]}"; do cert_args+=(--cert "pki/$c.der"); done
  F sign --content content/content.bin "${cert_args[@]}" \
    --signer-cert "pki/$cert.der" --signer-key "keys/$k.key" \
    --tsa-cert pki/tsa.der --tsa-key keys/tsa.key --gen-time "$GEN" "$@" --out "sig/$name.der"
}
sig() { local name=$1; shift; sign_with "$name" signer signer signer,int "$@"; }
sig valid
F sign --content content/content.bin --cert pki/signer.der --cert pki/int.der \
  --signer-cert pki/signer.der --signer-key keys/signer.key \
  --tsa-cert pki/tsa.der --tsa-key keys/tsa.key --gen-time "$GEN" --form cms --out sig/valid_cms.pem
F sign --content content/content.bin --cert pki/signer.der --cert pki/int.der \
  --signer-cert pki/signer.der --signer-key keys/signer.key \
  --tsa-cert pki/tsa.der --tsa-key keys/tsa.key --gen-time "$GEN" --form pkcs7 --out sig/valid_pkcs7.pem
for v in signer_expired_before signer_expired_after signer_not_yet_valid signer_ts_eku \
         signer_no_digital_signature signer_sha1 signer_eku_codesign_second; do
  sign_with "$v" "$v" signer "$v,int"
done
mv sig/signer_sha1.der sig/sha1_cert.der
sig no_token --no-token
sig imprint_over_content --ts-imprint-over content
sig tsa_codesign_eku --tsa-cert pki/tsa_codesign.der
sign_with unrelated_root other_signer other_signer other_signer,other_int
sig sha1_digest --digest sha1
sign_with three_certs signer signer signer,int,tsa
sig two_signers --signer-cert pki/signer2.der --signer-key keys/signer2.key \
  --tsa-cert pki/tsa.der --tsa-key keys/tsa.key --gen-time "$GEN" --ts-serial 2
sig sha384 --digest sha384
sig sha512 --digest sha512 --ts-digest sha512 --ts-sign-digest sha384
sig no_signed_attrs --no-signed-attrs
sig signing_time --signing-time 260315115900Z
sig ts_no_signed_attrs --ts-no-signed-attrs
sig ts_no_certs --ts-no-certs
sig ts_with_root_cert --ts-cert pki/tsa.der --ts-cert pki/root.der
sig sha1_imprint --ts-digest sha1
sig ts_gen_time_tampered --ts-tamper-gen-time "$GEN_TAMPERED"
sig ts_gen_time_tampered_no_attrs --ts-no-signed-attrs --ts-tamper-gen-time "$GEN_TAMPERED"
sign_with rollover_old_key_expired signer signer signer,int_old_expired
sign_with vendor_signer vendor_signer signer vendor_signer,vendor_signing
sign_with signer_ku_decipher_only signer_ku_decipher_only signer signer_ku_decipher_only,int
sign_with signer_ku_with_decipher_only signer_ku_with_decipher_only signer signer_ku_with_decipher_only,int
sign_with below_pathlen0 signer_below_pathlen0 signer signer_below_pathlen0
sign_with below_pathlen0_sub signer_below_pathlen0_sub signer signer_below_pathlen0_sub
sign_with name_constrained signer_name_constrained signer signer_name_constrained
sign_with signer_dp signer_dp signer signer_dp,int

# ---------------------------------------------------------------- images
img() { # name, signature, extra...
  local name=$1 s=$2
  shift 2
  F image --body body/body.bin --signature "$s" --content content/content.bin \
    --crl crlfiles/good.der "$@" --out "images/$name.img"
}
for v in valid signer_expired_before signer_expired_after signer_not_yet_valid no_token \
         imprint_over_content tsa_codesign_eku signer_ts_eku signer_no_digital_signature \
         unrelated_root sha1_digest three_certs two_signers; do
  img "$v" "sig/$v.der"
done
img valid_cms sig/valid_cms.pem
img valid_pkcs7 sig/valid_pkcs7.pem
F image --body body/body.bin --signature sig/valid.der --content content/content_changed.bin \
  --crl crlfiles/good.der --out images/content_changed.img
img no_magic sig/valid.der --magic none
img reversed_magic sig/valid.der --magic reversed
img truncated sig/valid.der --truncate-by 1
img truncated_header sig/valid.der --truncate-to 1024
img crl_len_past_end sig/valid.der --crl-len 0x10000
img sig_len_over_room sig/valid.der --sig-len 8177
F image --body "$work/body_no_nvcnt.bin" --signature sig/valid.der --content content/content.bin \
  --crl crlfiles/good.der --out images/no_nvcnt.img

# ---------------------------------------------------------------- scenarios
# name, op, args (checktool's arguments after the operation number), blocks
# (signature and content), expected result, what it is about.
exec 3> scenarios.txt
cat >&3 <<'EOF'
# Fixture scenarios, generated by forge/make_fixtures.sh: do not edit by hand.
# Tab-separated columns:
#   name     unique scenario name
#   op       checktool operation 0..4, or "sig": verify the signature block over the
#            content block against the CRL file and the built-in root (what operation 3
#            does once the image is parsed; these signatures have no committed image)
#   args     checktool's arguments after the operation number, paths relative to
#            tests/testdata; OUT is an output file the test provides (it must exist).
#            For "sig": the CRL file.
#   blocks   the signature and content files inside the image ("-" when none)
#   expect   the result: 0, a CRL verdict 0..5 (operations 1 and 2), 0/1/2 (operation
#            4), or a result code in hex (the exit status is its low byte)
#   about    what the scenario is for and the expected outcome in words
# genTime of every token: 2026-03-15 12:00:00 UTC. Current CRLs: 2026-01-01 .. 2027-01-01.
EOF
row() { printf '%s\t%s\t%s\t%s\t%s\t%s\n' "$@" >&3; }
good=crlfiles/good.der
V="sig/valid.der content/content.bin"
blk() { echo "sig/$1.der content/content.bin"; }
op3() { row "$1" 3 "$2 images/$3.img" "$4" "$5" "$6"; }
opsig() { row "$1" sig "$2" "$(blk "$3")" "$4" "$5"; }

# Operation 3, images signed as a device maker would, with one fault each.
op3 valid $good valid "$V" 0 "verifies: signer, code-signing CA and TSA valid and unrevoked at genTime"
op3 valid_pem_crlfile crlfiles/good.pem valid "$V" 0 "verifies: the same CRL file in PEM (X509 CRL and CERTIFICATE blocks)"
op3 valid_cms_pem $good valid_cms "sig/valid_cms.pem content/content.bin" 0 "verifies: signature block in PEM under BEGIN CMS"
op3 valid_pkcs7_pem $good valid_pkcs7 "sig/valid_pkcs7.pem content/content.bin" 0 "verifies: signature block in PEM under BEGIN PKCS7"
op3 signer_expired_after_gentime $good signer_expired_after "$(blk signer_expired_after)" 0 "verifies: signer expired 2026-06-30, after genTime (but before today): validity is judged at genTime"
op3 signer_revoked crlfiles/signer_revoked.der valid "$V" 0x88200002 "fails: the CA's CRL revokes the signer (keyCompromise, 2026-02-01, before genTime)"
op3 signer_revoked_after_gentime crlfiles/signer_revoked_after_gentime.der valid "$V" 0 "verifies: signer revoked 2026-05-01, after genTime; an end-entity revocation counts from its date"
op3 intermediate_revoked crlfiles/int_revoked.der valid "$V" 0x88200002 "fails: the root's CRL revokes the code-signing CA (keyCompromise), so the CA's own CRL has no valid signer"
op3 intermediate_superseded_after_gentime crlfiles/int_superseded_after_gentime.der valid "$V" 0 "verifies: CA revoked with reason superseded dated after genTime; reasons 3, 4, 5 follow the date"
op3 intermediate_keycompromise_after_gentime crlfiles/int_keycompromise_after_gentime.der valid "$V" 0x88200002 "fails: CA revoked for keyCompromise dated after genTime; a CA revocation with another reason counts at once"
op3 tsa_revoked_after_gentime crlfiles/tsa_revoked_after_gentime.der valid "$V" 0x88200002 "fails: TSA listed without reason, dated after genTime; on a time-stamping path only reasons 3, 4, 5 follow the date"
op3 signer_expired_before_gentime $good signer_expired_before "$(blk signer_expired_before)" 0x88200014 "fails: signer expired 2026-01-31, before genTime"
op3 signer_not_yet_valid $good signer_not_yet_valid "$(blk signer_not_yet_valid)" 0x88200013 "fails: signer valid from 2026-04-01, after genTime"
op3 no_token $good no_token "$(blk no_token)" 0x88100001 "fails: the signer carries no time-stamp token"
op3 imprint_over_content $good imprint_over_content "$(blk imprint_over_content)" 0x88200402 "fails: the token's imprint hashes the content instead of the signer's signature value"
op3 tsa_codesign_eku $good tsa_codesign_eku "$(blk tsa_codesign_eku)" 0x88200007 "fails: the TSA certificate has the code-signing extended key usage, not time stamping"
op3 signer_ts_eku $good signer_ts_eku "$(blk signer_ts_eku)" 0x88200007 "fails: the signer has the time-stamping extended key usage, not code signing"
op3 signer_no_digital_signature $good signer_no_digital_signature "$(blk signer_no_digital_signature)" 0x88200007 "fails: the signer's key usage is nonRepudiation only, no digitalSignature"
op3 unrelated_root $good unrelated_root "$(blk unrelated_root)" 0x88200004 "fails: signer and CA chain to another root with the same names; no issuer verifies in the store"
op3 no_intermediate_crl crlfiles/no_int_crl.der valid "$V" 0x88200012 "fails: the CRL file lacks the code-signing CA's CRL, so no CRL covers the signer"
op3 expired_crl crlfiles/int_crl_expired.der valid "$V" 0x88200012 "fails: the CA's CRL expired 2025-12-31, before genTime, and does not list the signer"
op3 intermediate_crl_bad_signature crlfiles/int_crl_bad_signature.der valid "$V" 0x88200012 "fails: the CA's CRL signature does not verify, so it is no candidate"
op3 indirect_root_crl_only crlfiles/indirect_root_only.der valid "$V" 0 "verifies: one indirect CRL from the root (IDP indirectCRL) covers signer, CA and TSA"
op3 sha1_digest $good sha1_digest "$(blk sha1_digest)" 0x88200309 "fails: the signer's digest algorithm is SHA-1"
op3 three_certs $good three_certs "$(blk three_certs)" 0x88200308 "fails: 3 certificates embedded in the SignedData (at most 2 decode)"
op3 two_signers $good two_signers "$(blk two_signers)" 0x88200308 "fails: 2 signers, each with a valid token (at most 1 decodes)"
op3 content_changed $good content_changed "sig/valid.der content/content_changed.bin" 0x88200309 "fails: one byte of the content block changed after signing (verdict 0)"
op3 layout_no_magic $good no_magic "$V" 0x88100001 "fails: the trailer magic is absent"
op3 layout_reversed_magic $good reversed_magic "$V" 0x88100001 "fails: the trailer magic is stored big-endian"
op3 layout_truncated $good truncated "$V" 0x88100001 "fails: the file lost its last byte, so the CRL block runs past the end"
op3 layout_truncated_header $good truncated_header "$V" 0x88100001 "fails: a 1024-byte file, too short for the magic"
op3 layout_crl_len_past_end $good crl_len_past_end "$V" 0x88100001 "fails: the CRL block length runs past the end of the file"
op3 layout_sig_len_over_room $good sig_len_over_room "$V" 0x88100001 "fails: the signature block length (8177) exceeds its 8176-byte room"

# Signature blocks without an image: the same verification, more faults.
opsig sig_sha384 $good sha384 0 "verifies: SHA-384 signer digest"
opsig sig_sha512 $good sha512 0 "verifies: SHA-512 signer digest and imprint, SHA-384 token signature"
opsig sig_no_signed_attrs $good no_signed_attrs 0 "verifies: the signer signs the content itself (no signed attributes)"
opsig sig_signing_time $good signing_time 0 "verifies: an extra signing-time signed attribute is ignored"
opsig sig_ts_no_signed_attrs $good ts_no_signed_attrs 0 "verifies: the token's signer signs the TSTInfo itself (no signed attributes)"
opsig sig_ts_no_certs_tsa_in_crlfile crlfiles/good_with_tsa.der ts_no_certs 0 "verifies: the token carries no certificate; the TSA certificate comes with the CRL file"
opsig sig_ts_no_certs $good ts_no_certs 0x88200401 "fails: the token carries no certificate and the TSA certificate is nowhere"
opsig sig_ts_with_root_cert $good ts_with_root_cert 0 "verifies: the token also carries the root, which is refused from a signature and not needed"
opsig sig_sha1_imprint $good sha1_imprint 0x88200016 "fails: the token's imprint uses SHA-1"
opsig sig_sha1_signer_cert $good sha1_cert 0x88200004 "fails: the signer certificate is signed with sha1WithRSAEncryption, so its issuer never verifies"
opsig sig_ts_gen_time_tampered $good ts_gen_time_tampered 0x88200403 "fails: genTime changed after the TSA signed (message digest mismatch)"
opsig sig_ts_gen_time_tampered_no_attrs $good ts_gen_time_tampered_no_attrs 0x88200403 "fails: genTime changed after the TSA signed the TSTInfo directly"
opsig sig_signer_eku_codesign_second $good signer_eku_codesign_second 0x88200007 "fails: code signing is the second extended key usage; only the first counts"

# Attacks on the path walk: a CRL signed by another certificate of the
# issuer's name does not vouch for the issuer itself.
op3 rollover_old_key_revoked crlfiles/rollover_old_key_revoked.der valid "$V" 0x88200002 "fails: the CA's CRL is signed by its rolled-over key; the old CA certificate that issued the signer is revoked (keyCompromise) by the root"
opsig sig_rollover_old_key_expired crlfiles/rollover.der rollover_old_key_expired 0x88200014 "fails: the CA's CRL is signed by its rolled-over key; the old-key CA certificate that issued the signer expired before genTime"
op3 rollover crlfiles/rollover.der valid "$V" 0 "verifies: the CA's CRL is signed by its rolled-over key and the old CA certificate is valid and unrevoked"
opsig sig_vendor_same_first_attribute crlfiles/vendor_recovery_crl.der vendor_signer 0x88200002 "fails: the signer's revoked CA (CN=Vendor CA + OU=Code Signing) and the CRL's signer (CN=Vendor CA + OU=Key Recovery) match only on each RDN's first attribute"
opsig sig_signer_ku_decipher_only $good signer_ku_decipher_only 0x88200007 "fails: key usage keyAgreement and decipherOnly (two octets), no digitalSignature"
opsig sig_signer_ku_with_decipher_only $good signer_ku_with_decipher_only 0 "verifies: key usage digitalSignature and decipherOnly (two octets)"

# Constraints of the path and the scope of CRLs: what cannot be honoured is refused.
opsig sig_below_pathlen0 crlfiles/pathlen0.der below_pathlen0 0 "verifies: the signer's CA has pathLenConstraint 0 and issued the signer directly"
opsig sig_pathlen0_exceeded crlfiles/pathlen0.der below_pathlen0_sub 0x8820001a "fails: a CA with pathLenConstraint 0 issued the sub-CA that issued the signer"
opsig sig_name_constrained_ca crlfiles/name_constrained.der name_constrained 0x88200019 "fails: the signer's CA carries critical name constraints, which are not processed"
opsig sig_root_crl_only_user crlfiles/root_crl_only_user.der valid 0x88200012 "fails: the root's CRL covers only end-entity certificates, so nothing shows the code-signing CA unrevoked"
opsig sig_int_crl_delta crlfiles/int_crl_delta.der valid 0x88200012 "fails: the CA's only CRL is a delta CRL, which lists only changes since its base"
opsig sig_int_crl_unknown_critical crlfiles/int_crl_unknown_critical.der valid 0x88200012 "fails: the CA's only CRL carries an unknown critical extension"
opsig sig_int_crl_dp_not_named crlfiles/int_crl_dp.der valid 0x88200012 "fails: the CA's CRL covers one distribution point and the signer names none"
opsig sig_int_crl_dp_named crlfiles/int_crl_dp.der signer_dp 0 "verifies: the CA's CRL covers the distribution point the signer names"

# Operation 0: extract the image's own CRL block.
row extract_crl 0 "images/valid.img OUT" - 0 "writes OUT with exactly the bytes of crlfiles/good.der"
row extract_crl_no_magic 0 "images/no_magic.img OUT" - 0x88100001 "fails: no trailer magic"

# Operation 4: NV counter.
row nvcnt_cms 4 "0 images/valid.img OUT" - 0 "writes IMAGE_NVCNT=7 and a line feed"
row nvcnt_cms_no_magic 4 "0 images/no_magic.img OUT" - 0 "writes IMAGE_NVCNT=7: the magic is not examined"
row nvcnt_cms_flag_zero 4 "0 images/no_nvcnt.img OUT" - 1 "the record's flag is 0: no counter, OUT untouched"
row nvcnt_cms_short_file 4 "0 images/truncated_header.img OUT" - 2 "a 1024-byte file cannot hold the 1136-byte header read"
row nvcnt_soc 4 "1 body/soc_image.bin OUT" - 0 "SoC image (the record ends the file): writes IMAGE_NVCNT=9"

# Operation 2: one CRL file's integrity.
row check_good 2 "$good" - 0 "valid: root and CA CRLs verify, compared with themselves"
row check_good_pem 2 crlfiles/good.pem - 0 "valid: the same file in PEM"
row check_20_entries 2 crlfiles/cmp_20_entries.der - 0 "valid: a root CRL with 20 entries"
row check_21_entries 2 crlfiles/cmp_21_entries.der - 3 "invalid: 21 entries do not decode"
row check_no_next_update 2 crlfiles/cmp_no_next_update.der - 3 "invalid: the root CRL has no nextUpdate and does not decode"
row check_v1 2 crlfiles/cmp_v1.der - 3 "invalid: the root CRL has no version field and does not decode"
row check_no_cert 2 crlfiles/cmp_no_cert.der - 3 "invalid: CRLs without any certificate"
row check_unverified 2 crlfiles/cmp_unverified.der - 3 "invalid: the CA's CRL signer is missing, so its summary is unverified"
row check_dup_issuer 2 crlfiles/cmp_dup_issuer.der - 3 "invalid: two CRLs from the root"
row check_trailing_20 2 crlfiles/good_trailing_20.der - 0 "valid: 20 trailing zero bytes are ignored"
row check_trailing_40 2 crlfiles/good_trailing_40.der - 3 "invalid: 40 trailing zero bytes fail the decoding"
row check_garbage 2 crlfiles/garbage.bin - 3 "invalid: not DER at all"
row check_loop_indirect_3 2 crlfiles/loop_indirect_3.der - 3 "invalid: three CAs' indirect CRLs vouch only for each other (no root CRL); verified once each, not once per path"
row check_loop_indirect_4 2 crlfiles/loop_indirect_4.der - 3 "invalid: the same with four CAs"
row check_chain_two_indirect 2 crlfiles/chain_two_indirect.der - 3 "invalid: a four-CA chain whose lower CAs issue indirect CRLs, no root CRL"

# Operation 1: update CRL file (first) against device CRL file (second).
row compare_same 1 "$good $good" - 0 "neither newer"
row compare_update_newer 1 "crlfiles/cmp_newer.der $good" - 1 "the update's root and CA CRLs are newer"
row compare_device_newer 1 "$good crlfiles/cmp_newer.der" - 2 "the device's CRLs are newer"
row compare_mixed 1 "crlfiles/cmp_mixed.der $good" - 3 "root CRL newer in the update, CA CRL newer on the device"
row compare_more_issuers 1 "crlfiles/cmp_more_issuers.der $good" - 1 "same dates, the update adds a second CA's CRL"
row compare_root_revokes_int 1 "crlfiles/cmp_root_revokes_int.der $good" - 1 "the update drops the CA's CRL and its newer root CRL revokes that CA"
row compare_root_revokes_int_reversed 1 "$good crlfiles/cmp_root_revokes_int.der" - 2 "the same, files swapped"
row compare_int_crl_dropped 1 "crlfiles/cmp_int_crl_dropped.der $good" - 3 "the update drops the CA's CRL without revoking the CA: the comparison fails"
row compare_update_garbage 1 "crlfiles/garbage.bin $good" - 4 "only the device CRL file is valid"
row compare_device_garbage 1 "$good crlfiles/garbage.bin" - 5 "only the update CRL file is valid"
row compare_update_no_cert 1 "crlfiles/cmp_no_cert.der $good" - 4 "the update carries no certificate, so it does not decode"
row compare_both_garbage 1 "crlfiles/garbage.bin crlfiles/garbage.bin" - 3 "both invalid"
exec 3>&-

# ---------------------------------------------------------------- README, manifest, root
cat > README.md <<'EOF'
# Test fixtures

Generated by `forge/make_fixtures.sh` (keys included): do not edit by hand; change the script
and run it again. The same script and forge give the same bytes.

- `scenarios.txt`: every scenario, its files and the expected outcome (read its header).
- `MANIFEST.sha256`: the SHA-256 of every file here; a test checks the set against it.
- `keys/`: RSA keys (PEM), derived from fixed seeds. Development only.
- `pki/`: certificates (DER). `root.der` is the development root, also written to
  `tool/development_root_cert.der`; `other_*` form an unrelated PKI with the same names.
- `crl/`: single CRLs (DER). `crlfiles/`: CRL files (CRLs and certificates, DER
  concatenated, one PEM).
- `sig/`: detached signatures (signature blocks). `content/content.bin`: the signed content.
- `body/`: the image body (ends with the NV counter record, counter 7) and a SoC image.
- `images/`: whole CMS images (64 KiB header region, body, signature, content and CRL blocks).

genTime of every token is 2026-03-15 12:00:00 UTC; certificates and CRLs have fixed dates,
so no verdict depends on the clock.
EOF
find . -type f ! -name MANIFEST.sha256 | LC_ALL=C sort | sed 's|^\./||' | xargs sha256sum > MANIFEST.sha256
if [ -n "$root_out" ]; then
  cp pki/root.der "$root_out"
fi
echo "fixtures written to $out ($(find . -type f | wc -l) files, $(du -sk . | cut -f1) KiB)"
