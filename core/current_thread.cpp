/// \file NuvCurrentThreadId: the process id, read once per process.
#include <nuv/current_thread.h>

#include <pthread.h>
#include <unistd.h>

namespace {

// Every wait queues the id while holding the semaphore's word, where a system call would
// lengthen the hold. A forked child forgets it and reads its own.
pid_t ownPid = 0;

void ForgetOwnPid() { ownPid = 0; }

}  // namespace

int NuvCurrentThreadId() {
  static const bool forgottenOnFork = pthread_atfork(nullptr, nullptr, ForgetOwnPid) == 0;
  if (ownPid == 0 || !forgottenOnFork) {
    ownPid = getpid();
  }
  return ownPid;
}
