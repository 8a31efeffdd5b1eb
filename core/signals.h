/// \file Signal actions and masks through the kernel path, and the guard that turns a broken
/// pipe's SIGPIPE into a result.
#ifndef NUV_CORE_SIGNALS_H
#define NUV_CORE_SIGNALS_H

#include <csetjmp>
#include <csignal>

#include "core/kernel.h"

namespace nuv::signals {

/// Installs handler for signal, with mask blocked while it runs and sa_flags flags; the
/// previous action goes to *previous when it is not null.
kernel::Result Install(int signal, void (*handler)(int), const sigset_t& mask, int flags,
                       struct sigaction* previous);
/// Installs an SA_SIGINFO handler for signal, with nothing more blocked while it runs and
/// sa_flags SA_SIGINFO | flags.
kernel::Result InstallWithInfo(int signal, void (*handler)(int, siginfo_t*, void*), int flags,
                               struct sigaction* previous);
/// Puts back an action that Install saved.
kernel::Result Restore(int signal, const struct sigaction& action);
/// sigprocmask(how, set, previous).
kernel::Result Mask(int how, const sigset_t& set, sigset_t* previous);
/// The set holding signal alone.
sigset_t Only(int signal);

namespace detail {
extern sigjmp_buf brokenPipe;
/// Catches SIGPIPE, keeping the previous action in *previous.
void CatchBrokenPipe(struct sigaction* previous);
}  // namespace detail

/// Runs transfer() with SIGPIPE caught. Returns true when it ran to its end, false when a
/// broken pipe's SIGPIPE cut it short; the jump back restores the signal mask, and the previous
/// action of SIGPIPE is put back either way. A process that blocks or ignores SIGPIPE sees
/// EPIPE from the transfer instead. One guard at a time per process.
template <typename Transfer>
__attribute__((noinline)) bool GuardBrokenPipe(Transfer transfer) {
  struct sigaction previous {};
  detail::CatchBrokenPipe(&previous);
  volatile bool completed = false;
  if (sigsetjmp(detail::brokenPipe, 1) == 0) {
    transfer();
    completed = true;
  }
  Restore(SIGPIPE, previous);
  return completed;
}

}  // namespace nuv::signals

#endif  // NUV_CORE_SIGNALS_H
