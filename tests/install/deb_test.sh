#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the Debian packages with CPack, installs the tool's package with
# dpkg into an empty throwaway root, gives that root the shared libraries
# the binary needs (copied from this machine, or run through
# qemu-aarch64-static for an arm64 package) and runs scenarios of all five
# operations in it under chroot. Then removes the package. lintian checks
# every package first.
#
# deb_test.sh BUILD_DIR WORK_DIR SOURCE_DIR
# Needs root (dpkg --root, chroot); exits 77 (skipped) otherwise.
set -euo pipefail
build=$1 work=$2 top=$3
fail() { echo "FAIL: $*" >&2; exit 1; }
[ "$(id -u)" = 0 ] || { echo "needs root for dpkg --root and chroot; skipped"; exit 77; }
for t in cpack dpkg dpkg-deb readelf chroot; do
  command -v "$t" > /dev/null || { echo "$t not installed; skipped"; exit 77; }
done
rm -rf "$work"
mkdir -p "$work/packages"
cpack --config "$build/CPackConfig.cmake" -B "$work/packages" > "$work/cpack.log" 2>&1 ||
  { cat "$work/cpack.log"; fail "cpack"; }
debs=("$work"/packages/checktool_*.deb) devs=("$work"/packages/libvexa-dev_*.deb)
deb=${debs[0]} dev=${devs[0]}
[ -e "$deb" ] && [ -e "$dev" ] || fail "the checktool and libvexa-dev packages are not both made"
# Debian's own checks: no error and no warning on any package.
if command -v lintian > /dev/null; then
  lintian --fail-on error,warning "$work"/packages/*.deb 2>&1 | grep -v '^running with root privileges' ||
    [ "${PIPESTATUS[0]}" = 0 ] || fail "lintian"
else
  echo "lintian not installed; its checks skipped"
fi

# lintian has seen to the manual page and the stripping; the run below to the tool.
dpkg-deb --contents "$deb" | grep -q "usr/include/vexa/" && fail "headers belong in libvexa-dev, not the tool's package"
dev_contents=$(dpkg-deb --contents "$dev")
for f in ./usr/include/vexa/vexa_services.h ./usr/include/kestrel/kestrel.h vexa/vexaConfig.cmake pkgconfig/vexa.pc; do
  grep -q "$f\$" <<< "$dev_contents" || fail "$f missing from $(basename "$dev")"
done

root=$work/root
mkdir -p "$root"/var/lib/dpkg/{info,updates,triggers} "$root/var/log" "$root/tmp" "$root/etc"
touch "$root/var/lib/dpkg/status" "$root/var/lib/dpkg/available"
arch=$(dpkg-deb --field "$deb" Architecture)
[ "$arch" = "$(dpkg --print-architecture)" ] || dpkg --root="$root" --add-architecture "$arch"
# The root holds no libc6 or libssl3 packages, only their files (below), so
# the dependencies are checked by hand.
dpkg --root="$root" --force-depends --force-script-chrootless -i "$deb" > "$work/dpkg.log" 2>&1 ||
  { cat "$work/dpkg.log"; fail "dpkg -i"; }
dpkg --root="$root" -s checktool | grep -q "^Status: install ok installed" || fail "dpkg does not see checktool installed"

tool=$root/usr/sbin/checktool
case $(readelf -h "$tool" | sed -n 's/^ *Machine: *//p') in
  *X86-64*) triplet=x86_64-linux-gnu qemu= ;;
  *AArch64*) triplet=aarch64-linux-gnu qemu=qemu-aarch64-static ;;
  *ARM*) triplet=arm-linux-gnueabihf qemu=qemu-arm-static ;;
  *S/390*) triplet=s390x-linux-gnu qemu=qemu-s390x-static ;;
  *) fail "no library search path known for this machine" ;;
