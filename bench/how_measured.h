/// \file The first line of every benchmark: whether its figures are the processor's own or an
/// emulator's.
#ifndef NUV_BENCH_HOW_MEASURED_H
#define NUV_BENCH_HOW_MEASURED_H

#include <unistd.h>
#include <cstdio>
#include <cstring>

namespace nuv::bench {

/// Prints "measured natively", or "measured under emulation (<emulator>)" when user-mode
/// emulation runs this program (qemu-ppc for the device; qemu-i386 where the kernel refuses
/// 32-bit x86 programs, directly or through binfmt_misc).
inline void PrintHowMeasured() {
  // The emulator answers "/proc/self/exe" with the emulated program's path; the kernel's own
  // link, reached under another spelling, names the program it really runs.
  char exe[256] = {};
  const ssize_t length = readlink("/proc/./self/exe", exe, sizeof exe - 1);
  const char* name = length > 0 ? std::strrchr(exe, '/') : nullptr;
  if (name != nullptr && std::strncmp(name + 1, "qemu-", 5) == 0) {
    std::printf("measured under emulation (%s): figures are the emulator's, not the processor's\n",
                name + 1);
  } else {
    std::printf("measured natively\n");
  }
}

}  // namespace nuv::bench

#endif  // NUV_BENCH_HOW_MEASURED_H
