#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs the build tree into a fresh prefix, then builds and runs a small
# C and C++ program against it, through find_package(vexa) and through
# pkg-config. Catches headers, libraries or link dependencies that the
# install leaves out, and public headers that do not compile as C.
#
# install_test.sh BUILD_DIR WORK_DIR GENERATOR CC CXX [TOOLCHAIN_FILE] [EMULATOR] [FLAGS]
# shellcheck disable=SC2086 # $flags, $cflags and $libs are lists of words
set -euo pipefail
build=$1 work=$2 generator=$3 cc=$4 cxx=$5
toolchain=${6:-} emulator=${7:-} flags=${8:-}
here=$(cd "$(dirname "$0")" && pwd)
prefix=$work/prefix
fail() { echo "FAIL: $*" >&2; exit 1; }
# quietly, showing the output only when it fails
quiet() { local log=$1; shift; "$@" > "$work/$log.log" 2>&1 || { cat "$work/$log.log"; fail "$log"; }; }
run() { LD_LIBRARY_PATH="$libdir${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}" $emulator "$@"; }

rm -rf "$work"
mkdir -p "$work"
quiet install cmake --install "$build" --prefix "$prefix"
config=$(find "$prefix" -name vexaConfig.cmake -print -quit)
pc=$(find "$prefix" -name vexa.pc -print -quit)
[ -n "$config" ] || fail "no vexaConfig.cmake installed"
[ -n "$pc" ] || fail "no vexa.pc installed"
libdir=$(cd "$(dirname "$pc")/.." && pwd)
for f in sbin/checktool include/vexa/vexa_verify.h include/kestrel/kestrel.h share/man/man8/checktool.8*; do
  compgen -G "$prefix/$f" > /dev/null || fail "$f not installed"
done
if [ -e "$build/bin/forge" ]; then
  [ -x "$prefix/bin/forge" ] && compgen -G "$prefix/share/man/man1/forge.1*" > /dev/null ||
    fail "forge is built but it or its manual page is not installed"
fi
echo "== every public header compiles alone, as C and as C++"
for h in "$prefix"/include/vexa/*.h "$prefix"/include/kestrel/*.h; do
  inc="#include <${h#"$prefix"/include/}>"
  echo "$inc" | $cc $flags -std=c11 -Wall -Wextra -Werror -fsyntax-only -I"$prefix/include" -x c - ||
    fail "$inc does not compile as C"
  echo "$inc" | $cxx $flags -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I"$prefix/include" -x c++ - ||
    fail "$inc does not compile as C++"
done

echo "== find_package(vexa) consumer"
cmake_args=(-G "$generator" -S "$here/consumer" -B "$work/cmake-consumer" -DCMAKE_PREFIX_PATH="$prefix"
            -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx"
            -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags")
[ -n "$toolchain" ] && cmake_args+=(-DCMAKE_TOOLCHAIN_FILE="$toolchain")
quiet consumer-configure cmake "${cmake_args[@]}"
quiet consumer-build cmake --build "$work/cmake-consumer"
run "$work/cmake-consumer/consumer_c" || fail "find_package C consumer"
run "$work/cmake-consumer/consumer_cxx" || fail "find_package C++ consumer"
# The whole road: the "valid" scenario's signature verifies through the
# installed library. Its services log to the fixed /var/log, so the run gets
# a private, throwaway one.
testdata=$here/../testdata
read -r crlfile _ sig content < <(awk -F'\t' '$1 == "valid" { print $3, $4 }' "$testdata/scenarios.txt")
fixtures=("$testdata/pki/root.der" "$testdata/$crlfile" "$testdata/$sig" "$testdata/$content")
if [ "$(id -u)" = 0 ] && command -v unshare > /dev/null; then
  LD_LIBRARY_PATH="$libdir" unshare --mount --propagation private \
    sh -c 'mount -t tmpfs tmpfs /var/log && exec "$@"' sh $emulator "$work/cmake-consumer/consumer_c" "${fixtures[@]}" ||
    fail "verification through the installed library"
else
  echo "not root: verification through the installed library skipped"
fi

echo "== pkg-config consumer"
command -v pkg-config > /dev/null || { echo "pkg-config not installed; skipped"; exit 0; }
export PKG_CONFIG_PATH=${pc%/*}
if [ -n "$toolchain" ]; then
  # the target's libcrypto.pc, not the host's
  export PKG_CONFIG_LIBDIR="/usr/lib/$($cc -print-multiarch)/pkgconfig:/usr/share/pkgconfig"
fi
cflags=$(pkg-config --cflags vexa) && libs=$(pkg-config --libs vexa) || fail "pkg-config vexa"
# A plain C link must do (-lstdc++ in Libs brings the C++ runtime); a
# sanitizer build links through the C++ driver, whose runtime the
# instrumented archives need.
linker=$cc
[ -n "$flags" ] && linker=$cxx
$cc $flags -Wall -Wextra -Werror $cflags -c "$here/consumer/consumer.c" -o "$work/pkgconfig-consumer.o" &&
  $linker $flags "$work/pkgconfig-consumer.o" -o "$work/pkgconfig-consumer" $libs ||
  fail "pkg-config consumer build ($cflags / $libs)"
run "$work/pkgconfig-consumer" || fail "pkg-config consumer"
echo "install test passed"
