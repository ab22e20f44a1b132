# x86-64: the processing code built three times (scalar lanes, SSE2, AVX2 without FMA),
# each copy under names of its own, and one set of exported entry points that jump to the
# copy chosen when the library is loaded (chain/simd_dispatch.cpp, core/simd_path.h).
#
# Every name a copy defines is renamed by a header forced in front of each source: the
# exported functions and the public types by prefix, the internal namespace likewise.
# So no function compiled for AVX2 can stand in for another copy's, inline ones included.
set(EQDRC_SIMD_PATHS scalar sse2 avx2)
set(EQDRC_SIMD_FLAGS_scalar -DEQDRC_SCALAR_LANES=1)
set(EQDRC_SIMD_FLAGS_sse2)
set(EQDRC_SIMD_FLAGS_avx2 -mavx2 -mno-fma)

# The names the public header declares on lines matching LINE, captured by NAME's group.
function(eqdrc_header_names out line name)
  file(STRINGS ${CMAKE_CURRENT_SOURCE_DIR}/include/tqaudio_eqdrc.h lines REGEX "${line}")
  set(names)
  foreach(l IN LISTS lines)
    string(REGEX MATCH "${name}" match "${l}")
    list(APPEND names ${CMAKE_MATCH_1})
  endforeach()
  set(${out} ${names} PARENT_SCOPE)
endfunction()
# The names are read when CMake configures: a changed header configures again.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/include/tqaudio_eqdrc.h)
eqdrc_header_names(export_names "^EQDRC_API " "([A-Za-z_][A-Za-z0-9_]*)\\(")
eqdrc_header_names(type_names "^typedef struct " "^typedef struct ([A-Za-z_][A-Za-z0-9_]*)")
list(REMOVE_DUPLICATES type_names)

set(gen ${CMAKE_CURRENT_BINARY_DIR}/simd_dispatch)
set(exports_inc "// Generated from include/tqaudio_eqdrc.h: every exported function.\n")
foreach(name IN LISTS export_names)
  string(APPEND exports_inc "EQDRC_EXPORT(${name})\n")
endforeach()
file(CONFIGURE OUTPUT ${gen}/eqdrc_exports.inc CONTENT "${exports_inc}" @ONLY)

set(EQDRC_PATH_OBJECTS)
foreach(path IN LISTS EQDRC_SIMD_PATHS)
  set(rename "// Generated: the names of the ${path} copy of the processing code.\n#define EQDRC_API\n")
  string(APPEND rename "#define eqdrc eqdrc_${path}\n")
  foreach(name IN LISTS export_names type_names)
    string(APPEND rename "#define ${name} eqdrc_${path}_${name}\n")
  endforeach()
  file(CONFIGURE OUTPUT ${gen}/rename_${path}.h CONTENT "${rename}" @ONLY)
  add_library(eqdrc_path_${path} OBJECT ${EQDRC_SOURCES})
  target_include_directories(eqdrc_path_${path} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/include ${CMAKE_CURRENT_SOURCE_DIR})
  target_compile_options(eqdrc_path_${path} PRIVATE ${EQDRC_EXACT_FLAGS} -fno-exceptions -fno-rtti -Wall -Wextra
    ${EQDRC_SIMD_FLAGS_${path}} -include ${gen}/rename_${path}.h)
  set_target_properties(eqdrc_path_${path} PROPERTIES POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  list(APPEND EQDRC_PATH_OBJECTS $<TARGET_OBJECTS:eqdrc_path_${path}>)
endforeach()
set(EQDRC_DISPATCH_INCLUDE ${gen})
