# The workstation: 32-bit x86 (ILP32), Debian's cross compiler; programs run natively.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)

set(CMAKE_C_COMPILER i686-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER i686-linux-gnu-g++)

set(NUV_TARGET_SYSROOT /usr/i686-linux-gnu)
set(CMAKE_FIND_ROOT_PATH ${NUV_TARGET_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# Programs run on the 64-bit workstation without an i386 system: point them at the
# cross sysroot's loader and libraries.
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-Wl,--dynamic-linker=${NUV_TARGET_SYSROOT}/lib/ld-linux.so.2 -Wl,-rpath,${NUV_TARGET_SYSROOT}/lib")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,-rpath,${NUV_TARGET_SYSROOT}/lib")
set(CMAKE_CROSSCOMPILING_EMULATOR "")
