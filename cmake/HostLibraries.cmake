# The libraries a host links, made from objects the in-tree archives already compiled:
#
#   tovani_host_libraries(<base> OUTPUT_NAME <file name> EXPORT_NAME <name>
#                         OBJECTS <targets...> [PUBLIC <libs...>] [PRIVATE <libs...>]
#                         [INCLUDE_DIRS <dirs...>])
#
# makes <base>_shared (lib<file name>.so.<major>, exported as tovani::<name>) and
# <base>_static (lib<file name>.a, exported as tovani::<name>_static). PUBLIC names the
# in-tree base of another host library (e.g. tovani), linked in the same form. Only
# declarations marked TOVANI_EXPORT leave the shared object (see tovani.map).
set(TOVANI_VERSION_SCRIPT ${CMAKE_CURRENT_LIST_DIR}/tovani.map)

function(tovani_host_libraries base)
  cmake_parse_arguments(arg "" "OUTPUT_NAME;EXPORT_NAME" "OBJECTS;PUBLIC;PRIVATE;INCLUDE_DIRS"
                        ${ARGN})
  set(objects)
  foreach(target IN LISTS arg_OBJECTS)
    list(APPEND objects $<TARGET_OBJECTS:${target}>)
  endforeach()
  set(includes)
  foreach(dir IN LISTS arg_INCLUDE_DIRS)
    list(APPEND includes $<BUILD_INTERFACE:${dir}>)
  endforeach()

  foreach(form shared static)
    string(TOUPPER ${form} FORM)
    set(target ${base}_${form})
    add_library(${target} ${FORM} ${objects})
    set(export_name ${arg_EXPORT_NAME})
    if(form STREQUAL "static")
      set(export_name ${arg_EXPORT_NAME}_static)
    endif()
    add_library(tovani::${export_name} ALIAS ${target})
    set_target_properties(${target} PROPERTIES OUTPUT_NAME ${arg_OUTPUT_NAME}
                          EXPORT_NAME ${export_name} LINKER_LANGUAGE CXX)
    target_include_directories(${target} INTERFACE ${includes}
                               $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    target_compile_features(${target} INTERFACE cxx_std_20)
    foreach(dependency IN LISTS arg_PUBLIC)
      target_link_libraries(${target} PUBLIC ${dependency}_${form})
    endforeach()
    target_link_libraries(${target} PRIVATE ${arg_PRIVATE})
  endforeach()

  set_target_properties(${base}_shared PROPERTIES VERSION ${PROJECT_VERSION}
                        SOVERSION ${PROJECT_VERSION_MAJOR} LINK_DEPENDS ${TOVANI_VERSION_SCRIPT})
  # Unused sections go, and the symbol table holds the public interface only.
  target_link_options(${base}_shared PRIVATE LINKER:--gc-sections LINKER:--as-needed LINKER:-O1
                      LINKER:--version-script=${TOVANI_VERSION_SCRIPT})
  # Sanitized shared objects leave the runtime to the program (clang), so only plain builds
  # can insist that every symbol is resolved.
  if(NOT TOVANI_SANITIZE)
    target_link_options(${base}_shared PRIVATE LINKER:-z,defs)
  endif()
  # A static host links these archives with the header's export mark switched off.
  target_compile_definitions(${base}_static INTERFACE TOVANI_STATIC_DEFINE)
endfunction()
