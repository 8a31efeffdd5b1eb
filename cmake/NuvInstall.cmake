# Install rules: the library, its headers, a CMake package (find_package(Nuv)),
# a pkg-config file and the toolchain files that other projects build with.
include(CMakePackageConfigHelpers)

set(NUV_CMAKE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Nuv)

install(TARGETS nuv EXPORT NuvTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/nuv DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT NuvTargets NAMESPACE Nuv:: DESTINATION ${NUV_CMAKE_INSTALL_DIR})
install(DIRECTORY cmake/toolchains DESTINATION ${NUV_CMAKE_INSTALL_DIR})

configure_package_config_file(cmake/NuvConfig.cmake.in
  ${PROJECT_BINARY_DIR}/NuvConfig.cmake
  INSTALL_DESTINATION ${NUV_CMAKE_INSTALL_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/NuvConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/NuvConfig.cmake ${PROJECT_BINARY_DIR}/NuvConfigVersion.cmake
  DESTINATION ${NUV_CMAKE_INSTALL_DIR})

list(JOIN NUV_PROCESSOR_OPTIONS " " NUV_PC_CFLAGS)
# Relocatable: the prefix is found from where nuv.pc is installed.
file(RELATIVE_PATH NUV_PC_PREFIX_FROM_PCDIR "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
configure_file(cmake/nuv.pc.in ${PROJECT_BINARY_DIR}/nuv.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/nuv.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
