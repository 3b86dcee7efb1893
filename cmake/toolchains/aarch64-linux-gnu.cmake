# SPDX-License-Identifier: MIT
# Builds for 64-bit ARM with Debian's cross compiler (g++-aarch64-linux-gnu), and runs what was
# built under user-mode emulation (qemu-user-static or qemu-user).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)

# RTSPS_EMULATED tells the tests that limits of a few milliseconds do not hold here.
find_program(RTSPSERVER_QEMU NAMES qemu-aarch64-static qemu-aarch64)
if(RTSPSERVER_QEMU)
  set(CMAKE_CROSSCOMPILING_EMULATOR
    ${RTSPSERVER_QEMU} -L /usr/aarch64-linux-gnu -E RTSPS_EMULATED=1)
endif()
