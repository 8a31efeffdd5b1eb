/// \file PowerPC time base: the user-readable registers TBU (SPR 269) and TBL (SPR 268).
#ifndef NUV_ARCH_POWERPC_TIMEBASE_H
#define NUV_ARCH_POWERPC_TIMEBASE_H

#include <cstdint>

namespace nuv::arch {

/// Upper word first. A carry from the lower into the upper word between the two reads is not
/// retried: the rare reading that is off by 2^32 is accepted.
inline uint64_t ReadTimeBase() {
  uint32_t upper = 0;
  uint32_t lower = 0;
  __asm__ __volatile__(
      "mfspr %0,269\n"
      "mfspr %1,268\n"
      : "=r"(upper), "=r"(lower));
  return (static_cast<uint64_t>(upper) << 32) | lower;
}

}  // namespace nuv::arch

#endif  // NUV_ARCH_POWERPC_TIMEBASE_H
