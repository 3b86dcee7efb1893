# SPDX-License-Identifier: MIT
# The library uses 64 bits for times, so that it works after the year 2038. On 32-bit processors the
# C library needs definitions for that: RTSPSERVER_TIME64_DEFINITIONS. Hosts must be compiled with
# them, too, because CBB_Select and CBB_SelectEx take a timeval.
include(CheckCXXSourceCompiles)

set(RTSPSERVER_TIME64_DEFINITIONS)
set(check "#include <ctime>\nstatic_assert(sizeof(time_t) >= 8, \"\");\nint main() {}")
check_cxx_source_compiles("${check}" RTSPSERVER_HAS_TIME64)
if(NOT RTSPSERVER_HAS_TIME64)
  set(CMAKE_REQUIRED_DEFINITIONS -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64)
  check_cxx_source_compiles("${check}" RTSPSERVER_HAS_TIME64_ON_REQUEST)
  unset(CMAKE_REQUIRED_DEFINITIONS)
  if(RTSPSERVER_HAS_TIME64_ON_REQUEST)
    set(RTSPSERVER_TIME64_DEFINITIONS _TIME_BITS=64 _FILE_OFFSET_BITS=64)
  else()
    message(WARNING "This C library counts time in 32 bits: the library will not work after 2038")
  endif()
endif()
