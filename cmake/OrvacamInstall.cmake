# Install rules: headers, shared library, CMake package and pkg-config file. What is installed may be moved: nothing in
# it names the prefix. The components are the Debian packages (OrvacamPackage.cmake).
include(CMakePackageConfigHelpers)

install(TARGETS orvacam EXPORT orvacamTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)
install(FILES ${PROJECT_SOURCE_DIR}/include/orvacam.h ${PROJECT_SOURCE_DIR}/include/orvacam.hpp
  ${PROJECT_SOURCE_DIR}/include/orvacam_c.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/orvacam ${PROJECT_BINARY_DIR}/include/orvacam
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")

set(ORVACAM_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/orvacam)
install(EXPORT orvacamTargets NAMESPACE orvacam:: DESTINATION ${ORVACAM_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/orvacamConfig.cmake.in
  ${PROJECT_BINARY_DIR}/orvacamConfig.cmake INSTALL_DESTINATION ${ORVACAM_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/orvacamConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/orvacamConfig.cmake ${PROJECT_BINARY_DIR}/orvacamConfigVersion.cmake
  DESTINATION ${ORVACAM_CMAKE_DIR})

set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pkgconfig_to_prefix /prefix/${pkgconfig_dir} /prefix)
string(REGEX REPLACE "/$" "" pkgconfig_to_prefix ${pkgconfig_to_prefix})
configure_file(${PROJECT_SOURCE_DIR}/cmake/orvacam.pc.in ${PROJECT_BINARY_DIR}/orvacam.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/orvacam.pc DESTINATION ${pkgconfig_dir})
