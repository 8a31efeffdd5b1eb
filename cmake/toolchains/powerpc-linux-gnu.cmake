# The device: 32-bit big-endian PowerPC, Debian's cross compiler; programs run under qemu-ppc.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR powerpc)

set(CMAKE_C_COMPILER powerpc-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER powerpc-linux-gnu-g++)

set(NUV_TARGET_SYSROOT /usr/powerpc-linux-gnu)
set(CMAKE_FIND_ROOT_PATH ${NUV_TARGET_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# User-mode emulation finds the target's loader and libraries under the sysroot.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-ppc -L ${NUV_TARGET_SYSROOT})
