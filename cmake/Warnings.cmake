add_library(tovani_warnings INTERFACE)
target_compile_options(tovani_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow
                       -Wnon-virtual-dtor -Wold-style-cast -Wcast-align -Woverloaded-virtual
                       -Wimplicit-fallthrough)
# GCC 12 reports false -Wrestrict warnings inside std::string at -O2/-O3 (GCC bug 105329).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(tovani_warnings INTERFACE -Wno-restrict)
endif()
if(TOVANI_WERROR)
  target_compile_options(tovani_warnings INTERFACE -Werror)
endif()
if(TOVANI_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()
if(TOVANI_FUZZ)
  # Coverage in every object, not only in the targets: libFuzzer can only steer by edges it
  # sees, and the edges that matter are in the core and the parsers it calls.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
