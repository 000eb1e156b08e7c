# Every dependency comes from Debian packages installed by scripts/setup.sh.
# The minimum versions are the Debian 12 releases carrying the current security fixes
# of the parsers that read network input.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)

pkg_check_modules(SQLITE3 REQUIRED IMPORTED_TARGET sqlite3>=3.40.1)
pkg_check_modules(EXPAT REQUIRED IMPORTED_TARGET expat>=2.5.0)
pkg_check_modules(URIPARSER REQUIRED IMPORTED_TARGET liburiparser>=0.9.7)
find_package(nlohmann_json 3.11 REQUIRED)

if(TOVANI_BUILD_LINUX)
  pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl>=7.88.1)
  pkg_check_modules(GLIB REQUIRED IMPORTED_TARGET glib-2.0>=2.74 gio-2.0>=2.74)
  pkg_check_modules(GST REQUIRED IMPORTED_TARGET gstreamer-1.0>=1.22 gstreamer-app-1.0>=1.22
                    gstreamer-pbutils-1.0>=1.22)
endif()

if(TOVANI_BUILD_TOOLS OR TOVANI_BUILD_TESTS)
  find_package(OpenSSL 3.0 REQUIRED)
  find_path(HTTPLIB_INCLUDE_DIR httplib.h REQUIRED)
endif()

if(TOVANI_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(TOVANI_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
