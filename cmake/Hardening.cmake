# SPDX-License-Identifier: MIT
# Compiler and linker options that make a fault in the library hard to exploit. Options that the
# compiler or the processor does not support are left out.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)

add_library(rtspserver_hardening INTERFACE)
# The second option is for x86, the third one for 64-bit ARM. Some compilers only warn about an
# option that they do not support, so warnings are errors in this check.
set(CMAKE_REQUIRED_FLAGS -Werror)
foreach(flag -fstack-protector-strong -fcf-protection -mbranch-protection=standard)
  string(MAKE_C_IDENTIFIER "RTSPSERVER_HAS${flag}" known)
  check_cxx_compiler_flag(${flag} ${known})
  if(${known})
    target_compile_options(rtspserver_hardening INTERFACE ${flag})
  endif()
endforeach()
unset(CMAKE_REQUIRED_FLAGS)

# _FORTIFY_SOURCE works in optimised code only. In a sanitizer build it would hide faults from the
# sanitizer.
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
