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

/// Where a broken pipe's SIGPIPE handler jumps back to, and the action of SIGPIPE that its guard
/// replaced. Each user of the guard (the logger, the sockets) has its own, once per process, so
/// that a guard can run inside another's: a socket transfer may log.
struct BrokenPipeRecovery {
  sigjmp_buf point;
  struct sigaction previous;
};

namespace detail {
/// The guard's own recovery and handler, for transfers that need no handler of their own.
extern BrokenPipeRecovery ownRecovery;
void OwnHandler(int signal);
/// Installs handler for SIGPIPE (empty mask, flags 0), keeping the previous action in *previous.
void CatchBrokenPipe(void (*handler)(int), struct sigaction* previous);
/// After the jump back: the delivery of SIGPIPE to its handler blocked it, and the jump keeps
/// the mask as it was, so it is unblocked here. It was not blocked before, or it could not have
/// been delivered.
void UnblockBrokenPipe();
}  // namespace detail

/// Runs transfer() with SIGPIPE sent to handler, which must siglongjmp(recovery.point, 1).
/// Returns true when the transfer ran to its end, false when a broken pipe's SIGPIPE cut it
/// short; the signal mask is as it was before, and the previous action of SIGPIPE is put back
/// either way. A process that blocks SIGPIPE sees EPIPE from the transfer instead. The fast path
/// makes two system calls (the two actions); saving the mask in the jump buffer would add one.
template <typename Transfer>
__attribute__((noinline)) bool GuardBrokenPipe(BrokenPipeRecovery& recovery, void (*handler)(int),
                                               Transfer transfer) {
  volatile bool completed = false;
  // The jump buffer is set before the handler is installed: a SIGPIPE can arrive at any time.
  if (sigsetjmp(recovery.point, 0) == 0) {
    detail::CatchBrokenPipe(handler, &recovery.previous);
    transfer();
    completed = true;
  } else {
    detail::UnblockBrokenPipe();
  }
  Restore(SIGPIPE, recovery.previous);
  return completed;
}

/// GuardBrokenPipe with the guard's own recovery and handler. One such guard at a time per
/// process.
template <typename Transfer>
bool GuardBrokenPipe(Transfer transfer) {
  return GuardBrokenPipe(detail::ownRecovery, detail::OwnHandler, transfer);
}

}  // namespace nuv::signals

#endif  // NUV_CORE_SIGNALS_H
