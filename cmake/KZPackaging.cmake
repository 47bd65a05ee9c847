# Debian packages with `cpack -G DEB` from a configured build directory:
#
#   libkzresolver-qtN-0      the shared library (runtime)
#   libkzresolver-qtN-dev    headers, .so link, CMake package, pkg-config file
#   kzresolver-qtN-tools     kzdump, kzdemo, kzlan-client, kzfleet
#   kzresolver-qtN-server    kzlan-server as a systemd service (with KZ_BUILD_LAN)
#   kzresolver-doc           the HTML reference (with KZ_BUILD_DOCS)
#   python3-kzresolver       the Python module kzresolver (with KZ_BUILD_PYTHON)
#   ...-dbgsym (.ddeb)       the debug symbols of each package with binaries
#
# N is QT_VERSION_MAJOR, so the runtime and development packages of both Qt
# majors install side by side. The tools and the server of the two majors are
# the same programs under the same names: their packages replace each other.
# Binaries are stripped; their symbols go to the -dbgsym packages. Every
# package carries the copyright file and the Debian changelog.
set(KZ_DEB_RUNTIME lib${KZ_NAME}-${PROJECT_VERSION_MAJOR})
set(KZ_DEB_DEV lib${KZ_NAME}-dev)
set(KZ_DEB_TOOLS ${KZ_NAME}-tools)
set(KZ_DEB_SERVER ${KZ_NAME}-server)
set(KZ_DEB_DOC kzresolver-doc)
if(QT_VERSION_MAJOR STREQUAL "5")
  set(KZ_DEB_QT_DEV "qtbase5-dev (>= 5.15)")
  set(KZ_DEB_OTHER_MAJOR qt6)
  set(KZ_DEB_SQL libqt5sql5)
else()
  set(KZ_DEB_QT_DEV "qt6-base-dev (>= 6.2)")
  set(KZ_DEB_OTHER_MAJOR qt5)
  set(KZ_DEB_SQL libqt6sql6)
endif()

# The Debian revision and the changelog: packaging/changelog's first entry
# names the version packaged, which must be the project's.
set(KZ_DEB_RELEASE 1)
set(KZ_DEB_VERSION ${PROJECT_VERSION}-${KZ_DEB_RELEASE})
file(STRINGS ${PROJECT_SOURCE_DIR}/packaging/changelog KZ_CHANGELOG_TOP LIMIT_COUNT 1)
if(NOT KZ_CHANGELOG_TOP MATCHES "^kzresolver \\(${KZ_DEB_VERSION}\\) ")
  message(FATAL_ERROR "packaging/changelog starts with '${KZ_CHANGELOG_TOP}': "
    "its first entry must be for version ${KZ_DEB_VERSION}")
endif()
set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/packaging/changelog)
set(KZ_CHANGELOG_GZ ${PROJECT_BINARY_DIR}/packaging/changelog.Debian.gz)
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/packaging)
execute_process(COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/packaging/gzip-n.py
  ${PROJECT_SOURCE_DIR}/packaging/changelog ${KZ_CHANGELOG_GZ}
  COMMAND_ERROR_IS_FATAL ANY)

# kz_deb_package(COMPONENT PACKAGE): the copyright file and the changelog in
# the package's documentation folder.
function(kz_deb_package component package)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright ${KZ_CHANGELOG_GZ}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
endfunction()
kz_deb_package(runtime ${KZ_DEB_RUNTIME})
kz_deb_package(dev ${KZ_DEB_DEV})
kz_deb_package(tools ${KZ_DEB_TOOLS})
set(KZ_DEB_COMPONENTS runtime dev tools)
if(KZ_BUILD_LAN AND KZ_BUILD_EXAMPLES)
  include(${CMAKE_CURRENT_LIST_DIR}/KZServerService.cmake)
  kz_deb_package(server ${KZ_DEB_SERVER})
  list(APPEND KZ_DEB_COMPONENTS server)
endif()
if(KZ_BUILD_PYTHON)
  kz_deb_package(python python3-kzresolver)
  list(APPEND KZ_DEB_COMPONENTS python)
endif()
if(KZ_BUILD_DOCS)
  kz_deb_package(doc ${KZ_DEB_DOC})
  list(APPEND KZ_DEB_COMPONENTS doc)
endif()

