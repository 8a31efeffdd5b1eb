/// \file PowerPC atomics for lock words and counts: lwarx/stwcx. reservation loops.
#ifndef NUV_ARCH_POWERPC_ATOMIC_H
#define NUV_ARCH_POWERPC_ATOMIC_H

namespace nuv::arch {

/// Stores value and returns the previous word; isync after the loop gives acquire ordering.
inline unsigned ExchangeAcquire(volatile unsigned* word, unsigned value) {
  unsigned previous;
  __asm__ __volatile__(
      "1: lwarx   %0,0,%2\n"
      "   stwcx.  %3,0,%2\n"
      "   bne-    1b\n"
      "   isync\n"
      : "=&r"(previous), "+m"(*word)
      : "r"(word), "r"(value)
      : "cc", "memory");
  return previous;
}

/// lwsync orders every earlier access before the store: release ordering.
inline void StoreRelease(volatile unsigned* word, unsigned value) {
  __asm__ __volatile__("lwsync" : : : "memory");
  *word = value;
}

/// Adds and returns the previous word, ordered after earlier accesses and before later ones.
inline unsigned FetchAdd(volatile unsigned* word, unsigned addend) {
  unsigned previous;
  unsigned sum;
  __asm__ __volatile__(
      "   lwsync\n"
      "1: lwarx   %0,0,%3\n"
      "   add     %1,%0,%4\n"
      "   stwcx.  %1,0,%3\n"
      "   bne-    1b\n"
      "   isync\n"
      : "=&r"(previous), "=&r"(sum), "+m"(*word)
      : "r"(word), "r"(addend)
      : "cc", "memory");
  return previous;
}

}  // namespace nuv::arch

#endif  // NUV_ARCH_POWERPC_ATOMIC_H
