#!/usr/bin/env bash
# Installs the build tree into a fresh prefix, then builds and runs a small
# C and C++ program against it twice: through find_package(vexa) and
# through pkg-config. Catches headers, libraries or link dependencies that
# the install leaves out, and public headers that do not compile as C.
#
# install_test.sh BUILD_DIR WORK_DIR GENERATOR CC CXX [TOOLCHAIN_FILE] [EMULATOR] [FLAGS]
# shellcheck disable=SC2086 # $flags, $cflags and $libs are lists of words
set -euo pipefail
build=$1 work=$2 generator=$3 cc=$4 cxx=$5
toolchain=${6:-} emulator=${7:-} flags=${8:-}
here=$(cd "$(dirname "$0")" && pwd)
prefix=$work/prefix

fail() { echo "FAIL: $*" >&2; exit 1; }
step() { echo "== $*"; }
# Runs a built program, under the emulator of a cross build; a shared
# library build finds libvexa.so through the prefix.
run() { LD_LIBRARY_PATH="$libdir${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}" $emulator "$@"; }

rm -rf "$work"
mkdir -p "$work"

step "install into $prefix"
cmake --install "$build" --prefix "$prefix" > "$work/install.log" || { cat "$work/install.log"; fail "install"; }

config=$(find "$prefix" -name vexaConfig.cmake -print -quit)
pc=$(find "$prefix" -name vexa.pc -print -quit)
[ -n "$config" ] || fail "no vexaConfig.cmake installed"
[ -n "$pc" ] || fail "no vexa.pc installed"
libdir=$(cd "$(dirname "$pc")/.." && pwd)
for f in sbin/checktool include/vexa/vexa_services.h include/vexa/vexa_list.h include/vexa/vexa_result.h \
         include/kestrel/kestrel.h; do
  [ -e "$prefix/$f" ] || fail "$f not installed"
done
ls "$prefix"/share/man/man8/checktool.8* > /dev/null 2>&1 || fail "checktool(8) not installed"
if [ -e "$build/bin/forge" ]; then
  [ -x "$prefix/bin/forge" ] || fail "forge is built but not installed"
  ls "$prefix"/share/man/man1/forge.1* > /dev/null 2>&1 || fail "forge(1) not installed"
fi
if [ -z "$emulator" ]; then
  # The installed tool runs. As root it would log to the fixed directory
  # /var/log/upgradetool, so only the refusal of a non-root caller, which
  # touches nothing, is tried here.
  if command -v setpriv > /dev/null && [ "$(id -u)" = 0 ]; then
    out=$(setpriv --reuid=65534 --regid=65534 --clear-groups "$prefix/sbin/checktool" 0 2>&1) && fail "installed checktool accepted a non-root caller"
    grep -q "Only root has the authentication to upgrade." <<< "$out" || fail "installed checktool: unexpected output: $out"
  fi
fi

step "every public header compiles alone, as C and as C++"
for h in "$prefix"/include/vexa/*.h "$prefix"/include/kestrel/*.h; do
  inc="#include <${h#"$prefix"/include/}>"
  echo "$inc" | $cc $flags -std=c11 -Wall -Wextra -Werror -fsyntax-only -I"$prefix/include" -x c - \
    || fail "$inc does not compile as C"
  echo "$inc" | $cxx $flags -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I"$prefix/include" -x c++ - \
    || fail "$inc does not compile as C++"
done

step "find_package(vexa) consumer"
cmake_args=(-G "$generator" -S "$here/consumer" -B "$work/cmake-consumer" -DCMAKE_PREFIX_PATH="$prefix"
            -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx"
            -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags")
[ -n "$toolchain" ] && cmake_args+=(-DCMAKE_TOOLCHAIN_FILE="$toolchain")
cmake "${cmake_args[@]}" > "$work/cmake-consumer.log" 2>&1 || { cat "$work/cmake-consumer.log"; fail "consumer configure"; }
cmake --build "$work/cmake-consumer" > "$work/cmake-consumer-build.log" 2>&1 \
  || { cat "$work/cmake-consumer-build.log"; fail "consumer build"; }
run "$work/cmake-consumer/consumer_c" || fail "find_package C consumer"
if [ -f "$prefix/include/vexa/vexa_verify.h" ]; then
  # The library's whole road: the signed fixture of the "valid" scenario
  # verifies against the development root through the installed library.
  # The library's services log to the fixed /var/log/upgradetool, so the
  # run gets a private, throwaway /var/log.
  testdata=$here/../testdata
  read -r crlfile _ sig content < <(awk -F'\t' '$1 == "valid" { print $3, $4 }' "$testdata/scenarios.txt")
  fixtures=("$testdata/pki/root.der" "$testdata/$crlfile" "$testdata/$sig" "$testdata/$content")
  for f in "${fixtures[@]}"; do [ -f "$f" ] || fail "fixture $f missing"; done
  if [ "$(id -u)" = 0 ] && command -v unshare > /dev/null; then
    LD_LIBRARY_PATH="$libdir" unshare --mount --propagation private \
      sh -c 'mount -t tmpfs tmpfs /var/log && exec "$@"' sh $emulator "$work/cmake-consumer/consumer_c" "${fixtures[@]}" \
      || fail "verification through the installed library"
  else
    echo "not root: verification through the installed library skipped"
  fi
fi
run "$work/cmake-consumer/consumer_cxx" || fail "find_package C++ consumer"

step "pkg-config consumer"
if ! command -v pkg-config > /dev/null; then
  echo "pkg-config not installed; pkg-config consumer skipped"
else
  PKG_CONFIG_PATH=$(dirname "$pc")
  export PKG_CONFIG_PATH
  if [ -n "$toolchain" ]; then
    # The target's libcrypto.pc, not the host's.
    PKG_CONFIG_LIBDIR="/usr/lib/$($cc -print-multiarch)/pkgconfig:/usr/share/pkgconfig"
    export PKG_CONFIG_LIBDIR
  fi
  cflags=$(pkg-config --cflags vexa) || fail "pkg-config --cflags vexa"
  libs=$(pkg-config --libs vexa) || fail "pkg-config --libs vexa"
  # A plain C link must do: -lstdc++ in Libs brings the C++ runtime. A
  # sanitizer build links through the C++ driver, whose sanitizer runtime
  # has the C++ checks the instrumented archives call.
  linker=$cc
  [ -n "$flags" ] && linker=$cxx
  if ! { $cc $flags -Wall -Wextra -Werror $cflags -c "$here/consumer/consumer.c" -o "$work/pkgconfig-consumer.o" &&
         $linker $flags "$work/pkgconfig-consumer.o" -o "$work/pkgconfig-consumer" $libs; }; then
    fail "pkg-config consumer build ($cflags / $libs)"
  fi
  run "$work/pkgconfig-consumer" || fail "pkg-config consumer"
fi

echo "install test passed"
