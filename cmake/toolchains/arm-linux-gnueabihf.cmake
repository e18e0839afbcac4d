# SPDX-License-Identifier: Apache-2.0
# 32-bit ARM Linux, hard-float (i.MX6, AM335x, STM32MP1 class devices), with
# Debian's cross toolchain (g++-arm-linux-gnueabihf) against the multiarch
# armhf libraries (libssl-dev:armhf, libgtest-dev:armhf).
#
#   cmake -S . -B build-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/arm-linux-gnueabihf.cmake
#
# scripts/cross.sh armhf installs them, builds and runs the suite under qemu-user.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CHECKTOOL_CROSS_TRIPLE arm-linux-gnueabihf)
set(CHECKTOOL_QEMU_NAME qemu-arm)
set(CHECKTOOL_CROSS_LOADER /lib/ld-linux-armhf.so.3)
include(${CMAKE_CURRENT_LIST_DIR}/debian-multiarch.cmake)
