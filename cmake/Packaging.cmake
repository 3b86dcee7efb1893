# SPDX-License-Identifier: MIT
# The Debian packages, which scripts/package builds and checks. The symbols file determines on which
# version of the library the package of a host depends.
set(RTSPSERVER_MAINTAINER "Unnamed packager <packager@rtspserver.invalid>" CACHE STRING
  "Maintainer of the Debian packages: NAME <ADDRESS>. Set it before you distribute them")
# CPack has no variable for Multi-Arch before CMake 3.31. It writes this one unchanged into each package,
# so that packages for several processors can be installed at the same time.
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${RTSPSERVER_MAINTAINER}\nMulti-Arch: same")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "${RTSPSERVER_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development symbols)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME librtspserver1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# CPack always adds scripts that call ldconfig. Debian requires the trigger instead.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/cmake/debian/symbols ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION}
A host application loads it, declares its streams and pushes RTP packets;
players fetch them over UDP, TCP or interleaved.")
if(CMAKE_CROSSCOMPILING)
  # In a cross build, CPack would use the architecture of the build machine, and dpkg-shlibdeps would
  # find the names of the cross packages. So both are set here. scripts/package compares these
  # dependencies with the versions of the symbols that the library needs.
  set(debian_name_of_aarch64 arm64)
  set(debian_name_of_armv7l armhf)
  set(debian_name_of_riscv64 riscv64)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${debian_name_of_${CMAKE_SYSTEM_PROCESSOR}})
  set(libgcc_version 3.0)
  if(CPACK_DEBIAN_PACKAGE_ARCHITECTURE STREQUAL armhf)
    set(libgcc_version 3.5)  # unwinding on 32-bit ARM
  endif()
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS
    "libc6 (>= 2.34), libgcc-s1 (>= ${libgcc_version}), libstdc++6 (>= 11)")
else()
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
endif()

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME librtspserver-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "librtspserver1 (= ${PROJECT_VERSION}), libc6-dev | libc-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${PROJECT_DESCRIPTION} (development files)
Headers, manual pages, the static library, and the files that CMake and
pkg-config read.")

set(CPACK_DEBIAN_SYMBOLS_PACKAGE_NAME librtspserver1-dbgsym)
set(CPACK_DEBIAN_SYMBOLS_PACKAGE_SECTION debug)
set(CPACK_DEBIAN_SYMBOLS_PACKAGE_DEPENDS "librtspserver1 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_SYMBOLS_DESCRIPTION "debug symbols for librtspserver1")

# What only the packages contain; a plain installation excludes it.
set(debian_changelog ${PROJECT_BINARY_DIR}/debian/changelog)
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  string(TIMESTAMP RTSPSERVER_DEBIAN_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
else()
  # Packages for different processors share the file, so it cannot hold the time of the build.
  file(TIMESTAMP CHANGELOG.md RTSPSERVER_DEBIAN_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
endif()
configure_file(cmake/debian/changelog.in ${debian_changelog})
foreach(component runtime development symbols)
  install(CODE "
    set(changelog \"${debian_changelog}\")
    set(library \"$<TARGET_FILE:rtspserver>\")
    set(objcopy \"${CMAKE_OBJCOPY}\")
    set(readelf \"${CMAKE_READELF}\")
    include(\"${PROJECT_SOURCE_DIR}/cmake/debian/install_extras.cmake\")"
    COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

include(CPack)
