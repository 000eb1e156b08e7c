# Debian packages of the install layout (scripts/package.sh runs CPack on a build configured
# with the prefix /usr): libtovani1 holds the shared objects, libtovani-dev the headers,
# archives, CMake package and pkg-config files.
set(TOVANI_DEB_RUNTIME libtovani${PROJECT_VERSION_MAJOR})
set(TOVANI_DEB_DEV libtovani-dev)

# Each package documents itself in /usr/share/doc/<package>: copyright and changelog.
configure_file(${PROJECT_SOURCE_DIR}/packaging/changelog
               ${PROJECT_BINARY_DIR}/packaging/changelog.Debian @ONLY)
find_program(TOVANI_GZIP gzip)
if(TOVANI_GZIP)
  execute_process(COMMAND ${TOVANI_GZIP} -9nf ${PROJECT_BINARY_DIR}/packaging/changelog.Debian)
endif()
foreach(component runtime dev)
  if(component STREQUAL "runtime")
    set(package ${TOVANI_DEB_RUNTIME})
  else()
    set(package ${TOVANI_DEB_DEV})
  endif()
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component}
          EXCLUDE_FROM_ALL)
  install(FILES ${PROJECT_BINARY_DIR}/packaging/changelog.Debian.gz
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component}
          EXCLUDE_FROM_ALL)
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tovani)
set(CPACK_PACKAGE_VENDOR "The tovani developers")
set(CPACK_PACKAGE_CONTACT "The tovani developers <sdk@tovani.example>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "rewarded-video advertising SDK")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://tovani.example/sdk")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${TOVANI_DEB_RUNTIME})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")
# dpkg runs ldconfig once per transaction through this trigger.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
string(CONCAT CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "rewarded-video advertising SDK (shared libraries)\n"
    "The SDK shows full-screen video ads with a reward point, a countdown, skip and\n"
    "action controls and an end card. This package holds the core library and the\n"
    "headless Linux platform library (GLib main loop, libcurl, GStreamer).")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${TOVANI_DEB_DEV})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
    "${TOVANI_DEB_RUNTIME} (= ${PROJECT_VERSION}-1), libsqlite3-dev, libexpat1-dev, liburiparser-dev, libcurl4-openssl-dev | libcurl-dev, libglib2.0-dev, libgstreamer1.0-dev, libgstreamer-plugins-base1.0-dev")
string(CONCAT CPACK_COMPONENT_DEV_DESCRIPTION
    "rewarded-video advertising SDK (development files)\n"
    "Headers (C++20 and C), static archives, the CMake package\n"
    "(find_package(tovani)) and pkg-config files (tovani, tovani-linux) for\n"
    "building hosts of the SDK.")

include(CPack)
