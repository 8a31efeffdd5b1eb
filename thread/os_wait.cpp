/// \file Reaping thread processes: Wait with its time-out, and the child-exit reporter.
#include <nuv/os_thread.h>

#include <sys/time.h>
#include <sys/wait.h>
#include <cerrno>
#include <csignal>
#include <cstdio>

#include "arch/signal_entry.h"
#include "core/kernel.h"
#include "core/signals.h"

int reportThread = 0;

namespace {

sigjmp_buf waitTimedOut;
// Set by Wait's own waitpid as soon as it returns: a time-out that fires after that point must
// not hide the status of a child that was reaped.
volatile sig_atomic_t reaped = 0;
volatile int reapedStatus = 0;

constexpr long kNanosecondsPerMillisecond = 1000000;
constexpr long kNanosecondsPerSecond = 1000000000;
constexpr int kStoppedChild = 0x7f;
constexpr int kSignalBits = 0x7f;

constexpr nuv::kernel::Call kSetitimer{"setitimer", -1, 0, false};
// A handler that interrupts the wait does not end it; the time-out leaves it by a jump.
constexpr nuv::kernel::Call kWaitpid{"waitpid", -1, 0, true};
constexpr nuv::kernel::Call kWait{"wait", -1, 0, false};
constexpr const char* kValidAction = "a valid signal, action and timer value";

void InstallForAlarm(void (*handler)(int), int flags) {
  sigset_t none;
  sigemptyset(&none);
  nuv::kernel::Ignore(nuv::signals::Install(SIGALRM, handler, none, flags, nullptr), kValidAction);
}

void SetTimer(const itimerval& value) {
  nuv::kernel::Ignore(
      nuv::kernel::Make(kSetitimer, [&value] { return setitimer(ITIMER_REAL, &value, nullptr); }),
      kValidAction);
}

void ArmOnce(long long nanoseconds) {
  itimerval once{};
  once.it_value.tv_sec = static_cast<time_t>(nanoseconds / kNanosecondsPerSecond);
  once.it_value.tv_usec = static_cast<suseconds_t>((nanoseconds % kNanosecondsPerSecond) / 1000);
  SetTimer(once);
}

// Thread processes ignore SIGALRM outside their waits: what Wait leaves behind.
void LeaveAlarmIgnored() {
  SetTimer(itimerval{});
  InstallForAlarm(SIG_IGN, 0);
}

int Reap(int pid) {
  int status = 0;
  const nuv::kernel::Result result = nuv::kernel::Make(kWaitpid, [pid, &status] {
    const pid_t value = waitpid(pid, &status, 0);
    if (value >= 0 || errno != EINTR) {
      reapedStatus = value < 0 ? NuvOsThread::kWaitFailed : status;
      reaped = 1;
    }
    return value;
  });
  return result.Failed() ? NuvOsThread::kWaitFailed : status;
}

int ReapWithTimeOut(int pid, long long nanoseconds) {
  reaped = 0;
  InstallForAlarm(WaitHandler, SA_RESETHAND);
  // NOLINTNEXTLINE(cert-err52-cpp): the time-out leaves waitpid by a jump, by design.
  if (sigsetjmp(waitTimedOut, 1) != 0) {
    LeaveAlarmIgnored();
    return reaped != 0 ? reapedStatus : NuvOsThread::kWaitTimedOut;
  }
  ArmOnce(nanoseconds);
  const int status = Reap(pid);
  LeaveAlarmIgnored();
  return status;
}

}  // namespace

NUV_SIGNAL_ENTRY void WaitHandler(int /*signal*/) { siglongjmp(waitTimedOut, 1); }

// Below one millisecond, a time-out waits without limit.
int NuvOsThread::Wait(int pid, NuvTime* timeout) {
  if (timeout != nullptr && timeout->Nanoseconds() / kNanosecondsPerMillisecond > 0) {
    return ReapWithTimeOut(pid, timeout->Nanoseconds());
  }
  return Reap(pid);
}

// Runs as a SIGCHLD handler: one child reaped per call, reported on standard error.
NUV_SIGNAL_ENTRY void _threadevent_(int /*signal*/) {
  int status = 0;
  const nuv::kernel::Result reapedChild =
      nuv::kernel::Make(kWait, [&status] { return wait(&status); });
  if (reportThread == 0) {
    return;
  }
  const auto pid = static_cast<int>(reapedChild.value);
  const int low = status & kSignalBits;
  if (low == kStoppedChild) {
    fprintf(stderr, "thread %d died (strange)\n", pid);
  } else if (low != 0) {
    fprintf(stderr, "thread %d died with status (signal %d)\n", pid, low);
  } else if (WEXITSTATUS(status) != 0) {
    fprintf(stderr, "thread %d died with status (normal %d)\n", pid, WEXITSTATUS(status));
  }
}
