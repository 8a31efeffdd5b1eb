/// \file NuvThread: the calling process adopted as a library thread, and the ways into the
/// fatal path from code.
#include <nuv/thread.h>

#include <nuv/fatal.h>

#include <unistd.h>
#include <csignal>
#include <cstring>

#include "core/kernel.h"

NuvThread* pCurrentThreadG = nullptr;

NuvThread::NuvThread(const char* name) : pidM(getpid()) { SetName(name); }

void NuvThread::SetName(const char* name) {
  strncpy(nameM, name, kNameLength);
  nameM[kNameLength - 1] = '\0';
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): a member by contract.
void NuvThread::abort() { _stray_(0, nullptr); }

// A thread that is already gone cannot report: nothing to do.
void _killthread_(NuvThread* thread) {
  const int pid = thread->GetId();
  nuv::kernel::Ignore(nuv::kernel::Make(nuv::kernel::Call{"kill", -1, ESRCH, false},
                                        [pid] { return kill(pid, SIGQUIT); }),
                      "a thread already gone has nothing to report");
}