set(CPACK_PACKAGE_NAME ${KZ_NAME})
set(CPACK_PACKAGE_VENDOR "kzresolver team")
set(CPACK_PACKAGE_CONTACT "kzresolver team <dev@kzresolver.example>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "LAN protocol resolver for the machine fleet (Qt ${QT_VERSION_MAJOR})")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)

set(CPACK_COMPONENTS_ALL ${KZ_DEB_COMPONENTS})
set(CPACK_DEBIAN_PACKAGE_RELEASE ${KZ_DEB_RELEASE})
# Stripped binaries; their debug symbols in a -dbgsym package each.
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/dbgsym.cmake)
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
# The linker cache is updated once per dpkg run, by trigger.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/runtime/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "The library that hosts link to speak the LAN protocol of the machine fleet\nwith Qt ${QT_VERSION_MAJOR}: typed calls in, framed bytes out, and back. Shared library.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${KZ_DEB_DEV})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${KZ_DEB_RUNTIME} (= ${KZ_DEB_VERSION}), ${KZ_DEB_QT_DEV}")
set(CPACK_COMPONENT_DEV_DESCRIPTION
  "The library that hosts link to speak the LAN protocol of the machine fleet\nwith Qt ${QT_VERSION_MAJOR}: headers, CMake package and pkg-config file for building hosts.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${KZ_DEB_TOOLS})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${KZ_DEB_RUNTIME} (= ${KZ_DEB_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONFLICTS kzresolver-${KZ_DEB_OTHER_MAJOR}-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_REPLACES kzresolver-${KZ_DEB_OTHER_MAJOR}-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_PROVIDES kzresolver-tools)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
  "Tools for the LAN protocol of the machine fleet: kzdump (prints the messages\nof a capture or of live traffic it relays), kzdemo (a server and a client\nthrough every message family), kzlan-client, the reference LAN client, and\nkzfleet, a fleet of simulated machines against a LAN server.")

set(CPACK_DEBIAN_SERVER_PACKAGE_NAME ${KZ_DEB_SERVER})
set(CPACK_DEBIAN_SERVER_PACKAGE_SECTION net)
# kzlan-server loads its database driver as a Qt plugin, which
# dpkg-shlibdeps cannot see: SQLite is its default, PostgreSQL an option.
# Its maintainer scripts make the system user with adduser (sysusers.d has
# the same user for systems that make users from it) and hand the unit to
# deb-systemd-helper (init-system-helpers, an essential package).
set(CPACK_DEBIAN_SERVER_PACKAGE_DEPENDS
  "${KZ_DEB_RUNTIME} (= ${KZ_DEB_VERSION}), ${KZ_DEB_SQL}-sqlite, adduser")
set(CPACK_DEBIAN_SERVER_PACKAGE_SUGGESTS "${KZ_DEB_SQL}-psql")
# Up to 0.1.0 the server came in the tools package.
set(CPACK_DEBIAN_SERVER_PACKAGE_CONFLICTS kzresolver-${KZ_DEB_OTHER_MAJOR}-server)
set(CPACK_DEBIAN_SERVER_PACKAGE_REPLACES
  "kzresolver-${KZ_DEB_OTHER_MAJOR}-server, ${KZ_DEB_TOOLS} (<< 0.1.0-1), kzresolver-${KZ_DEB_OTHER_MAJOR}-tools (<< 0.1.0-1)")
set(CPACK_DEBIAN_SERVER_PACKAGE_BREAKS
  "${KZ_DEB_TOOLS} (<< 0.1.0-1), kzresolver-${KZ_DEB_OTHER_MAJOR}-tools (<< 0.1.0-1)")
set(CPACK_DEBIAN_SERVER_PACKAGE_PROVIDES kzlan-server)
set(CPACK_DEBIAN_SERVER_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/packaging/server/postinst ${PROJECT_SOURCE_DIR}/packaging/server/prerm
  ${PROJECT_SOURCE_DIR}/packaging/server/postrm ${PROJECT_SOURCE_DIR}/packaging/server/conffiles)
set(CPACK_COMPONENT_SERVER_DESCRIPTION
  "kzlan-server, the reference LAN server of the machine fleet, as a systemd\nservice: its own system user, its configuration in /etc/kzlan-server, its\ndatabase (SQLite or PostgreSQL) and files in /var/lib/kzlan-server.")

set(CPACK_DEBIAN_DOC_PACKAGE_NAME ${KZ_DEB_DOC})
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOC_PACKAGE_SHLIBDEPS OFF)
set(CPACK_COMPONENT_DOC_DESCRIPTION
  "The HTML reference of the library for the LAN protocol of the machine fleet:\nthe classes, the messages, the frame format and the reference server.")

# The Python module of both Qt majors is one package name: whichever is
# installed serves. It depends on the library package of its major, which
# it is released with, and on the Python 3 it was built for (the ABI its
# file name carries).
set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-kzresolver)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
string(REGEX MATCH "^[0-9]+\\.[0-9]+" KZ_PYTHON_ABI "${Python3_VERSION}")
math(EXPR KZ_PYTHON_NEXT "${Python3_VERSION_MINOR} + 1")
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
  "${KZ_DEB_RUNTIME} (= ${KZ_DEB_VERSION}), python3 (>= ${KZ_PYTHON_ABI}), python3 (<< ${Python3_VERSION_MAJOR}.${KZ_PYTHON_NEXT})")
set(CPACK_COMPONENT_PYTHON_DESCRIPTION
  "The LAN protocol of the machine fleet from Python: a Resolver that encodes\nmessages into frames and decodes received bytes with the library's own codecs,\nan asyncio client, a server for test doubles, and type stubs.")

include(CPack)