esac
needed_of() { readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'; }
copy_lib() { # soname, with what it needs in turn
  local d dep
  [ -e "$root/usr/lib/$triplet/$1" ] && return 0
  for d in "/usr/lib/$triplet" "/lib/$triplet" "/usr/$triplet/lib"; do
    [ -e "$d/$1" ] || continue
    mkdir -p "$root/usr/lib/$triplet"
    cp -L "$d/$1" "$root/usr/lib/$triplet/$1"
    for dep in $(needed_of "$d/$1"); do copy_lib "$dep"; done
    return 0
  done
  fail "library $1 not found for $triplet"
}
needed=$(needed_of "$tool")
for lib in $needed; do copy_lib "$lib"; done
interp=$(readelf -l "$tool" | sed -n 's/.*Requesting program interpreter: \(.*\)\]/\1/p')
mkdir -p "$root$(dirname "$interp")"
if [ -e "$interp" ] && [ -z "$qemu" ]; then
  cp -L "$interp" "$root$interp"
else
  cp -L "/usr/lib/$triplet/${interp##*/}" "$root$interp" 2>/dev/null || cp -L "/usr/$triplet/lib/${interp##*/}" "$root$interp"
fi
depends=$(dpkg-deb --field "$deb" Depends)
echo "libraries: $needed; Depends: $depends"
grep -q libc6 <<< "$depends" || fail "Depends lacks libc6"
if grep -q libcrypto <<< "$needed"; then
  grep -q libssl3 <<< "$depends" || fail "checktool needs libcrypto but the package does not depend on libssl3"
fi
printf 'root:x:0:0:root:/root:/bin/sh\n' > "$root/etc/passwd"
printf 'root:x:0:\n' > "$root/etc/group"
printf 'passwd: files\ngroup: files\n' > "$root/etc/nsswitch.conf"
runner=()
if [ -n "$qemu" ]; then
  command -v "$qemu" > /dev/null || { echo "$qemu not installed; the $arch package was checked but not run"; exit 0; }
  mkdir -p "$root/usr/bin"
  cp "$(command -v "$qemu")" "$root/usr/bin/$qemu"
  runner=("/usr/bin/$qemu")
fi
in_root() { LD_LIBRARY_PATH=/usr/lib/$triplet chroot "$root" "${runner[@]}" /usr/sbin/checktool "$@"; }

# Scenarios of the committed fixture set, run by the packaged tool in the root.
testdata=$top/tests/testdata
scenarios=(extract_crl check_good compare_update_newer compare_device_garbage valid content_changed nvcnt_cms nvcnt_soc)
failed=0
for name in "${scenarios[@]}"; do
  row=$(awk -F'\t' -v n="$name" '$1 == n { print $2 "\t" $3 "\t" $5 }' "$testdata/scenarios.txt")
  [ -n "$row" ] || fail "scenario $name not in scenarios.txt"
  IFS=$'\t' read -r op args expect <<< "$row"
  argv=() out=
  for a in $args; do
    if [ "$a" = OUT ]; then
      out=/tmp/out-$name
      : > "$root$out"
      argv+=("$out")
    elif [ -f "$testdata/$a" ]; then
      mkdir -p "$root/tmp/testdata/${a%/*}"
      cp "$testdata/$a" "$root/tmp/testdata/$a"
      argv+=("/tmp/testdata/$a")
    else
      argv+=("$a")
    fi
  done
  rc=0
  in_root "$op" "${argv[@]}" > /dev/null || rc=$?
  if [ "$rc" = 0 ] && [ "$op" = 4 ]; then
    grep -qx 'IMAGE_NVCNT=[0-9]*' "$root$out" || rc="0, output '$(cat "$root$out")'"
  elif [ "$rc" = 0 ] && [ "$op" = 0 ]; then
    [ -s "$root$out" ] || rc="0, empty output"
  fi
  echo "checktool $op ${argv[*]}: exit status $rc (expected $((expect & 255)))"
  [ "$rc" = $((expect & 255)) ] || failed=1
done
[ $failed = 0 ] || fail "the packaged tool gave unexpected results"

log=$root/var/log/upgradetool/upgrade_crl.log
[ -f "$log" ] || fail "no log in the root"
[ "$(stat -c %a "${log%/*}")" = 750 ] || fail "log directory mode $(stat -c %a "${log%/*}")"
[ "$(stat -c %a "$log")" = 600 ] || fail "log mode $(stat -c %a "$log")"
[ "$(grep -c 'SUGGESTION root .* CHECK_TOOL: return result: ' "$log")" = ${#scenarios[@]} ] ||
  fail "log lacks a result line per run"

dpkg --root="$root" --force-script-chrootless -r checktool > "$work/dpkg-remove.log" 2>&1 ||
  { cat "$work/dpkg-remove.log"; fail "dpkg -r"; }
[ -e "$root/usr/sbin/checktool" ] && fail "checktool left behind after removal"
[ -f "$log" ] || fail "removal took the log with it"
echo "deb test passed"
