/// \file The floor under every hand-off of the library: two processes that wake each other with
/// a bare kill and sigsuspend, nothing else.
#ifndef NUV_BENCH_SIGNAL_FLOOR_H
#define NUV_BENCH_SIGNAL_FLOOR_H

#include <sys/wait.h>
#include <unistd.h>
#include <csignal>

#include "bench/shared_pool.h"

namespace nuv::bench {

/// SIGUSR2 stays blocked outside sigsuspend and is caught by a handler that does nothing; the
/// other process answers each signal with one of its own.
class SignalPingPong {
 public:
  SignalPingPong() {
    struct sigaction action {};
    action.sa_handler = [](int /*signal*/) {};
    sigemptyset(&action.sa_mask);
    sigaction(SIGUSR2, &action, &previousActionM);
    sigset_t wake;
    sigemptyset(&wake);
    sigaddset(&wake, SIGUSR2);
    sigprocmask(SIG_BLOCK, &wake, &previousMaskM);
    suspendMaskM = previousMaskM;
    sigdelset(&suspendMaskM, SIGUSR2);
    const sigset_t suspend = suspendMaskM;
    peerM = StartChild([suspend] {
      for (;;) {
        sigsuspend(&suspend);
        kill(getppid(), SIGUSR2);
      }
    });
  }
  ~SignalPingPong() {
    kill(peerM, SIGKILL);
    waitpid(peerM, nullptr, 0);
    sigprocmask(SIG_SETMASK, &previousMaskM, nullptr);
    sigaction(SIGUSR2, &previousActionM, nullptr);
  }
  SignalPingPong(const SignalPingPong&) = delete;
  SignalPingPong& operator=(const SignalPingPong&) = delete;

  void RoundTrip() const {
    kill(peerM, SIGUSR2);
    sigsuspend(&suspendMaskM);
  }

 private:
  struct sigaction previousActionM {};
  sigset_t previousMaskM{};
  sigset_t suspendMaskM{};
  int peerM = -1;
};

}  // namespace nuv::bench

#endif  // NUV_BENCH_SIGNAL_FLOOR_H
