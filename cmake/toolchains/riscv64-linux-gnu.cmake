# SPDX-License-Identifier: MIT
# Builds for 64-bit RISC-V with g++-riscv64-linux-gnu.
set(CMAKE_SYSTEM_PROCESSOR riscv64)
set(RTSPSERVER_TRIPLET riscv64-linux-gnu)
set(RTSPSERVER_QEMU_NAME qemu-riscv64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
