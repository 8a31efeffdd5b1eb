/// \file Lock words, the atomic add and yield, the back-off between tries of a lock word.
#include <nuv/lockword.h>

#include <ctime>

#include "arch/atomic.h"
#include "core/kernel.h"
#include "core/word.h"

namespace {

constexpr long kYieldNanoseconds = 5000000;
constexpr nuv::kernel::Call kNanosleep{"nanosleep", -1, 0, false};

}  // namespace

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

// The remainder is not asked for: an interrupted sleep is not resumed.
int yield() {
  timespec pause{};
  pause.tv_nsec = kYieldNanoseconds;
  return static_cast<int>(
      nuv::kernel::Make(kNanosleep, [&pause] { return nanosleep(&pause, nullptr); }).value);
}
