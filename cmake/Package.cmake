# Installing: the two libraries, the headers, ks, a CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

set(KSLIB_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kslib)
install(TARGETS kslib kshost kslib_host_api EXPORT kslibTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(KSLIB_BUILD_CLI)
  install(TARGETS ks RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(DIRECTORY include/ host/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(EXPORT kslibTargets NAMESPACE kslib:: DESTINATION ${KSLIB_CMAKE_DIR})
configure_package_config_file(cmake/kslibConfig.cmake.in ${PROJECT_BINARY_DIR}/kslibConfig.cmake
  INSTALL_DESTINATION ${KSLIB_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kslibConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kslibConfig.cmake ${PROJECT_BINARY_DIR}/kslibConfigVersion.cmake
  DESTINATION ${KSLIB_CMAKE_DIR})
file(RELATIVE_PATH KSLIB_PREFIX_FROM_PC ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/kslib.pc.in ${PROJECT_BINARY_DIR}/kslib.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kslib.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
