# Makes cpack build four Debian packages, one for each component.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME lorx-naming-service)
set(CPACK_PACKAGE_VENDOR "LorxCore")
set(CPACK_PACKAGE_CONTACT "LorxCore developers <lorxcore@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL plugin host development python)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF)
# Each package depends on the packages of the libraries that its files use.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")

set(sameVersion "(= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_PLUGIN_PACKAGE_NAME lorx-naming-service)
set(CPACK_COMPONENT_PLUGIN_DESCRIPTION "LorxCore naming service: the plug-in
 A library that a host process loads, which keeps the directory of the
 product's services.")

set(CPACK_DEBIAN_HOST_PACKAGE_NAME lorx-naming-service-host)
set(CPACK_COMPONENT_HOST_DESCRIPTION "LorxCore naming service: the resident host
 qvhost loads the plug-in and lets other processes use it over a socket. It
 is also the command line of that host. Contains the client library.")
set(CPACK_DEBIAN_HOST_PACKAGE_DEPENDS
  "lorx-naming-service ${sameVersion}, systemd | systemd-standalone-sysusers, systemd | systemd-standalone-tmpfiles")
set(CPACK_DEBIAN_HOST_PACKAGE_CONTROL_EXTRA
  "${CMAKE_CURRENT_SOURCE_DIR}/debian/postinst"
  "${CMAKE_CURRENT_SOURCE_DIR}/debian/prerm"
  "${CMAKE_CURRENT_SOURCE_DIR}/debian/postrm")
set(CPACK_DEBIAN_HOST_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME lorx-naming-service-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "LorxCore naming service: development files
 Headers, message definitions, and packages for CMake and pkg-config. They
 serve to write a host of the plug-in or a client of the resident host.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "lorx-naming-service ${sameVersion}, lorx-naming-service-host ${sameVersion}")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-qvclient)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_COMPONENT_PYTHON_DESCRIPTION "LorxCore naming service: client module for Python
 Registers, finds and watches services with the resident host.")
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.9)")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "lorx-naming-service-host")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
  "${CMAKE_CURRENT_SOURCE_DIR}/debian/python/postinst"
  "${CMAKE_CURRENT_SOURCE_DIR}/debian/python/prerm")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_STRICT_PERMISSION ON)

include(CPack)
