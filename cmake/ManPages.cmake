# SPDX-License-Identifier: MIT
# The manual pages of the public functions, generated from the comments of the header.
find_package(Doxygen REQUIRED)
find_package(Python3 REQUIRED COMPONENTS Interpreter)
find_program(RTSPSERVER_GZIP gzip REQUIRED)

set(man_dir ${PROJECT_BINARY_DIR}/man)
file(READ include/rtsps_server_api.h header)
string(REGEX MATCHALL "RTSPS_EXPORT int32_t [A-Za-z_]+" functions "${header}")
list(TRANSFORM functions REPLACE ".* (.+)" "${man_dir}/\\1.3" OUTPUT_VARIABLE man_pages)
list(TRANSFORM man_pages APPEND .gz OUTPUT_VARIABLE packed_man_pages)
file(TIMESTAMP include/rtsps_server_api.h man_date %Y-%m-%d UTC)
configure_file(cmake/man_pages.doxyfile.in ${man_dir}/doxyfile @ONLY)

add_custom_command(OUTPUT ${packed_man_pages}
  COMMAND Doxygen::doxygen ${man_dir}/doxyfile
  COMMAND Python3::Interpreter -B ${PROJECT_SOURCE_DIR}/cmake/man_pages.py
    ${man_dir}/xml/rtsps__server__api_8h.xml ${man_dir} ${PROJECT_VERSION} ${man_date}
  COMMAND ${RTSPSERVER_GZIP} --force --best --no-name ${man_pages}
  DEPENDS include/rtsps_server_api.h cmake/man_pages.py ${man_dir}/doxyfile
  COMMENT "Generating the manual pages"
  VERBATIM)
add_custom_target(rtspserver_man_pages ALL DEPENDS ${packed_man_pages})
install(FILES ${packed_man_pages} COMPONENT development
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
