#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What a device pays per call, as whole processes on the forge fixtures:
#  1. checktool 3 and checktool 1 against the OpenSSL command-line pair that
#     checks the same image (openssl cms -verify with the content, the root,
#     the CRL file and CRL checks on every certificate, then openssl ts -verify
#     of the signer's time-stamp token): median and spread of many runs, and
#     the ratio from this one run;
#  2. operations 0, 3 and 4 on a 4 GiB - 1 sparse image against the small
#     fixture image with the same header and trailer, both under an
#     address-space limit of 32 MiB (ulimit -v 32768): peak resident memory
#     and time (/usr/bin/time -v), with exit statuses, output files and log
#     lines compared between the two;
#  3. the in-process figures (bench/verify_bench): one image verification,
#     one CRL comparison, the RSA verifications and allocations they make.
#   bench/whole_process.sh            200 runs per command
#   RUNS=1000 bench/whole_process.sh
# Runs checktool as installed on a device: it writes /var/log/upgradetool.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
runs=${RUNS:-200}
build=${BENCH_BUILD:-$top/build-bench}
data=$top/tests/testdata

"$top/scripts/deps.sh"
need=()
for tool in hyperfine time python3; do
  command -v "$tool" >/dev/null || [ -x /usr/bin/$tool ] || need+=("$tool")
