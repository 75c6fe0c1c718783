# Debian packages: `scripts/package` makes three of them.
#
# libtavrin       the shared libraries
# libtavrin-dev   headers, contract suites, CMake package and pkg-config file
# tavrin-playout  the program with its manual page and completion

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tavrin)
set(CPACK_PACKAGE_VENDOR "Tavrin")
set(CPACK_PACKAGE_CONTACT "The Tavrin developers <tavrin@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL libtavrin libtavrin-dev)
if(TAVRIN_BUILD_PLAYOUT)
  list(APPEND CPACK_COMPONENTS_ALL tavrin-playout)
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
# What each links to is read from its files, and what our own libraries offer from the packages made beside it.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
foreach(library Time Tools Logging Player Playout)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/${library}")
endforeach()
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_LIBTAVRIN_PACKAGE_NAME libtavrin)
set(CPACK_COMPONENT_LIBTAVRIN_DESCRIPTION "${PROJECT_DESCRIPTION}: shared libraries")
set(CPACK_DEBIAN_LIBTAVRIN-DEV_PACKAGE_NAME libtavrin-dev)
set(CPACK_DEBIAN_LIBTAVRIN-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_LIBTAVRIN-DEV_PACKAGE_SHLIBDEPS OFF)
set(CPACK_COMPONENT_LIBTAVRIN-DEV_DESCRIPTION "${PROJECT_DESCRIPTION}: what a client is built with")
# A client includes Boost's headers through ours, and links to exactly these libraries.
set(CPACK_DEBIAN_LIBTAVRIN-DEV_PACKAGE_DEPENDS
  "libtavrin (= ${PROJECT_VERSION}), libboost-thread-dev, libboost-system-dev")
set(CPACK_DEBIAN_TAVRIN-PLAYOUT_PACKAGE_NAME tavrin-playout)
set(CPACK_DEBIAN_TAVRIN-PLAYOUT_PACKAGE_SECTION video)
set(CPACK_COMPONENT_TAVRIN-PLAYOUT_DESCRIPTION "Plays and checks recordings on the playback engine Tavrin")
set(CPACK_COMPONENT_TAVRIN-PLAYOUT_DEPENDS libtavrin)
include(CPack)
