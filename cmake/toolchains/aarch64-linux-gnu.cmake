# SPDX-License-Identifier: Apache-2.0
# Cross-compiles for 64-bit ARM Linux with Debian's cross toolchain
# (g++-aarch64-linux-gnu) against the multiarch arm64 libraries
# (libssl-dev:arm64, libgtest-dev:arm64), which live in
# /usr/lib/aarch64-linux-gnu beside the host's own.
#
#   cmake -S . -B build-arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake
#
# Test programs run under qemu-user when it is installed (qemu-user-static).

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(CHECKTOOL_CROSS_TRIPLE aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${CHECKTOOL_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${CHECKTOOL_CROSS_TRIPLE}-g++)

# Multiarch: find_library and find_package look in lib/aarch64-linux-gnu
# under each prefix, so the host's x86_64 libraries are never picked up.
set(CMAKE_LIBRARY_ARCHITECTURE ${CHECKTOOL_CROSS_TRIPLE})

# FindOpenSSL asks pkg-config first and takes its answer as a hint; the
# host's pkg-config would point it at the host's libcrypto.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/${CHECKTOOL_CROSS_TRIPLE}/pkgconfig:/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# qemu runs the programs with the arm64 C and C++ runtime of multiarch
# (libc6:arm64, libstdc++6:arm64), found where an arm64 system keeps them.
# Only without those does it take the cross toolchain's copy under
# /usr/aarch64-linux-gnu, whose older C library hangs in fork() under
# qemu 7.2, so tests that start the tool as a child process would not end.
find_program(CHECKTOOL_QEMU NAMES qemu-aarch64-static qemu-aarch64)
if(CHECKTOOL_QEMU)
  if(EXISTS /lib/ld-linux-aarch64.so.1)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${CHECKTOOL_QEMU})
  else()
    set(CMAKE_CROSSCOMPILING_EMULATOR ${CHECKTOOL_QEMU} -L /usr/${CHECKTOOL_CROSS_TRIPLE})
  endif()
endif()
