/// \file Unshared threads: a process that leaves every pool of its parent and runs in a pool of
/// its own at the alternate address.
#include <nuv/mempool.h>
#include <nuv/os_mempool.h>
#include <nuv/os_thread.h>
#include <nuv/status.h>
#include <nuv/thread.h>

#include <cstring>

#include "core/assert_at.h"

namespace {

constexpr size_t kPoolNameSize = NuvMempool::kNameSize;
constexpr unsigned kSmallestPoolSize = 1024;
constexpr const char* kTemporaryPoolName = "TempPool";

// What UnsharedEntry runs in the child: written in the parent just before the fork. The names
// are copies, as the child leaves the pools that the caller's strings may live in.
struct UnsharedEntryRecord {
  int (*entry)(long);
  long arg;
  char name[NuvThread::kNameLength];
  char poolName[kPoolNameSize];
  unsigned poolSize;
};
UnsharedEntryRecord unsharedEntryRecord{};

void CopyName(char* to, size_t size, const char* from) {
  strncpy(to, from != nullptr ? from : "", size);
  to[size - 1] = '\0';
}

}  // namespace

unsigned NuvThread::StartUnshared(long arg, const char* poolName, unsigned poolSize) {
  unsharedEntryRecord.entry = entryM;
  unsharedEntryRecord.arg = arg;
  CopyName(unsharedEntryRecord.name, sizeof unsharedEntryRecord.name, nameM);
  CopyName(unsharedEntryRecord.poolName, sizeof unsharedEntryRecord.poolName, poolName);
  unsharedEntryRecord.poolSize = poolSize;
  parentM = nullptr;
  // The child's own reference: its start works on this object until UnsharedEntry lets it go,
  // and the starter (BackgroundThread at once) may release the object meanwhile.
  UpRef();
  const int launched =
      NuvOsThread::Launch(UnsharedEntry, 0, false, FReport(), nameM, this, nullptr, pidM);
  if (launched != 0) {
    NuvSeed::DownRef();
  }
  return static_cast<unsigned>(launched);
}

// The pool is anonymous: it belongs to this process alone and leaves no file behind.
int NuvThread::UnsharedEntry(long /*arg*/) {
  NuvThread* launched = pCurrentThreadG;
  pCurrentThreadG = nullptr;
  launched->DownRef();
  NuvMempool::DetachAll();
  NuvMempool* pool = nullptr;
  const unsigned made =
      NuvMempool::Allocate(unsharedEntryRecord.poolName, unsharedEntryRecord.poolSize, true,
                           NuvOsMempool::GetAlternatePoolAddress(), false, pool);
  NUV_ASSERT_AT(made == kNuvOk, 375, "UnsharedEntry");
  auto* thread = new (pool) NuvThread(unsharedEntryRecord.name);
  thread->UpRef();
  pCurrentThreadG = thread;
  const int result = unsharedEntryRecord.entry(unsharedEntryRecord.arg);
  thread->DownRef();
  pCurrentThreadG = nullptr;
  pool->ShouldBeEmpty();
  delete pool;
  return result;
}

unsigned NuvThread::BackgroundThread(int (*entry)(long), long arg, const char* name,
                                     unsigned poolSize, int* pid) {
  NuvMempool* pool = pCurrentThreadG != nullptr ? pCurrentThreadG->GetPool() : nullptr;
  NuvMempool* temporary = nullptr;
  if (pool == nullptr) {
    const unsigned made = NuvMempool::Allocate(kTemporaryPoolName, kSmallestPoolSize, true, nullptr,
                                               false, temporary);
    if (made != kNuvOk) {
      return made;
    }
    pool = temporary;
  }
  auto* thread = new (pool) NuvThread(entry, name);
  thread->UpRef();
  thread->StartUnshared(arg, name, poolSize != 0 ? poolSize : kSmallestPoolSize);
  if (pid != nullptr) {
    *pid = thread->GetId();
  }
  thread->DownRef();
  delete temporary;
  return kNuvOk;
}
