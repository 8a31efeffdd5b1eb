# The workstation: 32-bit x86 (ILP32), Debian's cross compiler. Programs run natively where the
# kernel runs 32-bit x86 programs, and under qemu-i386 where it refuses them.
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

# How this machine runs i686 programs, found at each configure by running a tiny static one:
# "native" (the kernel runs it), "binfmt" (the kernel hands it to qemu-i386 through binfmt_misc)
# or "emulator" (the kernel refuses it with "Exec format error": every program, tests and the
# programs they start included, runs under qemu-i386). NUV_HOST_FORCE_EMULATOR chooses the last
# anywhere. The finding is kept in the cache as NUV_HOST_RUN for the build and the scripts.
option(NUV_HOST_FORCE_EMULATOR "Run i686 programs under qemu-i386 even where the kernel runs them"
       OFF)
if(NUV_HOST_FORCE_EMULATOR)
  set(_nuv_run emulator)
  message(STATUS "i686 programs run here: emulator (NUV_HOST_FORCE_EMULATOR)")
elseif(DEFINED NUV_HOST_RUN_FOUND)
  set(_nuv_run ${NUV_HOST_RUN_FOUND})  # a check build inside this configure: already found
else()
  set(_nuv_probe_dir ${CMAKE_BINARY_DIR}/CMakeFiles/nuv-i686-probe)
  file(WRITE ${_nuv_probe_dir}/probe.c "int main(void) { return 0; }\n")
  execute_process(COMMAND ${CMAKE_C_COMPILER} -static ${_nuv_probe_dir}/probe.c
                          -o ${_nuv_probe_dir}/probe
                  RESULT_VARIABLE _nuv_probe_built OUTPUT_QUIET ERROR_QUIET)
  execute_process(COMMAND ${_nuv_probe_dir}/probe
                  RESULT_VARIABLE _nuv_probe_ran OUTPUT_QUIET ERROR_QUIET)
  if(NOT _nuv_probe_built EQUAL 0)
    set(_nuv_run native)  # no compiler yet: the compiler check says so more clearly
  elseif(NOT _nuv_probe_ran EQUAL 0)
    set(_nuv_run emulator)
  else()
    set(_nuv_run native)
    file(GLOB _nuv_binfmts /proc/sys/fs/binfmt_misc/*)
    foreach(_nuv_binfmt IN LISTS _nuv_binfmts)
      file(READ ${_nuv_binfmt} _nuv_entry)
      # An enabled entry for 32-bit little-endian x86 ELF takes precedence over the kernel's own.
      if(_nuv_entry MATCHES "^enabled\n" AND _nuv_entry MATCHES "magic 7f454c46010101[0-9a-f]*0300")
        set(_nuv_run binfmt)
      endif()
    endforeach()
  endif()
  message(STATUS "i686 programs run here: ${_nuv_run}")
endif()
set(NUV_HOST_RUN_FOUND ${_nuv_run})
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES NUV_HOST_RUN_FOUND)
set(NUV_HOST_RUN ${_nuv_run} CACHE INTERNAL "How i686 programs run here: native, binfmt or emulator")

if(NUV_HOST_RUN STREQUAL "emulator")
  find_program(NUV_QEMU_I386 qemu-i386)
  if(NOT NUV_QEMU_I386)
    message(FATAL_ERROR "This kernel refuses i686 programs, and qemu-i386 is not installed: "
                        "install Debian's qemu-user (scripts/test.sh does so).")
  endif()
  set(CMAKE_CROSSCOMPILING_EMULATOR ${NUV_QEMU_I386})
else()
  set(CMAKE_CROSSCOMPILING_EMULATOR "")
endif()
