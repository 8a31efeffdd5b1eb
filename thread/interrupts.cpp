/// \file The signal dispositions of thread processes and of the processes that start them.
#include <nuv/fatal.h>
#include <nuv/os_thread.h>

#include <csignal>
#include <initializer_list>

#include "core/kernel.h"
#include "core/signals.h"

namespace {

constexpr int kLastClassicSignal = 31;

// SIGKILL and SIGSTOP cannot be caught: those attempts fail, as they always have.
constexpr const char* kUncatchable = "SIGKILL and SIGSTOP refuse any action";

// Woken waits and time-outs install their own handlers while they wait; socket notices are
// asked for by the sockets that want them.
bool IgnoredByThreads(int signal) {
  return signal == SIGUSR1 || signal == SIGALRM || signal == SIGWINCH || signal == SIGIO ||
         signal == SIGURG;
}

bool KeptAsItWas(int signal) {
  return signal == SIGINT || signal == SIGTERM || signal == SIGCHLD || signal == SIGABRT;
}

void Ignore(int signal, int flags) {
  sigset_t none;
  sigemptyset(&none);
  nuv::kernel::Ignore(nuv::signals::Install(signal, SIG_IGN, none, flags, nullptr),
                      "a valid signal and action");
}

}  // namespace

void NuvOsThread::SetupInterrupts() {
  for (int signal = 1; signal <= kLastClassicSignal; ++signal) {
    if (KeptAsItWas(signal)) {
      continue;
    }
    if (IgnoredByThreads(signal)) {
      Ignore(signal, 0);
    } else {
      // The handler's own recursion guard deals with a second fault during the report.
      nuv::kernel::Ignore(
          nuv::signals::InstallWithInfo(signal, NuvStraySignalHandler, SA_NODEFER, nullptr),
          kUncatchable);
    }
  }
}

void NuvOsThread::ParentSetup() {
  for (const int signal : {SIGUSR1, SIGALRM, SIGCHLD, SIGWINCH}) {
    Ignore(signal, SA_NODEFER);
  }
}
