# SPDX-License-Identifier: MIT
# Warnings that every target of this project is built with.
option(RTSPSERVER_WERROR "Treat warnings as errors" ${RTSPSERVER_TOP_LEVEL})

add_library(rtspserver_warnings INTERFACE)
target_compile_options(rtspserver_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow
  -Wcast-align -Wcast-qual -Wformat=2 -Wundef
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast>
  $<$<BOOL:${RTSPSERVER_WERROR}>:-Werror>)
