# What makes a mistake in the programs harder to use, in every build; HARBIX_HARDENING=OFF leaves it to the caller's flags.

option(HARBIX_HARDENING "Build with stack protection, checked calls, PIE and read-only relocations" ON)
if(NOT HARBIX_HARDENING)
  return()
endif()

include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)

# The calls of the C library that check sizes: the highest level that this compiler and library know together.
function(harbix_find_fortify_level)
  if(DEFINED HARBIX_FORTIFY_LEVEL)
    return()
  endif()
  set(CMAKE_REQUIRED_FLAGS "-O2 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
  check_cxx_source_compiles("
    #include <features.h>
    #if __USE_FORTIFY_LEVEL < 3
    #error not known
    #endif
    int main() {}" HARBIX_HAS_FORTIFY_3)
  if(HARBIX_HAS_FORTIFY_3)
    set(level 3)
  else()
    set(level 2)
  endif()
  set(HARBIX_FORTIFY_LEVEL ${level} CACHE INTERNAL "Level of the checked calls")
endfunction()

add_compile_options(-fstack-protector-strong)
# Some compilers accept what they then warn that they do not use.
set(CMAKE_REQUIRED_FLAGS -Werror)
foreach(flag -fstack-clash-protection -fcf-protection=full -mbranch-protection=standard)
  string(MAKE_C_IDENTIFIER "HARBIX_HAS${flag}" known)
  check_cxx_compiler_flag(${flag} ${known})
  if(${known})
    add_compile_options(${flag})
  endif()
endforeach()
unset(CMAKE_REQUIRED_FLAGS)
# Whether a whole program is ready for -fcf-protection is left to the linker, which marks it when each of its parts is. It must
# not be told to: the C library's start-up objects of many systems begin without the instruction that the mark promises.
add_compile_definitions(_GLIBCXX_ASSERTIONS)

# Position-independent in the way of programs: what is linked into them need not be replaceable, as it must in a library.
add_compile_options("$<$<NOT:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,MODULE_LIBRARY>>:-fPIE>")
add_link_options("$<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie>" -Wl,-z,relro -Wl,-z,now -Wl,--build-id=sha1)

# The checked calls need an optimizing compiler, and hide calls from the sanitizers, which check more.
if(NOT HARBIX_SANITIZE)
  harbix_find_fortify_level()
  set(optimized "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")
  add_compile_options("$<${optimized}:-U_FORTIFY_SOURCE>" "$<${optimized}:-D_FORTIFY_SOURCE=${HARBIX_FORTIFY_LEVEL}>")
endif()
