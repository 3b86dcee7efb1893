# SPDX-License-Identifier: MIT
# RTSPSERVER_SANITIZE instruments everything in the build, tests included.
if(RTSPSERVER_SANITIZE)
  add_compile_options(-fsanitize=${RTSPSERVER_SANITIZE} -fno-sanitize-recover=all
    -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=${RTSPSERVER_SANITIZE})
endif()
