# SPDX-License-Identifier: MIT
# How the library is compiled and linked so that a fault in it is hard to exploit. What a compiler
# or a processor does not know is left out.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)

add_library(rtspserver_hardening INTERFACE)
# x86 knows the second one, 64-bit ARM the third.
foreach(flag -fstack-protector-strong -fcf-protection -mbranch-protection=standard)
  string(MAKE_C_IDENTIFIER "RTSPSERVER_HAS${flag}" known)
  check_cxx_compiler_flag(${flag} ${known})
  if(${known})
    target_compile_options(rtspserver_hardening INTERFACE ${flag})
  endif()
endforeach()

# The C library checks lengths in optimised code only, and would hide them from a sanitizer.
if(NOT RTSPSERVER_SANITIZE)
  set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
  check_cxx_source_compiles("#include <string.h>\nint main() {}" RTSPSERVER_HAS_FORTIFY_3)
  unset(CMAKE_REQUIRED_FLAGS)
  target_compile_options(rtspserver_hardening INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE>
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=$<IF:$<BOOL:${RTSPSERVER_HAS_FORTIFY_3}>,3,2>>)
  target_link_options(rtspserver_hardening INTERFACE -Wl,--no-undefined)
endif()
target_link_options(rtspserver_hardening INTERFACE -Wl,-z,relro -Wl,-z,now)
