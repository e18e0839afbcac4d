#!/usr/bin/env bash
# Builds checktool and runs it on a demo image: operation 0 extracts the
# image's CRL, operation 4 reads its NV counter. Shows exit statuses, output
# files and the log lines each run added.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/deps.sh"
cmake -G Ninja -S "$top" -B "$top/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$top/build" -j "$(nproc)" --target checktool
tool="$top/build/bin/checktool"
demo=$(mktemp -d /tmp/checktool-demo.XXXXXX)
log=/var/log/upgradetool/upgrade_crl.log

le32() { printf '\\x%02x\\x%02x\\x%02x\\x%02x' $(($1 & 255)) $(($1 >> 8 & 255)) $(($1 >> 16 & 255)) $(($1 >> 24 & 255)); }
put() { # file, offset, bytes (printf escapes)
  printf "$3" | dd of="$1" bs=1 seek="$2" conv=notrunc status=none
}

# A CMS image: 64 KiB header, a 4096-byte body ending in the NV counter
# record (flag 0x5A5AA5A5, counter 7), and the three trailer blocks.
img="$demo/demo.img"
body=4096
trailer=$((0x10000 + body + 32 - body % 16))
crl="$top/tool/development_root_cert.der"   # stand-in bytes for the CRL block
crl_len=$(stat -c %s "$crl")
truncate -s $((trailer + 0x2810)) "$img"
put "$img" $((0x460)) "$(le32 $body)"
put "$img" $((0x490)) '\x55\xaa\x55\xaa\x34\x12\xcd\xab'
put "$img" $((0x10000 + body - 8)) "$(le32 0x5A5AA5A5)$(le32 7)"
put "$img" $((trailer + 0x280C)) "$(le32 "$crl_len")"
cat "$crl" >> "$img"

run() {
  local before=0
  [ -f "$log" ] && before=$(wc -l < "$log")
  echo "\$ checktool $*"
  set +e; "$tool" "$@"; local rc=$?; set -e
  echo "exit status: $rc"
  echo "new log lines:"
  tail -n +$((before + 1)) "$log" | grep -v '^$' | sed 's/^/  /'
  echo
}

: > "$demo/crl.out"
run 0 "$img" "$demo/crl.out"
echo "crl.out: $(stat -c %s "$demo/crl.out") bytes, same as the CRL block: $(cmp -s "$crl" "$demo/crl.out" && echo yes || echo no)"
echo
: > "$demo/nvcnt.out"
run 4 0 "$img" "$demo/nvcnt.out"
echo "nvcnt.out: $(cat "$demo/nvcnt.out")"
echo
echo "demo files are in $demo"
