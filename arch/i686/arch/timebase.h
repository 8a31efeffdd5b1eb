/// \file i686 stand-in for the time base: the processor's time-stamp counter.
#ifndef NUV_ARCH_I686_TIMEBASE_H
#define NUV_ARCH_I686_TIMEBASE_H

#include <cstdint>

namespace nuv::arch {

/// A free-running 64-bit counter at a constant rate on current processors; no system call.
inline uint64_t ReadTimeBase() {
  uint32_t lower = 0;
  uint32_t upper = 0;
  __asm__ __volatile__("rdtsc" : "=a"(lower), "=d"(upper));
  return (static_cast<uint64_t>(upper) << 32) | lower;
}

}  // namespace nuv::arch

#endif  // NUV_ARCH_I686_TIMEBASE_H
