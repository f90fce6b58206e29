# SPDX-License-Identifier: MIT
# Cross build for 64-bit ARM (Debian arm64) with Debian's cross compilers
# and multiarch libraries; test programs run under qemu-user, so plain
# `ctest` works in the build tree. See tools/install_cross_deps.sh.
set(SKELDA_TARGET_TRIPLET aarch64-linux-gnu)
set(SKELDA_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/cross-debian.cmake)
