/// \file NuvCurrentThreadId: the current library thread's id, or the process id read once per
/// process where no thread runs.
#include <nuv/current_thread.h>

#include <pthread.h>
#include <unistd.h>

#include "core/current_thread.h"

namespace {

nuv::CurrentThreadIdSource threadIdSource = nullptr;

// Every wait queues the id while holding the semaphore's word, where a system call would
// lengthen the hold. A forked child forgets it and reads its own.
pid_t ownPid = 0;

void ForgetOwnPid() { ownPid = 0; }

int OwnPid() {
  static const bool forgottenOnFork = pthread_atfork(nullptr, nullptr, ForgetOwnPid) == 0;
  if (ownPid == 0 || !forgottenOnFork) {
    ownPid = getpid();
  }
  return ownPid;
}

}  // namespace

void nuv::SetCurrentThreadIdSource(CurrentThreadIdSource source) noexcept {
  threadIdSource = source;
}

int NuvCurrentThreadId() {
  const int threadId = threadIdSource != nullptr ? threadIdSource() : 0;
  return threadId > 0 ? threadId : OwnPid();
}
