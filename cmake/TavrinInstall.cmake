# The installed package: CMake's find_package(Tavrin) and pkg-config's tavrin-player.

include(CMakePackageConfigHelpers)

# The contract suites are headers that an implementer of a client interface includes into a test of its own
# and links with its own GoogleTest: the package itself needs none.
set(contracts_dir "${CMAKE_INSTALL_DATADIR}/tavrin")
install(DIRECTORY tests/contracts DESTINATION "${contracts_dir}" COMPONENT libtavrin-dev
  FILES_MATCHING PATTERN "*.h")
add_library(TavrinContracts INTERFACE)
add_library(Tavrin::Contracts ALIAS TavrinContracts)
set_target_properties(TavrinContracts PROPERTIES EXPORT_NAME Contracts)
target_link_libraries(TavrinContracts INTERFACE Tavrin::Player)
target_include_directories(TavrinContracts INTERFACE
  "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/tests>"
  "$<INSTALL_INTERFACE:${contracts_dir}>")
install(TARGETS TavrinContracts EXPORT TavrinTargets)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/Tavrin")
install(EXPORT TavrinTargets NAMESPACE Tavrin:: DESTINATION "${package_dir}" COMPONENT libtavrin-dev)
configure_package_config_file(cmake/TavrinConfig.cmake.in "${PROJECT_BINARY_DIR}/TavrinConfig.cmake"
  INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/TavrinConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/TavrinConfig.cmake" "${PROJECT_BINARY_DIR}/TavrinConfigVersion.cmake"
  DESTINATION "${package_dir}" COMPONENT libtavrin-dev)

# Paths in the pkg-config file are relative to the file itself, so that an installed tree can be moved.
set(pkgconfig_dir "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH pkgconfig_to_prefix "${pkgconfig_dir}" "${CMAKE_INSTALL_PREFIX}")
file(RELATIVE_PATH pkgconfig_to_libraries "${pkgconfig_dir}" "${CMAKE_INSTALL_FULL_LIBDIR}")
file(RELATIVE_PATH pkgconfig_to_headers "${pkgconfig_dir}" "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
file(RELATIVE_PATH pkgconfig_to_data "${pkgconfig_dir}" "${CMAKE_INSTALL_FULL_DATADIR}")
configure_file(cmake/tavrin-player.pc.in "${PROJECT_BINARY_DIR}/tavrin-player.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/tavrin-player.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
  COMPONENT libtavrin-dev)

install(FILES LICENSE CHANGELOG.md DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT libtavrin)
