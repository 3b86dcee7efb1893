# SPDX-License-Identifier: MIT
# Builds for 32-bit ARM (ARMv7 with hardware floating point) with g++-arm-linux-gnueabihf.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(RTSPSERVER_TRIPLET arm-linux-gnueabihf)
set(RTSPSERVER_QEMU_NAME qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
