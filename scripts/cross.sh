#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Cross-builds checktool, its library and the test suite for a Debian
# architecture with Debian's cross toolchain, runs the whole suite under
# qemu-user (the 4 GiB - 1 image tests included, without the 32 MiB limit
# qemu itself does not fit in), makes that architecture's Debian packages
# and runs lintian on them (the install tests do both). Run as root on
# Debian 12; installs what is missing with apt-get first.
#
#   scripts/cross.sh ARCH [BUILD_DIR]     ARCH: armhf, arm64 or s390x (default build-ARCH)
#
# CROSS_CTEST_ARGS adds ctest arguments, e.g. CROSS_CTEST_ARGS="-E TamperTest".
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
arch=${1:?usage: scripts/cross.sh ARCH [BUILD_DIR]}
build=${2:-$top/build-$arch}
jobs=${JOBS:-$(nproc)}
start=$SECONDS

case $arch in
  armhf) triple=arm-linux-gnueabihf qemu=qemu-arm machine='ARM' ;;
  arm64) triple=aarch64-linux-gnu qemu=qemu-aarch64 machine='ARM aarch64' ;;
  s390x) triple=s390x-linux-gnu qemu=qemu-s390x machine='IBM S/390' ;;
  *) echo "cross.sh: no toolchain file for $arch (armhf, arm64, s390x)" >&2; exit 2 ;;
esac

"$top/scripts/deps.sh"

# ---- packages: cross compiler, qemu, the target's libraries to link and run --------
# Only what the device build links: forge (libcurl, libp11) is a host tool
# and stays out.
export DEBIAN_FRONTEND=noninteractive
updated=0
# A mirror caught mid-sync fails one index; the others still serve.
update() { [ $updated = 1 ] || { apt-get update -q || echo "apt-get update reported errors; going on"; updated=1; }; }
if ! dpkg --print-foreign-architectures | grep -qx "$arch"; then
  dpkg --add-architecture "$arch"
  update
fi
installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }
missing=()
for p in "g++-$triple" qemu-user-static "libgtest-dev:$arch" "libstdc++6:$arch" lintian file; do
  installed "$p" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  update
  echo "installing: ${missing[*]}"
  apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
# libssl-dev is Multi-Arch: same, so the target's copy must have exactly the
# host's version. The target's archive may lag or lead the host's (apt then
# answers "held broken packages"): install both at the target's candidate.
host=$(dpkg --print-architecture)
version_of() { dpkg-query -W -f='${Version}' "$1" 2>/dev/null || true; }
host_ssl=$(version_of "libssl3:$host")
if [ -z "$(version_of "libssl-dev:$arch")" ] || [ "$(version_of "libssl-dev:$arch")" != "$host_ssl" ] ||
   [ "$(version_of "libssl-dev:$host")" != "$host_ssl" ]; then
  update
  v=$(apt-cache policy "libssl-dev:$arch" | awk '/Candidate:/ {print $2}')
  [ -n "$v" ] && [ "$v" != "(none)" ] || { echo "cross.sh: no libssl-dev for $arch" >&2; exit 1; }
  echo "aligning libssl3 and libssl-dev of the host and $arch at $v"
  apt-get install -y -q --no-install-recommends --allow-downgrades \
    "libssl3=$v" "libssl-dev=$v" "openssl=$v" "libssl3:$arch=$v" "libssl-dev:$arch=$v"
fi

# ---- binfmt_misc: child processes of the tests are target programs ---------------
binfmt=/proc/sys/fs/binfmt_misc
if [ ! -e "$binfmt/$qemu" ]; then
  mountpoint -q $binfmt || mount -t binfmt_misc binfmt_misc $binfmt
  conf=/usr/lib/binfmt.d/$qemu.conf
  [ -f "$conf" ] || { echo "no $conf: cannot register qemu for $arch programs" >&2; exit 1; }
  echo "registering $(cut -d: -f2 "$conf") with binfmt_misc"
  grep -v '^#' "$conf" > $binfmt/register
fi
# Programs run with the multiarch runtime installed above, not the cross
# toolchain's copy (see cmake/toolchains/debian-multiarch.cmake).
unset QEMU_LD_PREFIX

# ---- configure, build, test ---------------------------------------------------------
# forge is a host tool; the device build leaves it out.
cmake -G Ninja -S "$top" -B "$build" -DCMAKE_TOOLCHAIN_FILE="$top/cmake/toolchains/$triple.cmake" \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCHECKTOOL_FORGE=OFF -DCHECKTOOL_WERROR=ON > /dev/null
cmake --build "$build" -j "$jobs"
built=$SECONDS
file "$build/bin/checktool" | grep -q "$machine" || { echo "bin/checktool is not a $arch program" >&2; exit 1; }

# Emulation is 5 to 10 times slower than the host; a test that hangs still
# fails after 15 minutes rather than holding CI.
# shellcheck disable=SC2086 # a list of arguments
ctest --test-dir "$build" -j "$jobs" --output-on-failure --timeout 900 ${CROSS_CTEST_ARGS:-}
tested=$SECONDS

echo
echo "$arch: $(file -b "$build/bin/checktool" | cut -d, -f1-2)"
debs=("$build"/tests/install/deb-test/packages/*.deb)
[ -e "${debs[0]}" ] && echo "packages (lintian clean): ${debs[*]##*/}"
echo "time: $((built - start)) s to install and build, $((tested - built)) s to test, $((tested - start)) s in all"
