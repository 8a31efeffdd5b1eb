/// \file NuvThread's life: start of a shared thread, its end, joining it, and the destructor that
/// waits for the threads it started.
#include <nuv/messenger.h>
#include <nuv/os_thread.h>
#include <nuv/semaphore.h>
#include <nuv/thread.h>

#include <unistd.h>

#include "core/assert_at.h"
#include "core/word.h"

namespace {

// What SharedEntry runs in the child: written in the parent just before the fork.
struct SharedEntryRecord {
  int (*entry)(long);
  long arg;
  NuvMempool* pool;
  NuvThread* thread;
};
SharedEntryRecord sharedEntryRecord{};

NuvSema* NewSema(NuvMempool* pool) {
  auto* sema = new (pool) NuvSema(NuvMempool::nuv);
  sema->init(0, false);
  return sema;
}

void DestroySema(NuvSema* sema) {
  if (sema != nullptr) {
    sema->DeleteThis();
  }
}

}  // namespace

unsigned NuvThread::Start(long arg) {
  NUV_ASSERT_AT((stateM & (kRunning | kDead)) == 0, 237, "Start");
  exitM = NewSema(GetPool());
  const bool releaseHere = holdM == nullptr;
  HoldRun();
  if (pCurrentThreadG != nullptr && parentM != nullptr) {
    pCurrentThreadG->AddChild();
    NuvThreadGroup* group = pCurrentThreadG->groupM;
    group->UpRef();
    if (groupM != nullptr) {
      groupM->DownRef();
    }
    groupM = group;
  }
  sharedEntryRecord = SharedEntryRecord{entryM, arg, GetPool(), this};
  const int launched =
      NuvOsThread::Launch(SharedEntry, 0, true, FReport(), nameM, this, holdM, pidM);
  if (launched != 0) {
    return static_cast<unsigned>(launched);
  }
  stateM |= kRunning;
  queueIdM = pidM + kQueueIdBase;
  GetPool()->GetMessenger()->CreateNamedQueue(queueIdM, kQueueDepth);
  if (releaseHere) {
    ReleaseRun();
  }
  return 0;
}

int NuvThread::SharedEntry(long /*arg*/) {
  pCurrentThreadG = sharedEntryRecord.thread;
  const int result = NuvThreadEntryHook(sharedEntryRecord.entry, sharedEntryRecord.arg);
  if (pCurrentThreadG != nullptr) {
    pCurrentThreadG->Dead();
    pCurrentThreadG = nullptr;
  }
  return result;
}

// The exit semaphore is posted with the state lock still held: a joiner that finds the thread
// dead destroys the semaphore, which must not happen while it is being posted.
void NuvThread::Dead() {
  nuv::TakeWord(&stateLockM);
  stateM = (stateM & ~kRunning) | kDead;
  if (exitM != nullptr) {
    exitM->vsema();
  }
  nuv::GiveWord(&stateLockM);
}

// An adopted process has no exit semaphore: there is nothing to wait for, as for a dead thread.
int NuvThread::Join() {
  nuv::TakeWord(&stateLockM);
  NUV_ASSERT_AT((stateM & (kRunning | kDead)) != 0, 560, "Join");
  if ((stateM & kDead) != 0 || exitM == nullptr) {
    nuv::GiveWord(&stateLockM);
  } else {
    exitM->spsema(&stateLockM, nullptr);
  }
  DestroySema(exitM);
  exitM = nullptr;
  return exitStatusM;
}

void NuvThread::HoldRun() {
  if (holdM == nullptr) {
    holdM = NewSema(GetPool());
  }
}

void NuvThread::ReleaseRun() {
  if (holdM != nullptr) {
    holdM->vsema();
  }
}

void NuvThread::AddChild() {
  nuv::TakeWord(&childLockM);
  childCountM += 1;
  nuv::GiveWord(&childLockM);
}

// Only a started thread counted itself among its parent's children.
void NuvThread::RemoveFromParent() {
  if (parentM == nullptr || (stateM & (kRunning | kDead)) == 0) {
    return;
  }
  nuv::TakeWord(&parentM->childLockM);
  NUV_ASSERT_AT(parentM->childCountM >= 1, 91, "~NuvThread");
  parentM->childCountM -= 1;
  if (parentM->childCountM == 0) {
    while (parentM->childrenM->GetCount() < 0) {
      parentM->childrenM->vsema();
    }
  }
  nuv::GiveWord(&parentM->childLockM);
}

void NuvThread::WaitForChildren() {
  nuv::TakeWord(&childLockM);
  while (childCountM >= 1) {
    childrenM->spsema(&childLockM, nullptr);
    nuv::TakeWord(&childLockM);
  }
  nuv::GiveWord(&childLockM);
}

void NuvThread::ReleaseOwned() {
  GetPool()->GetMessenger()->DestroyQueue(queueIdM);
  DestroySema(blockM);
  if ((stateM & (kRunning | kDead)) == 0) {
    DestroySema(holdM);
  }
  DestroySema(childrenM);
  DestroySema(exitM);
  for (NuvCore* reference : referencesM) {
    if (reference != nullptr) {
      reference->DownRef();
    }
  }
  if (groupM != nullptr) {
    groupM->DownRef();
  }
}

NuvThread::~NuvThread() {
  RemoveFromParent();
  WaitForChildren();
  NuvOsThread::CloseCommandChannel(this);
  // Only a started thread has a process to reap: a process id of 0 would reap any child.
  if (parentM != nullptr && pidM > 0 && pidM != getpid()) {
    NuvOsThread::Wait(pidM, nullptr);
  }
  ReleaseOwned();
}
