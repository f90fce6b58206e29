# SPDX-License-Identifier: MIT
# What the Debian cross toolchain files share. They set
# SKELDA_TARGET_TRIPLET (the GNU triplet, also the multiarch directory) and
# SKELDA_QEMU (the qemu-user program for the target) before including this.
set(CMAKE_SYSTEM_NAME Linux)
if(SKELDA_TARGET_TRIPLET MATCHES "^aarch64")
  set(CMAKE_SYSTEM_PROCESSOR aarch64)
else()
  set(CMAKE_SYSTEM_PROCESSOR arm)
endif()

set(CMAKE_C_COMPILER ${SKELDA_TARGET_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${SKELDA_TARGET_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${SKELDA_TARGET_TRIPLET})

# Programs (compilers, pkg-config, bash) from the build machine; libraries
# and headers are the target's multiarch packages under /usr.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

# pkg-config reads the target's .pc files only.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/${SKELDA_TARGET_TRIPLET}/pkgconfig:/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# Test programs and tools built here run under qemu-user. The target's
# libraries come from its multiarch packages, which bring the target's own C
# library and loader (/lib/<triplet>); qemu is not pointed at the cross
# compiler's copy in /usr/<triplet> (-L): that one is another build of glibc,
# and its loader with the multiarch libc breaks as soon as a thread starts.
find_program(SKELDA_QEMU_PROGRAM ${SKELDA_QEMU})
if(NOT SKELDA_QEMU_PROGRAM)
  set(SKELDA_QEMU_PROGRAM ${SKELDA_QEMU})
endif()
set(CMAKE_CROSSCOMPILING_EMULATOR ${SKELDA_QEMU_PROGRAM})
