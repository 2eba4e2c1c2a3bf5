# Install layout of the host libraries, the command line, the plug-ins and the Python package, and
# the helper that gives each host library its version, export name and install rules.
#
# Install components, so that each kind of user takes only what they need:
#   runtime      the shared libraries (versioned files) and the parser plug-ins
#   development  headers, the unversioned .so links and the CMake package
#   cli          tesu-convert and the sample models
#   python       the tesu Python package
include(GNUInstallDirs)

# Public headers keep their "graph/", "framework/" and "log/" prefixes under include/tesu, so
# that <tesu/graph/graph.h> and, with include/tesu also on the path, "graph/graph.h" both work.
set(TESU_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/tesu)
set(TESU_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/tesu)
# Where installed plug-ins go, relative to the prefix: a private folder of the library folder
# (lib/<multiarch> on Debian). tesu-convert and the Python module find it from their own place.
set(TESU_INSTALL_PLUGINDIR ${CMAKE_INSTALL_LIBDIR}/tesu/plugins CACHE STRING
    "Where plug-ins are installed, relative to the install prefix")
# A wheel holds everything in the package folder; its versioned libraries are single files
# (a zip archive has no symbolic links), so the file name is the SONAME itself.
option(TESU_WHEEL_LAYOUT "Version shared libraries by their SONAME only (for the wheel)" OFF)

# Before 1.0 every minor release may change the ABI, so the SONAME carries major.minor.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(TESU_SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
else()
  set(TESU_SOVERSION ${PROJECT_VERSION_MAJOR})
endif()
if(TESU_WHEEL_LAYOUT)
  set(TESU_LIBRARY_VERSION ${TESU_SOVERSION})
else()
  set(TESU_LIBRARY_VERSION ${PROJECT_VERSION})
endif()

# TESU_RELATIVE(var from to): the path from one prefix-relative folder to another, for run paths
# and for finding the plug-ins from an installed file. The prefix may change at install time
# (cmake --install --prefix), so only relative paths are compiled in.
function(tesu_relative var from to)
  get_filename_component(from /prefix/${from} ABSOLUTE)
  get_filename_component(to /prefix/${to} ABSOLUTE)
  file(RELATIVE_PATH path ${from} ${to})
  if(path STREQUAL "")
    set(path .)
  endif()
  set(${var} ${path} PARENT_SCOPE)
endfunction()
tesu_relative(TESU_BINDIR_TO_LIBDIR ${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_LIBDIR})
tesu_relative(TESU_BINDIR_TO_PLUGINDIR ${CMAKE_INSTALL_BINDIR} ${TESU_INSTALL_PLUGINDIR})
tesu_relative(TESU_PLUGINDIR_TO_LIBDIR ${TESU_INSTALL_PLUGINDIR} ${CMAKE_INSTALL_LIBDIR})

# In the build tree, <tesu/...> names a public header through a forwarding header under this
# folder, as it names the installed one.
set(TESU_SDK_INCLUDE_DIR ${PROJECT_BINARY_DIR}/sdk/include)

# tesu_install_library(TARGET EXPORT_NAME HEADER_DIR HEADERS...): a host library that plug-ins
# link. It gets the versioned SONAME, is exported as tesu::EXPORT_NAME and installs its public
# headers (paths relative to HEADER_DIR, which is also its include directory in the build tree).
function(tesu_install_library target export_name header_dir)
  set_target_properties(${target} PROPERTIES
    VERSION ${TESU_LIBRARY_VERSION} SOVERSION ${TESU_SOVERSION} EXPORT_NAME ${export_name}
    INSTALL_RPATH "$ORIGIN")
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${header_dir}> $<BUILD_INTERFACE:${TESU_SDK_INCLUDE_DIR}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
    $<INSTALL_INTERFACE:${TESU_INSTALL_INCLUDEDIR}>)
  add_library(tesu::${export_name} ALIAS ${target})
  install(TARGETS ${target} EXPORT tesuTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
            NAMELINK_COMPONENT development)
  tesu_install_headers(${header_dir} ${ARGN})
endfunction()

# tesu_install_headers(HEADER_DIR HEADERS...): public headers, by their paths under HEADER_DIR.
function(tesu_install_headers header_dir)
  foreach(header ${ARGN})
    get_filename_component(subdir ${header} DIRECTORY)
    install(FILES ${header_dir}/${header} DESTINATION ${TESU_INSTALL_INCLUDEDIR}/${subdir}
            COMPONENT development)
    file(CONFIGURE OUTPUT ${TESU_SDK_INCLUDE_DIR}/tesu/${header}
         CONTENT "#include \"${header_dir}/${header}\"\n")
  endforeach()
endfunction()

# tesu_install_plugin(TARGET): a parser plug-in of this tree, built into the build tree's plug-in
# folder and installed into the plug-in folder, finding the host libraries from there.
function(tesu_install_plugin target)
  set_target_properties(${target} PROPERTIES
    LIBRARY_OUTPUT_DIRECTORY ${TESU_PLUGIN_OUTPUT_DIR}
    INSTALL_RPATH "$ORIGIN/${TESU_PLUGINDIR_TO_LIBDIR}")
  install(TARGETS ${target} LIBRARY DESTINATION ${TESU_INSTALL_PLUGINDIR} COMPONENT runtime)
endfunction()
