/// \file Signal actions and masks, and the broken-pipe guard's handler.
#include "core/signals.h"

#include "arch/signal_entry.h"

namespace nuv::signals {
namespace {

constexpr kernel::Call kSigaction{"sigaction", -1, 0, false};
constexpr kernel::Call kSigprocmask{"sigprocmask", -1, 0, false};

kernel::Result SetAction(int signal, const struct sigaction& action, struct sigaction* previous) {
  return kernel::Make(kSigaction, [&] { return sigaction(signal, &action, previous); });
}

}  // namespace

BrokenPipeRecovery detail::ownRecovery;

// Runs in a signal handler: only the jump back to the guard.
NUV_SIGNAL_ENTRY void detail::OwnHandler(int /*signal*/) { siglongjmp(ownRecovery.point, 1); }

kernel::Result Install(int signal, void (*handler)(int), const sigset_t& mask, int flags,
                       struct sigaction* previous) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_mask = mask;
  action.sa_flags = flags;
  return SetAction(signal, action, previous);
}

kernel::Result InstallWithInfo(int signal, void (*handler)(int, siginfo_t*, void*), int flags,
                               struct sigaction* previous) {
  struct sigaction action {};
  action.sa_sigaction = handler;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_SIGINFO | flags;
  return SetAction(signal, action, previous);
}

kernel::Result Restore(int signal, const struct sigaction& action) {
  return SetAction(signal, action, nullptr);
}

kernel::Result Mask(int how, const sigset_t& set, sigset_t* previous) {
  return kernel::Make(kSigprocmask, [&] { return sigprocmask(how, &set, previous); });
}

sigset_t Only(int signal) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal);
  return set;
}

void detail::CatchBrokenPipe(void (*handler)(int), struct sigaction* previous) {
  sigset_t none;
  sigemptyset(&none);
  Install(SIGPIPE, handler, none, 0, previous);
}

void detail::UnblockBrokenPipe() { Mask(SIG_UNBLOCK, Only(SIGPIPE), nullptr); }

}  // namespace nuv::signals
