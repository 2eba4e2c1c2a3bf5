# The exported CMake package (find_package(tesu)) and the sample models. Binary packages are
# made by the Debian packaging in debian/ and by the Python build in setup.py.
include(CMakePackageConfigHelpers)

install(EXPORT tesuTargets NAMESPACE tesu:: DESTINATION ${TESU_INSTALL_CMAKEDIR}
        COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/tesuConfig.cmake.in
  ${PROJECT_BINARY_DIR}/tesuConfig.cmake INSTALL_DESTINATION ${TESU_INSTALL_CMAKEDIR})
# Before 1.0 only releases of one minor version are compatible.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tesuConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tesuConfig.cmake ${PROJECT_BINARY_DIR}/tesuConfigVersion.cmake
  DESTINATION ${TESU_INSTALL_CMAKEDIR} COMPONENT development)

# Two sample models, so that an installed tesu-convert can be tried straight away.
install(FILES ${PROJECT_SOURCE_DIR}/examples/tiny.json ${TESU_SAMPLES_DIR}/mobile.pb
        DESTINATION ${CMAKE_INSTALL_DATADIR}/tesu/examples COMPONENT cli)
