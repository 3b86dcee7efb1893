# SPDX-License-Identifier: MIT
# Installs what only the Debian packages contain: the changelog, and the debug symbols in a file named
# after the build id, where debuggers look for it.
set(root $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX})
set(doc ${root}/share/doc)

if(CMAKE_INSTALL_COMPONENT STREQUAL "runtime")
  execute_process(COMMAND gzip --best --no-name --stdout INPUT_FILE ${changelog}
    OUTPUT_FILE ${doc}/librtspserver1/changelog.gz COMMAND_ERROR_IS_FATAL ANY)
  return()
endif()

# The other packages depend on exactly this version of librtspserver1 and share its folder.
file(MAKE_DIRECTORY ${doc})
if(CMAKE_INSTALL_COMPONENT STREQUAL "development")
  file(CREATE_LINK librtspserver1 ${doc}/librtspserver-dev SYMBOLIC)
  return()
endif()
file(CREATE_LINK librtspserver1 ${doc}/librtspserver1-dbgsym SYMBOLIC)

execute_process(COMMAND ${readelf} --notes ${library}
  OUTPUT_VARIABLE notes COMMAND_ERROR_IS_FATAL ANY)
if(NOT notes MATCHES "Build ID: ([0-9a-f][0-9a-f])([0-9a-f]+)")
  message(FATAL_ERROR "${library} has no build id")
endif()
set(folder ${root}/lib/debug/.build-id/${CMAKE_MATCH_1})
set(file ${folder}/${CMAKE_MATCH_2}.debug)
file(MAKE_DIRECTORY ${folder})
execute_process(COMMAND ${objcopy} --only-keep-debug --compress-debug-sections ${library} ${file}
  COMMAND_ERROR_IS_FATAL ANY)
file(CHMOD ${file} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
