# SPDX-License-Identifier: MIT
# How the library is compiled and linked so that a fault in it is hard to exploit. What a compiler
# or a processor does not know is left out.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)

add_library(rtspserver_hardening INTERFACE)
# x86 knows the second one, 64-bit ARM the third. Where a compiler only warns, it does not know it.
set(CMAKE_REQUIRED_FLAGS -Werror)
foreach(flag -fstack-protector-strong -fcf-protection -mbranch-protection=standard)
  string(MAKE_C_IDENTIFIER "RTSPSERVER_HAS${flag}" known)
  check_cxx_compiler_flag(${flag} ${known})
  if(${known})
    target_compile_options(rtspserver_hardening INTERFACE ${flag})
  endif()
endforeach()
unset(CMAKE_REQUIRED_FLAGS)

# The C library checks lengths in optimised code only, and would hide them from a sanitizer.
if(NOT RTSPSERVER_SANITIZE)
  set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
  check_cxx_source_compiles("#include <string.h>\nint main() {}" RTSPSERVER_HAS_FORTIFY_3)
  unset(CMAKE_REQUIRED_FLAGS)
  set(level $<IF:$<BOOL:${RTSPSERVER_HAS_FORTIFY_3}>,3,2>)
  set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
  target_compile_options(rtspserver_hardening INTERFACE
    $<${optimised}:-U_FORTIFY_SOURCE> $<${optimised}:-D_FORTIFY_SOURCE=${level}>)
  target_link_options(rtspserver_hardening INTERFACE -Wl,--no-undefined)
endif()
target_link_options(rtspserver_hardening INTERFACE -Wl,-z,relro -Wl,-z,now)
