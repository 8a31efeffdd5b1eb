/// \file The last step of the fatal path, behind the restart policy.
#include "thread/restart.h"

#include <unistd.h>
#include <csignal>
#include <cstdlib>
#include <ctime>

#if NUV_ENABLE_REBOOT
#include <sys/reboot.h>
#endif

#include "core/kernel.h"
#include "core/signals.h"

namespace {

constexpr unsigned kDefaultRestartDelayMs = 5000;
unsigned restartDelayMs = kDefaultRestartDelayMs;

// The last steps of a dying process: nothing is left to report a failure to.
constexpr const char* kDying = "the process is ending and has nobody left to tell";
constexpr nuv::kernel::Call kNanosleep{"nanosleep", -1, 0, false};
constexpr nuv::kernel::Call kRaise{"raise", -1, 0, false};

// A signal arriving during the wait ends it early, as the device's five-second sleep does.
void WaitForLogToDrain() {
  timespec delay{};
  delay.tv_sec = static_cast<time_t>(restartDelayMs / 1000);
  delay.tv_nsec = static_cast<long>(restartDelayMs % 1000) * 1000000L;
  nuv::kernel::Ignore(
      nuv::kernel::Make(kNanosleep, [&delay] { return nanosleep(&delay, nullptr); }),
      "an interrupted wait ends early, as designed");
}

#if !NUV_ENABLE_REBOOT
bool DefaultActionEndsProcess(int signal) {
  switch (signal) {
    case SIGCHLD:
    case SIGCONT:
    case SIGURG:
    case SIGWINCH:
    case SIGSTOP:
    case SIGTSTP:
    case SIGTTIN:
    case SIGTTOU:
      return false;
    default:
      return signal > 0 && signal < NSIG;
  }
}

// Ends the process so that its parent sees the death: by the signal where it kills, otherwise
// (pseudo-signals of assertions and aborts) by an abnormal exit.
[[noreturn]] void EndProcessWithoutRestart(int signal) {
  if (DefaultActionEndsProcess(signal)) {
    sigset_t none;
    sigemptyset(&none);
    nuv::kernel::Ignore(nuv::signals::Install(signal, SIG_DFL, none, 0, nullptr), kDying);
    nuv::kernel::Ignore(nuv::signals::Mask(SIG_UNBLOCK, nuv::signals::Only(signal), nullptr),
                        kDying);
    nuv::kernel::Ignore(nuv::kernel::Make(kRaise, [signal] { return raise(signal); }), kDying);
  }
  _exit(EXIT_FAILURE);
}
#endif

}  // namespace

namespace nuv {

void SetRestartDelayForTesting(unsigned milliseconds) { restartDelayMs = milliseconds; }

void RestartDevice(int signal) {
  WaitForLogToDrain();
  sync();  // cannot fail
#if NUV_ENABLE_REBOOT
  (void)signal;
  // Should the restart fail, the fatal handler returns, as the device's has always done.
  kernel::Ignore(
      kernel::Make(kernel::Call{"reboot", -1, 0, false}, [] { return reboot(RB_AUTOBOOT); }),
      kDying);
#else
  EndProcessWithoutRestart(signal);
#endif
}

}  // namespace nuv
