#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Work that hostile or CA-made input can cause: checktool 2 on the CRL files
# whose CRL signers vouch only for each other (three and four CAs with
# indirect CRLs and no root CRL, a four-CA chain whose lower CAs issue
# indirect CRLs), and on 2,000,000 bytes of unterminated PEM blocks. Each
# runs once; the verdicts are printed next to the time.
#   bench/hostile_input.sh                  this tree's checktool
#   bench/hostile_input.sh OLD_CHECKTOOL    and another build, for before/after
#                                           (its runs stop after TIMEOUT, default 600 s)
# Runs checktool as installed on a device: it writes /var/log/upgradetool.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${BENCH_BUILD:-$top/build-bench}
data=$top/tests/testdata
limit=${TIMEOUT:-600}

cmake -G Ninja -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=Release -DCHECKTOOL_TESTS=OFF -DCHECKTOOL_FORGE=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" --target checktool >/dev/null
tools=("$build/bin/checktool")
[ $# -gt 0 ] && tools+=("$1")

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
python3 - "$work" <<'PY'
import sys
for name, block in (("pem_unterminated_cert", "-----BEGIN CERTIFICATE-----\nQUJD\n-----END X509 CRL-----\n"),
                    ("pem_unterminated_crl", "-----BEGIN X509 CRL-----\nQUJD\n-----END CERTIFICATE-----\n")):
    with open(f"{sys.argv[1]}/{name}.pem", "w") as f:
        f.write(block * (2000000 // len(block)))
PY

printf '%-28s' input
for t in "${tools[@]}"; do printf '  %-30s' "$(basename "$(dirname "$(dirname "$t")")")"; done
echo
for f in "$data/crlfiles/loop_indirect_3.der" "$data/crlfiles/loop_indirect_4.der" \
         "$data/crlfiles/chain_two_indirect.der" "$work/pem_unterminated_cert.pem" "$work/pem_unterminated_crl.pem"; do
  printf '%-28s' "$(basename "$f")"
  for t in "${tools[@]}"; do
    start=$(date +%s.%N)
    set +e
    timeout "$limit" "$t" 2 "$f" >/dev/null 2>&1
    status=$?
    set -e
    end=$(date +%s.%N)
    verdict=$status
    [ "$status" = 124 ] && verdict="stopped"
    printf '  %10s s, verdict %-9s' "$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f", b - a }')" "$verdict"
  done
  echo
done
