/// \file i686 atomics for lock words and counts: xchg and lock xadd.
#ifndef NUV_ARCH_I686_ATOMIC_H
#define NUV_ARCH_I686_ATOMIC_H

namespace nuv::arch {

/// xchg with memory is locked and fully ordered, acquire included.
// NOLINTNEXTLINE(readability-non-const-parameter): the instruction writes the word.
inline unsigned ExchangeAcquire(volatile unsigned* word, unsigned value) {
  __asm__ __volatile__("xchgl %0,%1" : "+r"(value), "+m"(*word) : : "memory");
  return value;
}

/// x86 stores are not reordered with earlier accesses: a compiler barrier gives release.
inline void StoreRelease(volatile unsigned* word, unsigned value) {
  __asm__ __volatile__("" : : : "memory");
  *word = value;
}

/// Adds and returns the previous word; lock xadd is fully ordered.
// NOLINTNEXTLINE(readability-non-const-parameter): the instruction writes the word.
inline unsigned FetchAdd(volatile unsigned* word, unsigned addend) {
  __asm__ __volatile__("lock; xaddl %0,%1" : "+r"(addend), "+m"(*word) : : "cc", "memory");
  return addend;
}

}  // namespace nuv::arch

#endif  // NUV_ARCH_I686_ATOMIC_H
