# The installed package: CMake's find_package(Tavrin) and pkg-config's tavrin-player.

include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/Tavrin")
install(EXPORT TavrinTargets NAMESPACE Tavrin:: DESTINATION "${package_dir}")
configure_package_config_file(cmake/TavrinConfig.cmake.in "${PROJECT_BINARY_DIR}/TavrinConfig.cmake"
  INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/TavrinConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/TavrinConfig.cmake" "${PROJECT_BINARY_DIR}/TavrinConfigVersion.cmake"
  DESTINATION "${package_dir}")

configure_file(cmake/tavrin-player.pc.in "${PROJECT_BINARY_DIR}/tavrin-player.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/tavrin-player.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
