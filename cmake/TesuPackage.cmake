# The exported CMake package (find_package(tesu)) and the Debian package made by CPack.
include(CMakePackageConfigHelpers)

install(EXPORT tesuTargets NAMESPACE tesu:: DESTINATION ${TESU_INSTALL_CMAKEDIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/tesuConfig.cmake.in
  ${PROJECT_BINARY_DIR}/tesuConfig.cmake INSTALL_DESTINATION ${TESU_INSTALL_CMAKEDIR})
# Before 1.0 only releases of one minor version are compatible.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tesuConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tesuConfig.cmake ${PROJECT_BINARY_DIR}/tesuConfigVersion.cmake
  DESTINATION ${TESU_INSTALL_CMAKEDIR})

# Two sample models, so that an installed tesu-convert can be tried straight away.
install(FILES ${PROJECT_SOURCE_DIR}/examples/tiny.json ${TESU_SAMPLES_DIR}/mobile.pb
        DESTINATION ${CMAKE_INSTALL_DATADIR}/tesu/examples)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tesu-convert)
set(CPACK_PACKAGE_CONTACT "tesu developers <tesu@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Model conversion host, its Orvane parser plug-in and the SDK for writing plug-ins")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
# Whatever the build type, the package carries no debug information.
set(CPACK_STRIP_FILES ON)
# Run-time dependencies come from the binaries; building a plug-in needs the headers of these.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "cmake, g++, libprotobuf-dev, nlohmann-json3-dev")
include(CPack)
