/// \file Blocking a process on a semaphore: SIGUSR1 wakes it, SIGALRM ends a timed wait.
#include <nuv/semaphore.h>

#include <sys/time.h>
#include <csignal>
#include <cstdint>

#include "arch/signal_entry.h"
#include "core/assert_at.h"
#include "core/kernel.h"
#include "core/signals.h"
#include "core/word.h"
#include "sync/hand_off.h"

namespace {

// One wait at a time per process; the handler and the waiting flow share these.
volatile sig_atomic_t blhow = 0;
volatile bool blto = false;
NuvSema* volatile blsem = nullptr;
volatile int blthread = 0;
struct sigaction ousr1 {};
struct sigaction oalrm {};
// Set from the blocking of the wait's signals until the wait is over or called off; the mask
// from before it.
bool prepared = false;
sigset_t maskBeforeWait{};

constexpr int64_t kNanosecondsPerMillisecond = 1000000;
constexpr int64_t kNanosecondsPerSecond = 1000000000;
constexpr int32_t kLongestEarlyTimeoutMs = 9;

constexpr nuv::kernel::Call kSetitimer{"setitimer", -1, 0, false};
// sigsuspend returns only when a handler has run, with EINTR: that is its success.
constexpr nuv::kernel::Call kSigsuspend{"sigsuspend", -1, EINTR, false};
constexpr nuv::kernel::Call kKill{"kill", -1, 0, false};

// The wait's own calls cannot fail with the arguments it gives them: their results are not
// looked at, as they never have been.
constexpr const char* kCannotFail = "valid signals, masks and timer values";

void SetTimer(const itimerval& value) {
  nuv::kernel::Ignore(
      nuv::kernel::Make(kSetitimer, [&value] { return setitimer(ITIMER_REAL, &value, nullptr); }),
      kCannotFail);
}

void ArmTimer(int64_t nanoseconds) {
  itimerval once{};
  once.it_value.tv_sec = static_cast<time_t>(nanoseconds / kNanosecondsPerSecond);
  once.it_value.tv_usec = static_cast<suseconds_t>((nanoseconds % kNanosecondsPerSecond) / 1000);
  SetTimer(once);
}

void DisarmTimer() { SetTimer(itimerval{}); }

void Restore(int signal, const struct sigaction& action) {
  nuv::kernel::Ignore(nuv::signals::Restore(signal, action), kCannotFail);
}

void SetMask(int how, const sigset_t& set, sigset_t* previous) {
  nuv::kernel::Ignore(nuv::signals::Mask(how, set, previous), kCannotFail);
}

void ReleaseHeld(volatile NuvLock* held) {
  if (held != nullptr) {
    nuv::GiveWord(held);
  }
}

// A time-out below 10 ms never waits.
bool EarlyTimeout(const NuvTime* timeout) {
  return timeout != nullptr &&
         static_cast<int32_t>(timeout->Nanoseconds() / kNanosecondsPerMillisecond) <=
             kLongestEarlyTimeoutMs;
}

void InstallWaitHandler(int signal, const sigset_t& mask, struct sigaction* previous) {
  nuv::kernel::Ignore(nuv::signals::Install(signal, _bhandler_, mask, 0, previous), kCannotFail);
}

}  // namespace

// Runs in a signal handler: it touches the process's wait state and the semaphore's queue only;
// the interrupted flow is inside sigsuspend and holds no lock word.
NUV_SIGNAL_ENTRY void _bhandler_(int signal) {
  if (signal == SIGALRM) {
    // A V that already dequeued this process leaves nothing to find and the count unchanged.
    if (blsem != nullptr) {
      blsem->clnq(blthread);
    }
    blhow = -1;
  } else {
    blhow = 1;
    if (blto) {
      DisarmTimer();
    }
  }
  if (blto) {
    Restore(SIGALRM, oalrm);
  }
  Restore(SIGUSR1, ousr1);
}

// Steps 2 to 4 of a wait: the wake-up (and time-out) signals blocked, the handlers installed.
void nuv::HandOff::PrepareWait(const NuvTime* timeout) {
  if (prepared || EarlyTimeout(timeout)) {
    return;
  }
  sigset_t waitSignals{};
  sigemptyset(&waitSignals);
  sigaddset(&waitSignals, SIGUSR1);
  if (timeout != nullptr) {
    sigaddset(&waitSignals, SIGALRM);
  }
  SetMask(SIG_BLOCK, waitSignals, &maskBeforeWait);
  blhow = 0;
  InstallWaitHandler(SIGUSR1, waitSignals, &ousr1);
  blto = timeout != nullptr;
  if (blto) {
    InstallWaitHandler(SIGALRM, waitSignals, &oalrm);
  }
  prepared = true;
}

void nuv::HandOff::CancelWait() {
  if (!prepared) {
    return;
  }
  if (blto) {
    Restore(SIGALRM, oalrm);
  }
  Restore(SIGUSR1, ousr1);
  SetMask(SIG_SETMASK, maskBeforeWait, nullptr);
  prepared = false;
}

// One sigsuspend, no loop: another signal's handler ends the wait with 0 and leaves the entry
// queued and the handler installed, so a later V still finds it. Intended, and kept.
int nuv::HandOff::BlockThenWake(NuvSema* sema, NuvTime* timeout, int wakePid,
                                volatile NuvLock* held) {
  if (EarlyTimeout(timeout)) {
    if (sema != nullptr) {
      sema->countM += 1;
      nuv::GiveWord(&sema->lockM);
    }
    ReleaseHeld(held);
    CancelWait();
    Wake(wakePid);
    return -1;
  }
  PrepareWait(timeout);
  blsem = sema;
  if (sema != nullptr) {
    blthread = sema->putq();
    nuv::GiveWord(&sema->lockM);
  }
  ReleaseHeld(held);
  Wake(wakePid);
  if (blto) {
    ArmTimer(timeout->Nanoseconds());
  }
  sigset_t suspendMask = maskBeforeWait;
  sigdelset(&suspendMask, SIGUSR1);
  sigdelset(&suspendMask, SIGALRM);
  nuv::kernel::Ignore(nuv::kernel::Make(kSigsuspend, [&] { return sigsuspend(&suspendMask); }),
                      "a wait ends whichever way blhow records");
  prepared = false;
  SetMask(SIG_SETMASK, maskBeforeWait, nullptr);
  return blhow;
}

int nuv::HandOff::DequeueWaiter(NuvSema* sema) {
  const int pid = sema->getq();
  nuv::GiveWord(&sema->lockM);
  NUV_ASSERT_AT(pid >= 1, 500, "_unblock_");
  return pid;
}

// kill's result is the V's result; a waiter that died meanwhile is not woken.
int nuv::HandOff::Wake(int pid) {
  return pid != 0 ? static_cast<int>(
                        nuv::kernel::Make(kKill, [pid] { return kill(pid, SIGUSR1); }).value)
                  : 0;
}

int _block_(NuvSema* sema, NuvTime* timeout) {
  return nuv::HandOff::BlockThenWake(sema, timeout, 0);
}

int _unblock_(NuvSema* sema) { return nuv::HandOff::Wake(nuv::HandOff::DequeueWaiter(sema)); }
