# SPDX-License-Identifier: MIT
# Cross build for 32-bit ARM (Debian armhf: ARMv7, VFPv3-D16, Thumb-2) with
# Debian's cross compilers and multiarch libraries; test programs run under
# qemu-user. The baseline has no NEON: only the NEON kernel file is built
# with -mfpu=neon, and used when the CPU reports it.
set(SKELDA_TARGET_TRIPLET arm-linux-gnueabihf)
set(SKELDA_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/cross-debian.cmake)
