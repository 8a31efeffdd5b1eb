/// \file Lock words and the atomic add, on the processor's reservation or locked instructions.
#include <nuv/assert.h>
#include <nuv/lockword.h>

#include "sync/atomic_arch.h"
#include "sync/word.h"

extern "C" int uptrylock(volatile NuvLock* word) {
  // A held word is always exactly 1, so the flipped previous value is 1 on success, 0 when busy.
  return static_cast<int>(nuv::arch::ExchangeAcquire(word, 1) ^ 1U);
}

extern "C" void uplock(volatile NuvLock* word) {
  while (nuv::arch::ExchangeAcquire(word, 1) != 0) {
  }
}

extern "C" void upunlock(volatile NuvLock* word) { nuv::arch::StoreRelease(word, 0); }

int nuv::lockword::fadd(volatile unsigned* word, int addend) {
  return static_cast<int>(nuv::arch::FetchAdd(word, static_cast<unsigned>(addend)));
}

void upsleeplock(volatile NuvLock* word) { nuv::TakeWord(word); }
