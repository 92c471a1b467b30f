# SPDX-License-Identifier: Apache-2.0

# Makes cpack build five Debian packages, one for each component.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME lorx-naming-service)
set(CPACK_PACKAGE_VENDOR "LorxCore")
set(CPACK_PACKAGE_CONTACT "LorxCore developers <lorxcore@vornak.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL plugin host client development python)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF)
# Each package depends on the packages of the libraries that its files use.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")

# The packages have the project's version. Debian's changelog adds the revision of the packages.
set(debian "${CMAKE_CURRENT_SOURCE_DIR}/debian")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${debian}/changelog")
file(STRINGS "${debian}/changelog" entry LIMIT_COUNT 1)
if(NOT entry MATCHES "^lorx-naming-service \\(${PROJECT_VERSION}-([0-9]+)\\)")
  message(FATAL_ERROR "${debian}/changelog begins with another version than ${PROJECT_VERSION}: ${entry}")
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE "${CMAKE_MATCH_1}")
set(packageVersion "${PROJECT_VERSION}-${CMAKE_MATCH_1}")
set(sameVersion "(= ${packageVersion})")

set(CPACK_DEBIAN_PLUGIN_PACKAGE_NAME lorx-naming-service)
set(CPACK_COMPONENT_PLUGIN_DESCRIPTION "LorxCore naming service: the plug-in
A library that a host process loads, which keeps the directory of the
product's services.")

# Programs that were linked while the library was in the host's package still find the library after an upgrade.
get_target_property(soVersion QvClient SOVERSION)
set(clientPackage "libqvclient${soVersion}")
set(CPACK_DEBIAN_HOST_PACKAGE_NAME lorx-naming-service-host)
set(CPACK_COMPONENT_HOST_DESCRIPTION "LorxCore naming service: the resident host
qvhost loads the plug-in and lets other processes use it over a socket. It
is also the command line of that host. Contains the page for operators and
the description of the protocol.")
string(JOIN ", " CPACK_DEBIAN_HOST_PACKAGE_DEPENDS
  "lorx-naming-service ${sameVersion}" "${clientPackage} ${sameVersion}"
  "systemd | systemd-standalone-sysusers" "systemd | systemd-standalone-tmpfiles")
set(CPACK_DEBIAN_HOST_PACKAGE_CONTROL_EXTRA
  "${debian}/host/postinst" "${debian}/host/prerm" "${debian}/host/postrm")
set(CPACK_DEBIAN_HOST_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_CLIENT_PACKAGE_NAME "${clientPackage}")
set(CPACK_DEBIAN_CLIENT_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_CLIENT_DESCRIPTION "LorxCore naming service: the client library
Programs register, find and watch services with this library, which talks to
the resident host of their machine.")
# Up to 1.0.0 the library was in the host's package.
set(CPACK_DEBIAN_CLIENT_PACKAGE_BREAKS "lorx-naming-service-host (<< 1.0.0-1)")
set(CPACK_DEBIAN_CLIENT_PACKAGE_REPLACES "lorx-naming-service-host (<< 1.0.0-1)")
set(CPACK_DEBIAN_CLIENT_PACKAGE_CONTROL_EXTRA
  "${debian}/client/shlibs" "${debian}/client/triggers" "${CMAKE_CURRENT_BINARY_DIR}/symbols")
set(CPACK_DEBIAN_CLIENT_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME lorx-naming-service-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "LorxCore naming service: development files
Headers, message definitions, and packages for CMake and pkg-config. They
serve to write a host of the plug-in or a client of the resident host.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "lorx-naming-service ${sameVersion}, ${clientPackage} ${sameVersion}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "lorx-naming-service-host")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-qvclient)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_COMPONENT_PYTHON_DESCRIPTION "LorxCore naming service: client module for Python
Programs register, find and watch services with the module qvclient, which
talks to the resident host of their machine. It needs no other module.")
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.9)")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "lorx-naming-service-host")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA "${debian}/python/postinst" "${debian}/python/prerm")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# What Debian asks of a package's files.
configure_file(cmake/DebianFiles.cmake.in DebianFiles.cmake @ONLY)
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_BINARY_DIR}/DebianFiles.cmake")

include(CPack)
