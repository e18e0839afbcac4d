# SPDX-License-Identifier: Apache-2.0
# Run by CPack once the packages are made (CPACK_POST_BUILD_SCRIPTS). CPack
# gives a shared-library package postinst and postrm scripts that call
# ldconfig; Debian wants dpkg's ldconfig trigger instead (lintian:
# lacks-ldconfig-trigger, maintscript-calls-ldconfig). The library package
# is rebuilt with the trigger and without the scripts.
foreach(_deb IN LISTS CPACK_PACKAGE_FILES)
  if(NOT _deb MATCHES "/libvexa[0-9]+_[^/]*\\.deb$")
    continue()
  endif()
  set(_tree ${_deb}.tree)
  file(REMOVE_RECURSE ${_tree})
  execute_process(COMMAND dpkg-deb -R ${_deb} ${_tree} COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE ${_tree}/DEBIAN/postinst ${_tree}/DEBIAN/postrm)
  file(WRITE ${_tree}/DEBIAN/triggers "activate-noawait ldconfig\n")
  execute_process(COMMAND dpkg-deb --root-owner-group -b ${_tree} ${_deb} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${_tree})
endforeach()
