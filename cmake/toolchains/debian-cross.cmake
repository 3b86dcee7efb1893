# SPDX-License-Identifier: MIT
# The common part of the toolchain files. It takes Debian's cross compiler for RTSPSERVER_TRIPLET and
# runs the built programs under user-mode emulation (qemu-user-static or qemu-user).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${RTSPSERVER_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${RTSPSERVER_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${RTSPSERVER_TRIPLET})

set(CMAKE_FIND_ROOT_PATH /usr/${RTSPSERVER_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)

# RTSPS_EMULATED tells the tests that limits of a few milliseconds do not hold under emulation.
find_program(RTSPSERVER_QEMU NAMES ${RTSPSERVER_QEMU_NAME}-static ${RTSPSERVER_QEMU_NAME})
if(RTSPSERVER_QEMU)
  set(CMAKE_CROSSCOMPILING_EMULATOR
    ${RTSPSERVER_QEMU} -L /usr/${RTSPSERVER_TRIPLET} -E RTSPS_EMULATED=1)
endif()
