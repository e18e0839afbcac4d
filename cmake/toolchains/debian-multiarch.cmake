# SPDX-License-Identifier: Apache-2.0
# What every Debian cross build shares, included by the per-target files
# after they set CMAKE_SYSTEM_PROCESSOR, CHECKTOOL_CROSS_TRIPLE (the
# multiarch triple), CHECKTOOL_QEMU_NAME and CHECKTOOL_CROSS_LOADER (the
# target's dynamic loader as multiarch installs it).
set(CMAKE_SYSTEM_NAME Linux)

set(CMAKE_C_COMPILER ${CHECKTOOL_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${CHECKTOOL_CROSS_TRIPLE}-g++)

# Multiarch: find_library and find_package look in lib/<triple> under each
# prefix, so the host's own libraries are never picked up.
set(CMAKE_LIBRARY_ARCHITECTURE ${CHECKTOOL_CROSS_TRIPLE})

# FindOpenSSL asks pkg-config first and takes its answer as a hint; the
# host's pkg-config would point it at the host's libcrypto.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/${CHECKTOOL_CROSS_TRIPLE}/pkgconfig:/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# qemu runs the programs with the target's C and C++ runtime of multiarch
# (libc6:<arch>, libstdc++6:<arch>), found where such a system keeps them.
# Only without those does it take the cross toolchain's copy under
# /usr/<triple>, whose older C library hangs in fork() under qemu 7.2, so
# tests that start the tool as a child process would not end.
find_program(CHECKTOOL_QEMU NAMES ${CHECKTOOL_QEMU_NAME}-static ${CHECKTOOL_QEMU_NAME})
if(CHECKTOOL_QEMU)
  if(EXISTS ${CHECKTOOL_CROSS_LOADER})
    set(CMAKE_CROSSCOMPILING_EMULATOR ${CHECKTOOL_QEMU})
  else()
    set(CMAKE_CROSSCOMPILING_EMULATOR ${CHECKTOOL_QEMU} -L /usr/${CHECKTOOL_CROSS_TRIPLE})
  endif()
endif()
