#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The scenario list fits the committed fixture set: every file a scenario
# names exists, every fixture is used by some scenario, and the development
# root built into checktool is the root the fixtures chain to.
#   fixtures_test.sh TESTDATA_DIR DEVELOPMENT_ROOT_DER
set -uo pipefail
data=$1 dev_root=$2
cd "$data" || exit 1
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# (That the files, MANIFEST.sha256 included, are what the script makes is
# reproduce_test.sh's to check.)
manifest_set=$(cut -c67- MANIFEST.sha256 | LC_ALL=C sort)
declare -A in_set seen_name used_file
while IFS= read -r file; do in_set[$file]=1; done <<< "$manifest_set"

# Scenario rows: shape, unique names, results that fit the operation and the
# words, arguments and blocks that are fixtures.
row_no=0
while IFS= read -r line; do
  case "$line" in '#'*|'') continue ;; esac
  row_no=$((row_no + 1))
  IFS=$'\t' read -r -a f <<< "$line"
  [ "${#f[@]}" = 6 ] || { fail "row $row_no has ${#f[@]} fields, not 6: $line"; continue; }
  name=${f[0]} op=${f[1]} args=${f[2]} blocks=${f[3]} expect=${f[4]} about=${f[5]}
  [ -z "${seen_name[$name]:-}" ] || fail "scenario $name appears twice"
  seen_name[$name]=1
  case "$op" in
    1|2) pattern='^[0-5]$' ;;
    4) pattern='^[012]$' ;;
    0|3|sig) pattern='^(0|0x[0-9a-f]{8})$' ;;
    *) fail "$name: unknown operation '$op'"; continue ;;
  esac
  [[ "$expect" =~ $pattern ]] || fail "$name: result '$expect' does not fit operation $op"
  case "$op:$expect:$about" in
    3:0:verifies:*|sig:0:verifies:*|3:0x*:fails:*|sig:0x*:fails:*|2:0:valid:*|2:3:invalid:*) ;;
    3:*|sig:*|2:*) fail "$name: result $expect and '$about' disagree" ;;
  esac
  read -r -a words <<< "$args"
  case "$op" in
    3) [ "${#words[@]}" = 2 ] && [[ "${words[1]}" == images/* ]] || fail "$name: operation 3 takes a CRL file and an image" ;;
    sig) [ "${#words[@]}" = 1 ] || fail "$name: a signature scenario names one CRL file" ;;
  esac
  if [ "$op" = 3 ] || [ "$op" = sig ]; then
    [[ "$blocks" =~ ^sig/[^\ ]+\ content/[^\ ]+$ ]] || fail "$name: blocks must be a signature and a content"
  elif [ "$blocks" != "-" ]; then
    fail "$name: only signature scenarios name blocks"
  fi
  for w in "${words[@]}" $([ "$blocks" = "-" ] || echo "$blocks"); do
    case "$w" in OUT|0|1) continue ;; esac
    if [ -n "${in_set[$w]:-}" ]; then used_file[$w]=1; else fail "$name names $w, which is not a fixture"; fi
  done
done < scenarios.txt
[ "$row_no" -gt 0 ] || fail "scenarios.txt holds no scenario"

# Images, signatures, CRL files and contents are all used; keys,
# certificates, single CRLs and the body are what they are made of.
while IFS= read -r file; do
  case "$file" in images/*|sig/*|crlfiles/*|content/*)
    [ -n "${used_file[$file]:-}" ] || fail "$file is used by no scenario" ;;
  esac
done <<< "$manifest_set"

# Each fault the verifier must catch keeps its scenario.
for needed in valid signer_revoked intermediate_revoked signer_expired_before_gentime \
    signer_expired_after_gentime signer_not_yet_valid no_token imprint_over_content \
    tsa_codesign_eku signer_ts_eku signer_no_digital_signature unrelated_root \
    no_intermediate_crl expired_crl sha1_digest three_certs two_signers valid_cms_pem \
    valid_pkcs7_pem valid_pem_crlfile content_changed compare_update_newer compare_device_newer; do
  [ -n "${seen_name[$needed]:-}" ] || fail "no scenario named $needed"
done
cmp -s "$dev_root" pki/root.der || fail "$dev_root is not the fixtures' root (run forge/make_fixtures.sh)"

echo "$failures failed"
[ "$failures" = 0 ]
