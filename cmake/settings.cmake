# What every target of this project shares, and the one way to declare a layer.

option(HARBIX_WERROR "Treat warnings as errors (the presets do; a bare cmake must build with newer compilers)" OFF)
set(HARBIX_SANITIZE "" CACHE STRING "Sanitizers to build with, for example address,undefined")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

add_library(harbix_settings INTERFACE)
target_compile_options(harbix_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wold-style-cast -Wnon-virtual-dtor
  -Woverloaded-virtual -Wextra-semi -Wformat=2
  # Where several files are compiled as one, what is local in one hides what is local in another.
  $<$<NOT:$<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>>:-Wshadow>
  $<$<CXX_COMPILER_ID:GNU>:-Wlogical-op -Wduplicated-cond>
  $<$<BOOL:${HARBIX_WERROR}>:-Werror>)
# 64-bit sizes and offsets on every build, and the GNU names of the system's calls.
target_compile_definitions(harbix_settings INTERFACE _FILE_OFFSET_BITS=64 _GNU_SOURCE)
include(cmake/hardening.cmake)
# The same bytes from every folder: no path of the building machine gets into a program. A compiler cache may turn the
# compiler's paths into relative ones, which are named alike. Nor are the compiler's flags recorded, which may hold such paths.
file(RELATIVE_PATH sources ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
string(REGEX REPLACE "/$" "" sources "${sources}")
add_compile_options(
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=build
  $<$<BOOL:${sources}>:-ffile-prefix-map=${sources}=.> -gno-record-gcc-switches)
# For profilers and backtraces lines are enough. With a debugger the preset "debug" is looked at.
add_compile_options($<$<CONFIG:RelWithDebInfo>:-g1>)
if(HARBIX_SANITIZE)
  # The check of objects' types opens a pipe to see whether memory can be read: where a test leaves no descriptors it takes
  # good objects for bad ones.
  add_compile_options(-fsanitize=${HARBIX_SANITIZE} -fno-sanitize=vptr -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${HARBIX_SANITIZE})
endif()

# Parsed once for all programs, which else spend a third of the time of their building on these. clang-tidy, which does
# without, notices a missing #include of one of them. gcc would warn of what is in them: it forgets that they are the
# system's. The target has no source of its own.
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  file(CONFIGURE OUTPUT headers.cc CONTENT "")
  add_library(precompiled_headers OBJECT ${PROJECT_BINARY_DIR}/headers.cc)
  target_precompile_headers(precompiled_headers PRIVATE
    <algorithm> <filesystem> <functional> <iostream> <map> <memory> <optional> <sstream> <stdexcept> <string> <vector>)
  target_link_libraries(precompiled_headers PRIVATE harbix_settings)
endif()

# harbix_omit_debug_information()
#
# For a folder whose programs stay on developers' machines: nothing is written for debuggers, but in the preset "debug".
macro(harbix_omit_debug_information)
  add_compile_options($<$<CONFIG:RelWithDebInfo>:-g0>)
endmacro()

# harbix_precompile(TARGET...)
function(harbix_precompile)
  if(NOT TARGET precompiled_headers)
    return()
  endif()
  foreach(target ${ARGN})
    target_precompile_headers(${target} REUSE_FROM precompiled_headers)
  endforeach()
endfunction()

# harbix_layer(NAME SOURCES file... [LINKS target...])
#
# Declares the static library harbix::NAME for the current folder, src/NAME. LINKS are the only layers that the folder may
# include from; the test "layers" holds every include against the list kept here.
function(harbix_layer name)
  cmake_parse_arguments(LAYER "" "" "SOURCES;LINKS" ${ARGN})
  add_library(harbix_${name}_layer STATIC ${LAYER_SOURCES})
  add_library(harbix::${name} ALIAS harbix_${name}_layer)
  target_include_directories(harbix_${name}_layer PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(harbix_${name}_layer PUBLIC ${LAYER_LINKS} PRIVATE harbix_settings)
  harbix_precompile(harbix_${name}_layer)
  # One of the builds that every change must pass compiles what goes onto a tablet file by file, so that each file is seen to
  # include what it needs and to hide no name. The others read the headers once for several files.
  if(HARBIX_SANITIZE)
    set_target_properties(harbix_${name}_layer PROPERTIES UNITY_BUILD OFF)
  endif()

  set(allowed ${LAYER_LINKS})
  list(FILTER allowed INCLUDE REGEX "^harbix::")
  list(JOIN allowed " " allowed)
  set_property(GLOBAL APPEND_STRING PROPERTY HARBIX_LAYERS "${name} ${allowed}\n")
endfunction()
