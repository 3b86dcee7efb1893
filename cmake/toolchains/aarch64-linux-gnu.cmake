# SPDX-License-Identifier: MIT
# Builds for 64-bit ARM with g++-aarch64-linux-gnu.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(RTSPSERVER_TRIPLET aarch64-linux-gnu)
set(RTSPSERVER_QEMU_NAME qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
