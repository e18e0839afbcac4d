# SPDX-License-Identifier: Apache-2.0
# Install rules: the tool, the verification library with what it needs to
# link (the operation log its services write to, the bounds-checked
# functions), public headers, a CMake package (find_package(vexa)), a
# pkg-config file (vexa.pc) and the manual pages. Included at the end of
# the top-level CMakeLists.txt, once every target exists.
#
# Components, which become the Debian packages of cmake/Package.cmake:
#   checktool  the tool and checktool(8)          -> package checktool
#   dev        library, headers, CMake/pkg-config -> package libvexa-dev
#   lib        the shared library (option only)   -> package libvexa0
#   forge      forge and forge(1), when built     -> package checktool-forge

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

option(CHECKTOOL_SHARED_LIB
  "Install vexa as one shared library (with its services, log and bounds-checked functions inside) instead of static archives"
  OFF)

set(VEXA_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vexa)
# Where pkg-config looks for the target's own files on a multiarch system,
# cross builds included (lib/pkgconfig is searched for native builds only).
if(CMAKE_LIBRARY_ARCHITECTURE AND NOT CMAKE_INSTALL_LIBDIR MATCHES "/${CMAKE_LIBRARY_ARCHITECTURE}$")
  set(VEXA_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig)
else()
  set(VEXA_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()

# Include directories given as plain source paths are right for the build
# tree only; an installed target gets the install tree's include/ instead.
function(_vexa_build_interface_includes target)
  get_target_property(dirs ${target} INTERFACE_INCLUDE_DIRECTORIES)
  if(NOT dirs)
    return()
  endif()
  set(wrapped "")
  foreach(d IN LISTS dirs)
    if(d MATCHES "^\\$<")
      list(APPEND wrapped "${d}")
    else()
      list(APPEND wrapped "$<BUILD_INTERFACE:${d}>")
    endif()
  endforeach()
  set_property(TARGET ${target} PROPERTY INTERFACE_INCLUDE_DIRECTORIES "${wrapped}")
endfunction()

# ---- the tool ---------------------------------------------------------------

install(TARGETS checktool RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT checktool)
# The reference update step, beside the tool it calls.
install(PROGRAMS ${CMAKE_SOURCE_DIR}/tool/checktool-update-gate DESTINATION ${CMAKE_INSTALL_SBINDIR}
  COMPONENT checktool)

# ---- the library --------------------------------------------------------------

if(CHECKTOOL_SHARED_LIB)
  # One self-contained shared object: the library's sources, the operation
  # log its services write to and the bounds-checked functions, compiled
  # again as position-independent code. checktool itself keeps linking the
  # static archives.
  add_library(vexa_shared SHARED ${VEXA_SOURCES}
    ${CMAKE_SOURCE_DIR}/services/oplog.cpp ${CMAKE_SOURCE_DIR}/platform/kestrel/kestrel.cpp)
  set_target_properties(vexa_shared PROPERTIES
    OUTPUT_NAME vexa EXPORT_NAME vexa
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  target_include_directories(vexa_shared
    PUBLIC $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/include>
    PRIVATE $<TARGET_PROPERTY:vexa,INCLUDE_DIRECTORIES>
            $<TARGET_PROPERTY:oplog,INCLUDE_DIRECTORIES>
            $<TARGET_PROPERTY:kestrel,INCLUDE_DIRECTORIES>)
  target_compile_definitions(vexa_shared PRIVATE $<TARGET_PROPERTY:vexa,COMPILE_DEFINITIONS>)
  target_link_libraries(vexa_shared PRIVATE OpenSSL::Crypto)
  # Nothing may stay unresolved until a consumer links (a sanitizer build
  # leaves its runtime to the executable).
  if(NOT CHECKTOOL_SANITIZE)
    target_link_options(vexa_shared PRIVATE -Wl,--no-undefined)
  endif()

  install(TARGETS vexa_shared EXPORT vexaTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT lib NAMELINK_COMPONENT dev
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  set(VEXA_PC_LIBS "-L\${libdir} -lvexa")
  set(VEXA_PC_REQUIRES "Requires.private: libcrypto >= 3.0")
else()
  # Static archives: vexa's services log through write_log, which lives in
  # the log library, and everything formats through kestrel, so the
  # exported vexa::vexa carries both (and libcrypto) as link dependencies.
  foreach(t vexa oplog kestrel)
    _vexa_build_interface_includes(${t})
  endforeach()
  set_target_properties(oplog PROPERTIES OUTPUT_NAME vexa_oplog EXPORT_NAME oplog)
  target_link_libraries(vexa INTERFACE $<INSTALL_INTERFACE:vexa::oplog>)

  install(TARGETS vexa oplog kestrel EXPORT vexaTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  # The archives hold C++ objects; a C program's link needs the C++ runtime.
  set(VEXA_PC_LIBS "-L\${libdir} -lvexa -lvexa_oplog -lkestrel -lstdc++")
  set(VEXA_PC_REQUIRES "Requires: libcrypto >= 3.0")
endif()

install(DIRECTORY ${CMAKE_SOURCE_DIR}/include/vexa
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${CMAKE_SOURCE_DIR}/platform/kestrel/include/kestrel
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev FILES_MATCHING PATTERN "*.h")

# ---- CMake package: find_package(vexa) -> vexa::vexa ---------------------------

install(EXPORT vexaTargets NAMESPACE vexa:: DESTINATION ${VEXA_CMAKE_DIR} COMPONENT dev)

set(VEXA_CONFIG_SHARED ${CHECKTOOL_SHARED_LIB})
set(VEXA_CONFIG_STATIC_CRYPTO ${CHECKTOOL_STATIC_CRYPTO})
file(WRITE ${CMAKE_BINARY_DIR}/vexa-package/vexaConfig.cmake.in [=[
# find_package(vexa): the image verification library of checktool.
# Imported target: vexa::vexa.
@PACKAGE_INIT@

include(CMakeFindDependencyMacro)
if(NOT "@VEXA_CONFIG_SHARED@")
  # The static library calls libcrypto; built against a static one, ask for
  # the same unless the consumer chose.
  if("@VEXA_CONFIG_STATIC_CRYPTO@" AND NOT DEFINED OPENSSL_USE_STATIC_LIBS)
    set(OPENSSL_USE_STATIC_LIBS TRUE)
  endif()
  find_dependency(OpenSSL 3.0 COMPONENTS Crypto)
endif()

include("${CMAKE_CURRENT_LIST_DIR}/vexaTargets.cmake")
check_required_components(vexa)
]=])
configure_package_config_file(${CMAKE_BINARY_DIR}/vexa-package/vexaConfig.cmake.in
  ${CMAKE_BINARY_DIR}/vexa-package/vexaConfig.cmake
  INSTALL_DESTINATION ${VEXA_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/vexa-package/vexaConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/vexa-package/vexaConfig.cmake
  ${CMAKE_BINARY_DIR}/vexa-package/vexaConfigVersion.cmake
  DESTINATION ${VEXA_CMAKE_DIR} COMPONENT dev)

# ---- pkg-config: vexa.pc --------------------------------------------------------

# The prefix is found from the file's own place, so the same file works in
# /usr, in a staging tree and in any --prefix.
file(RELATIVE_PATH VEXA_PC_TO_PREFIX /prefix/${VEXA_PKGCONFIG_DIR} /prefix)
string(REGEX REPLACE "/$" "" VEXA_PC_TO_PREFIX "${VEXA_PC_TO_PREFIX}")
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/vexa-package/vexa.pc @ONLY CONTENT [=[
prefix=${pcfiledir}/@VEXA_PC_TO_PREFIX@
libdir=${prefix}/@CMAKE_INSTALL_LIBDIR@
includedir=${prefix}/@CMAKE_INSTALL_INCLUDEDIR@

Name: vexa
Description: Image and CRL verification library of checktool
Version: @PROJECT_VERSION@
@VEXA_PC_REQUIRES@
Libs: @VEXA_PC_LIBS@
Cflags: -I${includedir}
]=])
install(FILES ${CMAKE_BINARY_DIR}/vexa-package/vexa.pc DESTINATION ${VEXA_PKGCONFIG_DIR} COMPONENT dev)

# ---- manual pages ---------------------------------------------------------------

# Installed compressed, as Debian wants them.
find_program(CHECKTOOL_GZIP gzip)
function(_checktool_man page section component)
  set(src ${CMAKE_SOURCE_DIR}/docs/${page}.${section})
  if(CHECKTOOL_GZIP)
    set(plain ${CMAKE_BINARY_DIR}/man/${page}.${section})
    set(out ${plain}.gz)
    add_custom_command(OUTPUT ${out}
      COMMAND ${CMAKE_COMMAND} -E copy ${src} ${plain}
      COMMAND ${CHECKTOOL_GZIP} -9nf ${plain}
      DEPENDS ${src} VERBATIM)
    add_custom_target(man_${page} ALL DEPENDS ${out})
  else()
    set(out ${src})
  endif()
  install(FILES ${out} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endfunction()

_checktool_man(checktool 8 checktool)
_checktool_man(checktool-update-gate 8 checktool)

# ---- forge, when this tree builds it --------------------------------------------

if(TARGET forge)
  install(TARGETS forge RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT forge)
  _checktool_man(forge 1 forge)
endif()

include(${CMAKE_CURRENT_LIST_DIR}/Package.cmake)
