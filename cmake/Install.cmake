# SPDX-License-Identifier: MIT
# The component "runtime" has the files that a host needs to run, "development" those to build it.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/rtspserver)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS rtspserver EXPORT rtspserver
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
  NAMELINK_COMPONENT development)
if(RTSPSERVER_BUILD_STATIC)
  install(TARGETS rtspserver_static EXPORT rtspserver
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  # CMake strips programs and shared libraries only.
  install(CODE "if(CMAKE_INSTALL_DO_STRIP)
    execute_process(COMMAND ${CMAKE_STRIP} --strip-debug --enable-deterministic-archives
      \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/librtspserver.a
      COMMAND_ERROR_IS_FATAL ANY)
  endif()" COMPONENT development)
endif()
install(FILES include/rtsps_server_api.h include/cbb.h include/mempool.h include/rtp_random.h
  DESTINATION ${RTSPSERVER_INSTALL_INCLUDEDIR} COMPONENT development)

install(EXPORT rtspserver NAMESPACE rtspserver:: FILE rtspserver-targets.cmake
  DESTINATION ${config_dir} COMPONENT development)
configure_package_config_file(cmake/rtspserver-config.cmake.in rtspserver-config.cmake
  INSTALL_DESTINATION ${config_dir}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(rtspserver-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/rtspserver-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/rtspserver-config-version.cmake
  DESTINATION ${config_dir} COMPONENT development)

if(RTSPSERVER_BUILD_MAN)
  include(cmake/ManPages.cmake)
endif()

list(TRANSFORM RTSPSERVER_TIME64_DEFINITIONS PREPEND " -D" OUTPUT_VARIABLE RTSPSERVER_PC_DEFINITIONS)
list(JOIN RTSPSERVER_PC_DEFINITIONS "" RTSPSERVER_PC_DEFINITIONS)
# An installed tree may be moved, so the file finds the prefix from its own place. Trees in /usr are not
# moved: there it holds plain paths, which pkg-config puts after a sysroot when a host is cross-built.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(RTSPSERVER_PC_PREFIX /usr)
else()
  file(RELATIVE_PATH to_prefix /${pkgconfig_dir} /)
  set(RTSPSERVER_PC_PREFIX "\${pcfiledir}/${to_prefix}")
endif()
configure_file(cmake/rtspserver.pc.in rtspserver.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/rtspserver.pc
  DESTINATION ${pkgconfig_dir} COMPONENT development)

install(FILES LICENSE RENAME copyright COMPONENT runtime
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/librtspserver1)
