/// \file The last step of the fatal path, behind the restart policy.
#include "thread/restart.h"

#include <unistd.h>
#include <csignal>
#include <cstdlib>
#include <ctime>

#if NUV_ENABLE_REBOOT
#include <sys/reboot.h>
#endif

namespace {

constexpr unsigned kDefaultRestartDelayMs = 5000;
unsigned restartDelayMs = kDefaultRestartDelayMs;

// A signal arriving during the wait ends it early, as the device's five-second sleep does.
void WaitForLogToDrain() {
  timespec delay{};
  delay.tv_sec = static_cast<time_t>(restartDelayMs / 1000);
  delay.tv_nsec = static_cast<long>(restartDelayMs % 1000) * 1000000L;
  nanosleep(&delay, nullptr);
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
    struct sigaction defaultAction {};
    defaultAction.sa_handler = SIG_DFL;
    sigemptyset(&defaultAction.sa_mask);
    sigaction(signal, &defaultAction, nullptr);
    sigset_t only{};
    sigemptyset(&only);
    sigaddset(&only, signal);
    sigprocmask(SIG_UNBLOCK, &only, nullptr);
    raise(signal);
  }
  _exit(EXIT_FAILURE);
}
#endif

}  // namespace

namespace nuv {

void SetRestartDelayForTesting(unsigned milliseconds) { restartDelayMs = milliseconds; }

void RestartDevice(int signal) {
  WaitForLogToDrain();
  sync();
#if NUV_ENABLE_REBOOT
  (void)signal;
  reboot(RB_AUTOBOOT);
#else
  EndProcessWithoutRestart(signal);
#endif
}

}  // namespace nuv
