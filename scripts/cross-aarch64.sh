#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Cross-builds checktool, its library and the test suite for 64-bit ARM
# (aarch64) with Debian's cross toolchain, then runs the whole suite under
# qemu-user and makes the arm64 Debian packages. Run as root on Debian 12;
# installs what is missing with apt-get first.
#
#   scripts/cross-aarch64.sh [BUILD_DIR]      (default: build-aarch64)
#
# CROSS_CTEST_ARGS adds ctest arguments, e.g. CROSS_CTEST_ARGS="-E TamperTest"
# to leave out the slowest test under emulation.
#
# Test programs start the tool as a child process, which the kernel hands
# to qemu through binfmt_misc; when no handler for aarch64 is registered,
# this script registers Debian's (qemu-user-static) for the running system.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$top/build-aarch64}
jobs=${JOBS:-$(nproc)}
triple=aarch64-linux-gnu
start=$SECONDS

"$top/scripts/deps.sh"

# ---- packages: cross compiler, qemu, the arm64 libraries to link and run ---------
# Only what the device build links: forge (libcurl, libp11) is a host tool
# and stays out, and libp11-dev cannot be installed for two architectures.
pkgs=("g++-$triple" qemu-user-static libssl-dev:arm64 libgtest-dev:arm64 libstdc++6:arm64)
need_update=0
if ! dpkg --print-foreign-architectures | grep -qx arm64; then
  dpkg --add-architecture arm64
  need_update=1
fi
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ] || [ $need_update = 1 ]; then
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -q
  apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

# ---- binfmt_misc: child processes of the tests are aarch64 programs -------------
binfmt=/proc/sys/fs/binfmt_misc
if [ ! -e $binfmt/qemu-aarch64 ]; then
  mountpoint -q $binfmt || mount -t binfmt_misc binfmt_misc $binfmt
  conf=/usr/lib/binfmt.d/qemu-aarch64.conf
  [ -f $conf ] || { echo "no $conf: cannot register qemu for aarch64 programs" >&2; exit 1; }
  echo "registering $(cut -d: -f2 $conf) with binfmt_misc"
  grep -v '^#' $conf > $binfmt/register
fi
# Programs run with the multiarch arm64 runtime installed above, not the
# cross toolchain's copy (see the toolchain file).
unset QEMU_LD_PREFIX

# ---- configure, build, test -------------------------------------------------------
# forge is a host tool; the device build leaves it out.
cmake -G Ninja -S "$top" -B "$build" -DCMAKE_TOOLCHAIN_FILE="$top/cmake/toolchains/$triple.cmake" \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCHECKTOOL_FORGE=OFF > /dev/null
cmake --build "$build" -j "$jobs"
built=$SECONDS
file "$build/bin/checktool" | grep -q 'ARM aarch64' || { echo "bin/checktool is not an aarch64 program" >&2; exit 1; }

# Emulation is 5 to 10 times slower than the host (the exhaustive tamper
# test takes about 4 minutes); a test that hangs still fails after 15
# minutes rather than holding CI.
# shellcheck disable=SC2086 # a list of arguments
ctest --test-dir "$build" -j "$jobs" --output-on-failure --timeout 900 ${CROSS_CTEST_ARGS:-}
tested=$SECONDS

echo
echo "aarch64: $(file -b "$build/bin/checktool" | cut -d, -f1-2)"
debs=("$build"/tests/install/deb-test/packages/*.deb)
[ -e "${debs[0]}" ] && echo "packages: ${debs[*]##*/}"
echo "time: $((built - start)) s to install and build, $((tested - built)) s to test, $((tested - start)) s in all"
