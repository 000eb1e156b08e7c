add_library(tovani_warnings INTERFACE)
target_compile_options(tovani_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow
                       -Wnon-virtual-dtor -Wold-style-cast -Wcast-align -Woverloaded-virtual
                       -Wnull-dereference -Wimplicit-fallthrough)
if(TOVANI_WERROR)
  target_compile_options(tovani_warnings INTERFACE -Werror)
endif()
if(TOVANI_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()
