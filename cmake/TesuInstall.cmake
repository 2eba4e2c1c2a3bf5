# Install layout of the host libraries, the command line and the plug-ins, and the helpers that
# give each host library its version, export name and install rules.
include(GNUInstallDirs)

# Public headers keep their "graph/", "framework/" and "log/" prefixes under include/tesu.
set(TESU_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/tesu)
set(TESU_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/tesu)
# Where installed plug-ins go, relative to the prefix. tesu-convert finds it from its own place.
set(TESU_INSTALL_PLUGINDIR lib/tesu/plugins)

# Before 1.0 every minor release may change the ABI, so the SONAME carries major.minor.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(TESU_SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
else()
  set(TESU_SOVERSION ${PROJECT_VERSION_MAJOR})
endif()

# Relative paths between the installed directories, for run paths and the plug-in search.
set(_tesu_root ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH TESU_BINDIR_TO_LIBDIR ${_tesu_root}/${CMAKE_INSTALL_BINDIR}
     ${_tesu_root}/${CMAKE_INSTALL_LIBDIR})
file(RELATIVE_PATH TESU_BINDIR_TO_PLUGINDIR ${_tesu_root}/${CMAKE_INSTALL_BINDIR}
     ${_tesu_root}/${TESU_INSTALL_PLUGINDIR})
file(RELATIVE_PATH TESU_PLUGINDIR_TO_LIBDIR ${_tesu_root}/${TESU_INSTALL_PLUGINDIR}
     ${_tesu_root}/${CMAKE_INSTALL_LIBDIR})

# tesu_install_library(TARGET EXPORT_NAME HEADER_DIR HEADERS...): a host library that plug-ins
# link. It gets the versioned SONAME, is exported as tesu::EXPORT_NAME and installs its public
# headers (paths relative to HEADER_DIR, which is also its include directory in the build tree).
function(tesu_install_library target export_name header_dir)
  set_target_properties(${target} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${TESU_SOVERSION} EXPORT_NAME ${export_name}
    INSTALL_RPATH "$ORIGIN")
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${header_dir}>)
  add_library(tesu::${export_name} ALIAS ${target})
  install(TARGETS ${target} EXPORT tesuTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${TESU_INSTALL_INCLUDEDIR})
  foreach(header ${ARGN})
    get_filename_component(subdir ${header} DIRECTORY)
    install(FILES ${header_dir}/${header} DESTINATION ${TESU_INSTALL_INCLUDEDIR}/${subdir})
  endforeach()
endfunction()