done
if [ ${#need[@]} -gt 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -q && apt-get install -y -q --no-install-recommends "${need[@]}"
fi

cmake -G Ninja -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=Release -DCHECKTOOL_BENCH=ON -DCHECKTOOL_TESTS=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" --target checktool forge verify_bench >/dev/null
# The same tool with libcrypto linked in: no shared-library loading and
# relocation at start-up, which is most of what a process costs here.
cmake -G Ninja -S "$top" -B "$build-static" -DCMAKE_BUILD_TYPE=Release -DCHECKTOOL_STATIC_CRYPTO=ON \
  -DCHECKTOOL_TESTS=OFF -DCHECKTOOL_FORGE=OFF >/dev/null
cmake --build "$build-static" -j "$(nproc)" --target checktool >/dev/null
ct=$build/bin/checktool
cts=$build-static/bin/checktool
forge=$build/bin/forge
work=$(mktemp -d /tmp/checktool-bench.XXXXXX)
trap 'rm -rf "$work"' EXIT
log=/var/log/upgradetool/upgrade_crl.log

echo "machine: $(nproc) cores, $(sed -n 's/^model name\s*: //p' /proc/cpuinfo | head -1), $(. /etc/os-release && echo "$PRETTY_NAME"), $(openssl version)"
echo "load average at start: $(cut -d' ' -f1-3 /proc/loadavg)"
echo

# ---------------------------------------------------------------- 1. side by side
GEN_EPOCH=1773576000 # the tokens' genTime: OpenSSL judges validity then, as checktool does
img=$data/images/valid.img
crlfile=$data/crlfiles/good.der
"$forge" crlfile --form pem --out "$work/crlfile.pem" "$crlfile"
openssl x509 -inform DER -in "$data/pki/root.der" -out "$work/ca.pem"
awk '/BEGIN X509 CRL/,/END X509 CRL/' "$work/crlfile.pem" >> "$work/ca.pem"
awk '/BEGIN CERTIFICATE/,/END CERTIFICATE/' "$work/crlfile.pem" > "$work/certs.pem"
openssl x509 -inform DER -in "$data/pki/tsa.der" >> "$work/certs.pem"
"$forge" token --in "$data/sig/valid.der" --signer 1 --out "$work/token.der" --signature-out "$work/sigvalue.bin"
cms=(openssl cms -verify -binary -inform DER -in "$data/sig/valid.der" -content "$data/content/content.bin"
     -CAfile "$work/ca.pem" -certfile "$work/certs.pem" -purpose any -crl_check_all -attime "$GEN_EPOCH"
     -out /dev/null)
ts=(openssl ts -verify -in "$work/token.der" -token_in -data "$work/sigvalue.bin" -CAfile "$work/ca.pem"
    -untrusted "$work/certs.pem" -crl_check_all -attime "$GEN_EPOCH")

# Every command must reach its verdict before its time means anything.
check() { # expected status, command...
  local want=$1 got=0
  shift
  "$@" >/dev/null 2>&1 || got=$?
  [ "$got" = "$want" ] || { echo "unexpected exit status $got (want $want): $*"; exit 1; }
}
check 0 "$ct" 3 "$crlfile" "$img"
check 0 "$cts" 3 "$crlfile" "$img"
check 1 "$ct" 1 "$data/crlfiles/cmp_newer.der" "$crlfile"
check 0 "${cms[@]}"
check 0 "${ts[@]}"

q() { printf '%q ' "$@"; }
hyperfine -N -i --warmup 20 --runs "$runs" --style none --export-json "$work/times.json" \
  -n "checktool 3" "$(q "$ct" 3 "$crlfile" "$img")" \
  -n "checktool 3, static libcrypto" "$(q "$cts" 3 "$crlfile" "$img")" \
  -n "checktool 1" "$(q "$ct" 1 "$data/crlfiles/cmp_newer.der" "$crlfile")" \
  -n "openssl cms -verify" "$(q "${cms[@]}")" \
  -n "openssl ts -verify" "$(q "${ts[@]}")" >/dev/null 2>"$work/hyperfine.err" || { cat "$work/hyperfine.err"; exit 1; }
python3 - "$work/times.json" "$runs" <<'EOF'
import json, statistics, sys
rows = {r["command"]: sorted(r["times"]) for r in json.load(open(sys.argv[1]))["results"]}
def q(t, f): return t[min(len(t) - 1, int(f * len(t)))]
print(f"whole process, {sys.argv[2]} runs each (ms)     median    p10    p90    min")
for name, t in rows.items():
    print(f"  {name:<36} {1e3*statistics.median(t):7.2f} {1e3*q(t,.1):6.2f} {1e3*q(t,.9):6.2f} {1e3*t[0]:6.2f}")
pair = statistics.median(rows["openssl cms -verify"]) + statistics.median(rows["openssl ts -verify"])
print(f"  OpenSSL pair (sum of medians)        {1e3*pair:7.2f}")
for name in ("checktool 3", "checktool 3, static libcrypto"):
    print(f"ratio: the OpenSSL pair takes {pair/statistics.median(rows[name]):.1f}x the time of {name} (target: at least 5x)")
EOF
echo

# ---------------------------------------------------------------- 2. large images
# The 4 GiB - 1 image keeps the fixture's header, its NV counter record at the
# end of the body and its trailer; the body between is a hole.
python3 - "$img" "$work/big.img" <<'EOF'
import struct, sys
src = open(sys.argv[1], "rb").read()
body_len = struct.unpack_from("<I", src, 0x460)[0]
trailer = 0x10000 + body_len + 32 - body_len % 16
size = (1 << 32) - 1
big_len = (size - 0x20000) & ~0xF
big_trailer = 0x10000 + big_len + 32 - big_len % 16
with open(sys.argv[2], "wb") as out:
    header = bytearray(src[:0x10000])
    struct.pack_into("<I", header, 0x460, big_len)
    out.write(header)
    out.seek(0x10000 + big_len - 8)
    out.write(src[0x10000 + body_len - 8:0x10000 + body_len])
    out.seek(big_trailer)
    out.write(src[trailer:])
    out.truncate(size)
EOF
printf 'large image: %s bytes apparent, %s KiB on disk\n' "$(stat -c %s "$work/big.img")" "$(du -k "$work/big.img" | cut -f1)"

# Runs one operation under /usr/bin/time -v; keeps status, output and the log
# lines it added (time stamp and image path taken out) for the comparison.
measure() { # label, output file or -, checktool arguments...
  local label=$1 out=$2
  shift 2
  [ "$out" = - ] || : > "$out"
  local before=0 status=0
  [ -f "$log" ] && before=$(wc -l < "$log")
  /usr/bin/time -v -o "$work/time.txt" sh -c "ulimit -v $limit_kib && exec \"\$0\" \"\$@\"" "$ct" "$@" \
    >/dev/null 2>&1 || status=$?
  tail -n +$((before + 1)) "$log" | sed -E -e 's/^(CRL [A-Z]+ [^ ]+) [0-9-]+ [0-9:]+ /\1 /' -e "s#$work/[a-z]*\.img#IMAGE#g" \
    -e "s#$data/images/valid\.img#IMAGE#g" -e "s#$work/[a-z0-9_]*\.(crl|txt)#OUT#g" > "$work/$label.log"
  { echo "status $status"; [ "$out" = - ] || sha256sum < "$out"; } > "$work/$label.result"
  local rss wall
  rss=$(sed -n 's/.*Maximum resident set size (kbytes): //p' "$work/time.txt")
  wall=$(sed -n 's/.*Elapsed (wall clock) time (h:mm:ss or m:ss): //p' "$work/time.txt")
  printf '  %-24s exit %3s  peak RSS %6s KiB  wall %s\n' "$label" "$status" "$rss" "$wall"
}
limit_kib=32768
echo "operations on the small fixture image and on the 4 GiB - 1 one, address space limited to $limit_kib KiB (ulimit -v; /usr/bin/time -v):"
same=1
for size in small big; do
  image=$img
  [ $size = big ] && image=$work/big.img
  measure "op0-$size" "$work/$size.crl" 0 "$image" "$work/$size.crl"
  measure "op3-$size" - 3 "$crlfile" "$image"
  measure "op4-$size" "$work/$size.txt" 4 0 "$image" "$work/$size.txt"
done
for op in op0 op3 op4; do
  if ! cmp -s "$work/$op-small.result" "$work/$op-big.result" || ! cmp -s "$work/$op-small.log" "$work/$op-big.log"; then
    echo "  $op: the 4 GiB - 1 image gives a different result or log lines:"
    diff "$work/$op-small.result" "$work/$op-big.result" || true
    diff "$work/$op-small.log" "$work/$op-big.log" || true
    same=0
  fi
done
[ $same = 1 ] && echo "  exit statuses, output files and log lines are the same for both images"
echo

# ---------------------------------------------------------------- 3. in process
echo "in process (Google Benchmark; counts from one run of each):"
"$build/bench/verify_bench" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
  --benchmark_format=json --benchmark_out="$work/inproc.json" >/dev/null 2>&1
python3 - "$work/inproc.json" <<'EOF'
import json, sys
rows = {b["run_name"]: b for b in json.load(open(sys.argv[1]))["benchmarks"] if b["aggregate_name"] == "median"}
for name in ("BM_VerifyImage", "BM_CompareCrls", "BM_UnavoidableRsa"):
    b = rows[name]
    extra = "  ".join(f"{k}={int(b[k])}" for k in ("rsa_verifies", "distinct_sigs", "vexa_allocs", "crypto_allocs") if k in b)
    print(f"  {name:<18} {b['cpu_time']:8.1f} us CPU (median of 5)  {extra}")
ratio = rows["BM_VerifyImage"]["cpu_time"] / rows["BM_UnavoidableRsa"]["cpu_time"]
print(f"ratio: one image verification costs {ratio:.2f}x its unavoidable RSA verifications (target: at most 3x)")
EOF
[ $same = 1 ]
