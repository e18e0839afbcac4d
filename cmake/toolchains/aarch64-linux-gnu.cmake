# SPDX-License-Identifier: Apache-2.0
# 64-bit ARM Linux with Debian's cross toolchain (g++-aarch64-linux-gnu)
# against the multiarch arm64 libraries (libssl-dev:arm64, libgtest-dev:arm64).
#
#   cmake -S . -B build-arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake
#
# scripts/cross.sh arm64 installs them, builds and runs the suite under qemu-user.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CHECKTOOL_CROSS_TRIPLE aarch64-linux-gnu)
set(CHECKTOOL_QEMU_NAME qemu-aarch64)
set(CHECKTOOL_CROSS_LOADER /lib/ld-linux-aarch64.so.1)
include(${CMAKE_CURRENT_LIST_DIR}/debian-multiarch.cmake)
