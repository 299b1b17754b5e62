# The Debian package: `cpack -G DEB` in a Release build tree gives one package with the tool, the
# library, its headers and its CMake and pkg-config files, installed below /usr.
set(CPACK_PACKAGE_NAME zrkkvl)
set(CPACK_PACKAGE_VENDOR "zrkKVL")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_CONTACT "zrkKVL maintainers <maintainers@zrkkvl.invalid>")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Registers the shared library with ldconfig on install and removal.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
  "The zrkKVL library (settings files, profiles, packed files, archives, process reads,\n error logs and reports) and its command-line tool zrkkvl.")
include(CPack)
