# SPDX-License-Identifier: Apache-2.0
# 64-bit IBM Z Linux, big-endian, with Debian's cross toolchain
# (g++-s390x-linux-gnu) against the multiarch s390x libraries: the build
# that shows every field is read in its own byte order.
#
#   cmake -S . -B build-s390x -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/s390x-linux-gnu.cmake
#
# scripts/cross.sh s390x installs them, builds and runs the suite under qemu-user.
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(CHECKTOOL_CROSS_TRIPLE s390x-linux-gnu)
set(CHECKTOOL_QEMU_NAME qemu-s390x)
set(CHECKTOOL_CROSS_LOADER /lib/ld64.so.1)
include(${CMAKE_CURRENT_LIST_DIR}/debian-multiarch.cmake)
