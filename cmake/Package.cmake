# SPDX-License-Identifier: Apache-2.0
# Debian packages through CPack, one per install component:
#
#   cpack --config build/CPackConfig.cmake -B build/packages
#
# gives checktool_<version>-1_<arch>.deb (the tool and its manual page: what
# a device image needs), libvexa-dev (library, headers, CMake and pkg-config
# files), libvexa0 (with CHECKTOOL_SHARED_LIB) and checktool-forge (when
# forge is built). Cross builds get the target's Debian architecture.

set(CHECKTOOL_PACKAGE_MAINTAINER "Checktool maintainers <maintainers@checktool.dev>"
  CACHE STRING "Maintainer field of the Debian packages")
# The date of the version's changelog entry, fixed so packages build the same
# bytes every time.
set(CHECKTOOL_RELEASE_DATE "Tue, 24 Nov 2026 00:00:00 +0000"
  CACHE STRING "Date of the Debian changelog entry (RFC 2822)")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME checktool)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${CHECKTOOL_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# Nothing but the packages themselves in the output directory.
set(CPACK_SOURCE_GENERATOR "")

set(_components checktool dev)
if(CHECKTOOL_SHARED_LIB)
  list(APPEND _components lib)
endif()
if(TARGET forge)
  list(APPEND _components forge)
endif()
set(CPACK_COMPONENTS_ALL ${_components})

# A cross build's Debian architecture comes from its toolchain: the
# multiarch triple (CMAKE_LIBRARY_ARCHITECTURE, else the compiler's
# -dumpmachine) turned into an architecture by dpkg-architecture, which
# knows every Debian architecture. Where none can be known, the build goes
# on without the package target.
if(CMAKE_CROSSCOMPILING AND NOT CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
  set(_triple "${CMAKE_LIBRARY_ARCHITECTURE}")
  if(NOT _triple)
    execute_process(COMMAND ${CMAKE_C_COMPILER} -dumpmachine OUTPUT_VARIABLE _triple
      OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  endif()
  set(_deb_arch "")
  find_program(CHECKTOOL_DPKG_ARCHITECTURE dpkg-architecture)
  if(_triple AND CHECKTOOL_DPKG_ARCHITECTURE)
    execute_process(COMMAND ${CHECKTOOL_DPKG_ARCHITECTURE} -t ${_triple} -qDEB_HOST_ARCH
      OUTPUT_VARIABLE _deb_arch OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE _deb_rc)
    if(NOT _deb_rc EQUAL 0)
      set(_deb_arch "")
    endif()
  endif()
  if(NOT _deb_arch)
    message(WARNING "no Debian architecture known for the toolchain (${_triple}): the package target is left out; "
      "set CPACK_DEBIAN_PACKAGE_ARCHITECTURE to make packages")
    return()
  endif()
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${_deb_arch})
endif()

# dpkg-shlibdeps works out the run-time dependencies from the binaries; it
# needs the target's libraries registered with dpkg, which a cross build
# does not have, so cross packages name them directly (the versions of
# Debian 12, the oldest release this builds on).
find_program(CHECKTOOL_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(CHECKTOOL_DPKG_SHLIBDEPS AND NOT CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
else()
  set(_runtime_depends "libc6 (>= 2.34), libstdc++6 (>= 12), libgcc-s1 (>= 3.0)")
  if(NOT CHECKTOOL_STATIC_CRYPTO)
    string(APPEND _runtime_depends ", libssl3 (>= 3.0.0)")
  endif()
  set(CPACK_DEBIAN_CHECKTOOL_PACKAGE_DEPENDS "${_runtime_depends}")
  set(CPACK_DEBIAN_LIB_PACKAGE_DEPENDS "${_runtime_depends}")
  set(CPACK_DEBIAN_FORGE_PACKAGE_DEPENDS
    "libc6 (>= 2.34), libstdc++6 (>= 12), libgcc-s1 (>= 3.0), libssl3 (>= 3.0.0), libcurl4 (>= 7.88), libp11-3 (>= 0.4.12)")
endif()

set(CPACK_DEBIAN_CHECKTOOL_PACKAGE_NAME checktool)
set(CPACK_DEBIAN_CHECKTOOL_PACKAGE_SECTION admin)
set(CPACK_COMPONENT_CHECKTOOL_DESCRIPTION
"secure check of upgrade images and CRLs for embedded devices
checktool is run as root by a device's upgrade procedure before it installs
a new software image: it extracts and compares certificate revocation lists,
verifies the image's time-stamped CMS signature against a root certificate
built into it, and reads the image's anti-rollback counter. Every run is
recorded in /var/log/upgradetool/upgrade_crl.log.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libvexa-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DESCRIPTION
"image and CRL verification library of checktool (development files)
The vexa library decodes X.509 certificates, CRLs, CMS SignedData and RFC 3161
time-stamp tokens, builds certification paths to a trusted root and checks
revocation. This package holds the headers, the library, a CMake package
(find_package(vexa)) and a pkg-config file (vexa.pc).")
if(CHECKTOOL_SHARED_LIB)
  set(CPACK_COMPONENT_DEV_DEPENDS lib)
else()
  # Static archives leave libcrypto to the consumer's link.
  set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libssl-dev (>= 3.0)")
endif()

# A shlibs file, so packages linking libvexa.so get their dependency on
# libvexa0 from dpkg-shlibdeps; the ldconfig trigger replaces CPack's
# maintainer scripts once the package is made.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/DebLdconfigTrigger.cmake)
set(CPACK_DEBIAN_LIB_PACKAGE_NAME libvexa${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIB_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIB_DESCRIPTION
"image and CRL verification library of checktool
The vexa library decodes X.509 certificates, CRLs, CMS SignedData and RFC 3161
time-stamp tokens, builds certification paths to a trusted root and checks
revocation.")

set(CPACK_DEBIAN_FORGE_PACKAGE_NAME checktool-forge)
set(CPACK_DEBIAN_FORGE_PACKAGE_SECTION devel)
set(CPACK_COMPONENT_FORGE_DESCRIPTION
"maker of test PKIs and signed images for checktool
forge makes RSA keys, certificates, CRLs, CRL files, time-stamped detached CMS
signatures and images in the layout checktool reads, for tests and for
device makers who sign their own images.")

# Each package's /usr/share/doc/<package>: the machine-readable copyright
# file and the Debian changelog (gzip -9n, so the bytes do not depend on the
# build's time).
set(_deb_doc ${CMAKE_BINARY_DIR}/debian-doc)
file(CONFIGURE OUTPUT ${_deb_doc}/copyright @ONLY CONTENT [=[
Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: checktool
Upstream-Contact: @CHECKTOOL_PACKAGE_MAINTAINER@
Source: https://checktool.dev/

Files: *
Copyright: 2026 The checktool authors
License: Apache-2.0

License: Apache-2.0
 Licensed under the Apache License, Version 2.0 (the "License"); you may not
 use this software except in compliance with the License. You may obtain a
 copy of the License at https://www.apache.org/licenses/LICENSE-2.0
 .
 Unless required by applicable law or agreed to in writing, software
 distributed under the License is distributed on an "AS IS" BASIS, WITHOUT
 WARRANTIES OR CONDITIONS OF ANY KIND, either express or implied. See the
 License for the specific language governing permissions and limitations
 under the License.
 .
 On Debian systems, the complete text of the Apache License, Version 2.0,
 can be found in "/usr/share/common-licenses/Apache-2.0".
]=])
file(CONFIGURE OUTPUT ${_deb_doc}/changelog @ONLY CONTENT [=[
checktool (@PROJECT_VERSION@-@CPACK_DEBIAN_PACKAGE_RELEASE@) unstable; urgency=medium

  * Release @PROJECT_VERSION@; NEWS.md in the source tree lists what changed.

 -- @CHECKTOOL_PACKAGE_MAINTAINER@  @CHECKTOOL_RELEASE_DATE@

checktool (0.1.0-1) unstable; urgency=medium

  * Release 0.1.0, the first.

 -- @CHECKTOOL_PACKAGE_MAINTAINER@  Sun, 23 Nov 2025 00:00:00 +0000
]=])
add_custom_command(OUTPUT ${_deb_doc}/changelog.Debian.gz
  COMMAND gzip -9nc ${_deb_doc}/changelog > ${_deb_doc}/changelog.Debian.gz
  DEPENDS ${_deb_doc}/changelog VERBATIM)
add_custom_target(debian_doc ALL DEPENDS ${_deb_doc}/changelog.Debian.gz)
set(_deb_pkg_checktool checktool)
set(_deb_pkg_dev libvexa-dev)
set(_deb_pkg_lib libvexa${PROJECT_VERSION_MAJOR})
set(_deb_pkg_forge checktool-forge)
foreach(_component IN LISTS _components)
  set(_pkg ${_deb_pkg_${_component}})
  install(FILES ${_deb_doc}/copyright ${_deb_doc}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${_pkg} COMPONENT ${_component})
endforeach()

include(CPack)
