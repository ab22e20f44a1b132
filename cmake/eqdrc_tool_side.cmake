# What the tool-side folders (tuning/, fit/, tools/eqdrc/) build the same way.

# A C interface the Python package loads with ctypes: a shared library written beside
# the chain's in the build tree and installed with it, exporting only its own calls.
function(eqdrc_python_interface target output_name source)
  if(NOT EQDRC_BUILD_PYTHON_LIBS OR NOT EQDRC_BUILD_TOOLS)
    return()
  endif()
  add_library(${target} SHARED ${source})
  target_link_libraries(${target} PRIVATE ${ARGN})
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  target_link_options(${target} PRIVATE -Wl,--exclude-libs,ALL -Wl,--no-undefined)
  set_target_properties(${target} PROPERTIES OUTPUT_NAME ${output_name} CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
  install(TARGETS ${target} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endfunction()

# One GoogleTest executable from every *_test.cpp of the calling folder, linked with the
# libraries given after LIBS, its tests registered with ctest. Skipped with a warning
# when GoogleTest is missing; sets `${target}_BUILT` in the caller.
function(eqdrc_folder_tests target what)
  cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
  find_package(GTest QUIET)
  if(NOT GTest_FOUND)
    message(WARNING "${what} tests are not built: GoogleTest not found")
    return()
  endif()
  include(GoogleTest)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*_test.cpp)
  add_executable(${target} ${sources})
  target_link_libraries(${target} PRIVATE ${ARG_LIBS} GTest::gtest_main)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  target_compile_definitions(${target} PRIVATE EQDRC_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  gtest_discover_tests(${target} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300)
  set(${target}_BUILT TRUE PARENT_SCOPE)
endfunction()

# A header-only dependency the WebAssembly build takes from the host: a folder of its own
# holding links to PARTS of /usr/include/SUBDIR (not the host's whole /usr/include),
# behind the imported target TARGET.
function(eqdrc_host_headers target subdir)
  set(dir ${CMAKE_CURRENT_BINARY_DIR}/host-include)
  file(MAKE_DIRECTORY ${dir})
  foreach(part ${ARGN})
    file(CREATE_LINK /usr/include/${subdir}${part} ${dir}/${part} SYMBOLIC)
  endforeach()
  add_library(${target} INTERFACE IMPORTED)
  set_target_properties(${target} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${dir})
endfunction()

# A header generated from a file (tuning/embed.cmake): its bytes, or its text, as the
# constant NAME.
function(eqdrc_embed out in name mode)
  add_custom_command(OUTPUT ${out}
    COMMAND ${CMAKE_COMMAND} -DIN=${in} -DOUT=${out} -DNAME=${name} -DMODE=${mode}
            -P ${PROJECT_SOURCE_DIR}/tuning/embed.cmake
    DEPENDS ${in} ${PROJECT_SOURCE_DIR}/tuning/embed.cmake VERBATIM)
endfunction()
