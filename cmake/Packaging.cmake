# SPDX-License-Identifier: MIT
# The Debian packages, which scripts/package builds and checks. The symbols file determines on which
# version of the library the package of a host depends.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The rtspserver authors <maintainers@rtspserver.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)  # and with it the scripts that call ldconfig
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME librtspserver1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/symbols)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION}
A host application loads it, declares its streams and pushes RTP packets;
players fetch them over UDP, TCP or interleaved.")
if(CMAKE_CROSSCOMPILING)
  # In a cross build, CPack would use the architecture of the build machine, and dpkg-shlibdeps would
  # find the names of the cross packages. So both are set here. scripts/package compares these
  # dependencies with those that dpkg-shlibdeps finds in a native build.
  string(REPLACE aarch64 arm64 CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${CMAKE_SYSTEM_PROCESSOR})
  string(REPLACE armv7l armhf CPACK_DEBIAN_PACKAGE_ARCHITECTURE
    ${CPACK_DEBIAN_PACKAGE_ARCHITECTURE})
  set(libgcc 3.0)
  if(CPACK_DEBIAN_PACKAGE_ARCHITECTURE STREQUAL armhf)
    set(libgcc 3.5)
  endif()
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS
    "libc6 (>= 2.34), libgcc-s1 (>= ${libgcc}), libstdc++6 (>= 11)")
else()
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
endif()

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME librtspserver-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "librtspserver1 (= ${PROJECT_VERSION}), libc6-dev | libc-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${PROJECT_DESCRIPTION} (development files)
Headers, the static library, and the files that CMake and pkg-config read.")

include(CPack)
