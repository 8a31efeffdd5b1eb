/// \file NuvThread: the calling process adopted as a library thread, and the ways into the
/// fatal path from code.
#include <nuv/thread.h>

#include <nuv/fatal.h>

#include <pthread.h>
#include <unistd.h>
#include <csignal>
#include <cstring>

NuvThread* pCurrentThreadG = nullptr;

NuvThread::NuvThread(const char* name) : pidM(getpid()) { SetName(name); }

void NuvThread::SetName(const char* name) {
  strncpy(nameM, name, kNameLength);
  nameM[kNameLength - 1] = '\0';
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): a member by contract.
void NuvThread::abort() { _stray_(0, nullptr); }

void _killthread_(NuvThread* thread) { kill(thread->GetId(), SIGQUIT); }

namespace {

// The process id of a process that no library thread adopted, read once: every wait queues it
// while holding the semaphore's word, where a system call would lengthen the hold. A forked
// child forgets it and reads its own.
pid_t ownPid = 0;

void ForgetOwnPid() { ownPid = 0; }

pid_t OwnPid() {
  static const bool forgottenOnFork = pthread_atfork(nullptr, nullptr, ForgetOwnPid) == 0;
  if (ownPid == 0 || !forgottenOnFork) {
    ownPid = getpid();
  }
  return ownPid;
}

}  // namespace

int NuvCurrentThreadId() {
  return pCurrentThreadG != nullptr ? pCurrentThreadG->GetId() : OwnPid();
}
