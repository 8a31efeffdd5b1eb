/// \file NuvThread: the calling process adopted as a library thread, and the ways into the
/// fatal path from code.
#include <nuv/thread.h>

#include <nuv/fatal.h>

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
