/// \file The library's way to take and give back a lock word, in line on the hot paths.
#ifndef NUV_CORE_WORD_H
#define NUV_CORE_WORD_H

#include <nuv/lockword.h>

#include "arch/atomic.h"

namespace nuv {

/// upsleeplock without the calls: one exchange takes a free word; a busy one is tried again
/// after each 5 ms yield().
inline void TakeWord(volatile NuvLock* word) {
  while (arch::ExchangeAcquire(word, 1) != 0) {
    yield();
  }
}

/// upunlock without the call: a releasing store of 0.
inline void GiveWord(volatile NuvLock* word) { arch::StoreRelease(word, 0); }

}  // namespace nuv

#endif  // NUV_CORE_WORD_H
