# SPDX-License-Identifier: MIT
# The warnings for every target of this project. RTSPSERVER_WERROR is off by default, so that a new
# warning of a newer compiler does not stop the build of a user.
option(RTSPSERVER_WERROR "Treat warnings as errors, as in the presets of this project" OFF)

add_library(rtspserver_warnings INTERFACE)
target_compile_options(rtspserver_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow
  -Wcast-align -Wcast-qual -Wformat=2 -Wundef
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast>
  $<$<BOOL:${RTSPSERVER_WERROR}>:-Werror>)
# g++ 11 and older report that they ignore [[maybe_unused]] for a data member.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 12)
  target_compile_options(rtspserver_warnings INTERFACE -Wno-attributes)
endif()
