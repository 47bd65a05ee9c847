# Debian packages with `cpack -G DEB` from a configured build directory:
#
#   libkzresolver-qtN-0      the shared library (runtime)
#   libkzresolver-qtN-dev    headers, .so link, CMake package, pkg-config file
#   kzresolver-qtN-tools     kzdump, kzdemo, kzlan-server, kzlan-client
#
# N is QT_VERSION_MAJOR, so the runtime and development packages of both Qt
# majors install side by side. The tools of the two majors are the same
# programs under the same names: their packages replace each other.
set(KZ_DEB_RUNTIME lib${KZ_NAME}-${PROJECT_VERSION_MAJOR})
set(KZ_DEB_DEV lib${KZ_NAME}-dev)
set(KZ_DEB_TOOLS ${KZ_NAME}-tools)
if(QT_VERSION_MAJOR STREQUAL "5")
  set(KZ_DEB_QT_DEV "qtbase5-dev (>= 5.15)")
  set(KZ_DEB_OTHER_TOOLS kzresolver-qt6-tools)
  set(KZ_DEB_SQL libqt5sql5)
else()
  set(KZ_DEB_QT_DEV "qt6-base-dev (>= 6.2)")
  set(KZ_DEB_OTHER_TOOLS kzresolver-qt5-tools)
  set(KZ_DEB_SQL libqt6sql6)
endif()

set(CPACK_PACKAGE_NAME ${KZ_NAME})
set(CPACK_PACKAGE_VENDOR "kzresolver team")
set(CPACK_PACKAGE_CONTACT "kzresolver team <kzresolver@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "LAN protocol resolver for the machine fleet (Qt ${QT_VERSION_MAJOR})")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES OFF)

set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Dependencies of the binaries (Qt, libc, libstdc++) come from dpkg-shlibdeps;
# the runtime package publishes a shlibs file so that packages built against
# it depend on it in turn.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# kzdemo links the library being packaged, which dpkg-shlibdeps finds here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/KZProtocolResolver)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${KZ_DEB_RUNTIME})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "LAN protocol resolver for the machine fleet, Qt ${QT_VERSION_MAJOR} build: shared library")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${KZ_DEB_DEV})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${KZ_DEB_RUNTIME} (= ${PROJECT_VERSION}), ${KZ_DEB_QT_DEV}")
set(CPACK_COMPONENT_DEV_DESCRIPTION
  "LAN protocol resolver for the machine fleet, Qt ${QT_VERSION_MAJOR} build: headers, CMake package, pkg-config file")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${KZ_DEB_TOOLS})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
# kzlan-server loads its database driver as a Qt plugin, which
# dpkg-shlibdeps cannot see: SQLite is its default, PostgreSQL an option.
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${KZ_DEB_RUNTIME} (= ${PROJECT_VERSION}), ${KZ_DEB_SQL}-sqlite")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "${KZ_DEB_SQL}-psql")
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONFLICTS ${KZ_DEB_OTHER_TOOLS})
set(CPACK_DEBIAN_TOOLS_PACKAGE_REPLACES ${KZ_DEB_OTHER_TOOLS})
set(CPACK_DEBIAN_TOOLS_PACKAGE_PROVIDES kzresolver-tools)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
  "LAN protocol resolver for the machine fleet: kzdump (wire dump and tap relay), kzdemo, and the reference LAN server and client kzlan-server, kzlan-client")

include(CPack)
