/// \file Lock words: one 32-bit word in shared memory, 0 free and 1 held, and the atomic add.
#ifndef NUV_LOCKWORD_H
#define NUV_LOCKWORD_H

/// A lock word. It lives in a pool beside the data it guards and starts at 0; it records no
/// owner, so any process may release it, and it is not recursive.
using NuvLock = unsigned;

extern "C" {
/// Exchanges the word with 1: returns 1 when the caller now holds it, 0 when it was held.
/// The word is 1 afterwards either way. Acquire ordering when it returns 1.
int uptrylock(volatile NuvLock* word);
/// Exchanges the word with 1 until it was 0. A pure busy-wait, for callers outside the
/// library; the library itself always takes words with upsleeplock().
void uplock(volatile NuvLock* word);
/// Stores 0 into the word with release ordering. No check that it was held.
void upunlock(volatile NuvLock* word);
}

namespace nuv::lockword {
// The C library's <math.h> declares a C function fadd(double, double) under g++'s default
// _GNU_SOURCE. Declaring ours with C linkage would clash with it in any translation unit that
// also includes <cmath>, so the C++ declaration has C++ linkage in this namespace and binds to
// the unmangled symbol "fadd" by name; the using-declaration below makes both overloads
// callable as ::fadd.
int fadd(volatile unsigned* word, int addend) __asm__("fadd");
}  // namespace nuv::lockword

/// Atomic fetch-and-add on a 32-bit word (wraps modulo 2^32); returns the value before the
/// addition. Exported under the C symbol name "fadd".
using nuv::lockword::fadd;

/// Sleeps 5 ms with nanosleep (an interrupted sleep is not resumed); returns nanosleep's result.
/// The back-off between tries of every lock word.
int yield();

/// The library's acquisition policy: uptrylock(), and after every failed try sleep 5 ms with
/// yield() before trying again. Never spins without sleeping.
void upsleeplock(volatile NuvLock* word);

#endif  // NUV_LOCKWORD_H
