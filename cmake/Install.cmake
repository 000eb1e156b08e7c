# Install layout (GNUInstallDirs): headers, the shared and static libraries, the CMake package
# (tovaniConfig.cmake, tovaniConfigVersion.cmake, tovaniTargets.cmake with tovani::tovani,
# tovani::linux, ...) and one pkg-config file per library. Components: "runtime" holds the
# shared objects, "dev" everything a build needs.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
include(${CMAKE_CURRENT_LIST_DIR}/HostLibraries.cmake)

set(TOVANI_CMAKE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/tovani)

#   tovani_install_library(<base> PKGCONFIG <name> HEADERS <folder>)
#
# Installs <base>_shared and <base>_static (see tovani_host_libraries) into the package's
# export set, the public headers under <folder> (its contents land in the include folder),
# and cmake/pkgconfig/<name>.pc.in configured as <name>.pc. The .pc file finds its prefix
# from its own place, so `cmake --install --prefix` anywhere gives a working file.
function(tovani_install_library base)
  cmake_parse_arguments(arg "" "PKGCONFIG;HEADERS" "" ${ARGN})
  install(TARGETS ${base}_shared ${base}_static EXPORT tovaniTargets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
  install(DIRECTORY ${arg_HEADERS}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
  set(pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  file(RELATIVE_PATH PC_PREFIX_FROM_FILE /${pc_dir} /)
  string(REGEX REPLACE "/$" "" PC_PREFIX_FROM_FILE "${PC_PREFIX_FROM_FILE}")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/pkgconfig/${arg_PKGCONFIG}.pc.in
                 ${PROJECT_BINARY_DIR}/pkgconfig/${arg_PKGCONFIG}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/${arg_PKGCONFIG}.pc DESTINATION ${pc_dir}
          COMPONENT dev)
endfunction()

# Called once at the end of the top-level list file, after every library was added.
function(tovani_install_package)
  install(EXPORT tovaniTargets NAMESPACE tovani:: DESTINATION ${TOVANI_CMAKE_INSTALL_DIR}
          COMPONENT dev)
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/tovaniConfig.cmake.in
                                ${PROJECT_BINARY_DIR}/tovaniConfig.cmake
                                INSTALL_DESTINATION ${TOVANI_CMAKE_INSTALL_DIR})
  # The SONAME carries the major version, so the package promises the same.
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/tovaniConfigVersion.cmake
                                   COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/tovaniConfig.cmake
                ${PROJECT_BINARY_DIR}/tovaniConfigVersion.cmake
          DESTINATION ${TOVANI_CMAKE_INSTALL_DIR} COMPONENT dev)
endfunction()
