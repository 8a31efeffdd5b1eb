/// \file NuvTaskManager: registering tasks, their order and the worker's class.
#include <nuv/semaphore.h>
#include <nuv/task_manager.h>

#include "core/assert_at.h"
#include "core/word.h"

namespace {

constexpr const char* kWorkerName = "NuvTaskManager";

// Every slot of a manager's array holds a task; tasks have no run-time type to check.
NuvTask* AsTask(NuvCore* slot) {
  return static_cast<NuvTask*>(slot);  // NOLINT(cppcoreguidelines-pro-type-static-cast-downcast)
}

// The array sorts NuvCore slots.
int CompareSlots(NuvCore** a, NuvCore** b) {
  NuvTask* first = AsTask(*a);
  NuvTask* second = AsTask(*b);
  return CompareTaskPriority(&first, &second);
}

}  // namespace

NuvTaskManager::NuvTaskManager()
    : NuvCore(NuvMempool::nuv),
      wakeM(new (GetPool()) NuvSema(NuvMempool::nuv)),
      tasksM(GetPool()),
      workerM(new (GetPool()) NuvThread(ThreadEntryFcn, kWorkerName)) {
  wakeM->init(0, false);
  workerM->UpRef();
  workerM->Start(reinterpret_cast<long>(this));
}

NuvTaskManager::~NuvTaskManager() {
  Shutdown();
  wakeM->DeleteThis();
  if (currentM != nullptr) {
    currentM->DownRef();
  }
}

// Wakes an idle worker; never stores a wake-up, so the count stays at 0 or below. Returns the
// wake-up's result.
int NuvTaskManager::WakeWorker() { return wakeM->vwaiter(); }

int NuvTaskManager::Add(NuvTask* task) {
  nuv::TakeWord(&lockM);
  if (task == currentM) {
    readdedM = 1;
  }
  if (!tasksM.FContains(task)) {
    tasksM.Add(task);
  }
  Sort();
  nuv::GiveWord(&lockM);
  return WakeWorker();
}

void NuvTaskManager::Remove(NuvTask* task) { Remove(task, true); }

void NuvTaskManager::Remove(NuvTask* task, bool takeLock) {
  if (takeLock) {
    nuv::TakeWord(&lockM);
  }
  tasksM.Remove(task);
  Sort();
  if (takeLock) {
    nuv::GiveWord(&lockM);
  }
}

// Tasks of the last chosen priority and key take turns; any other task sends the turn back to
// the top.
ref<NuvTask> NuvTaskManager::PNextTask() {
  const int count = tasksM.Count();
  NUV_ASSERT_AT(count > 0, 129, "PNextTask");
  if (cursorM >= 0 && cursorM < count) {
    cursorM += 1;
    if (cursorM >= count || !FSameTurn(AsTask(tasksM[cursorM]))) {
      cursorM = 0;
    }
  } else {
    cursorM = 0;
  }
  NuvTask* chosen = AsTask(tasksM[cursorM]);
  lastPriorityM = chosen->GetPriority();
  lastKeyM = chosen->GetKey();
  return {chosen};
}

bool NuvTaskManager::FSameTurn(const NuvTask* task) const {
  return task->GetPriority() == lastPriorityM && task->GetKey() == lastKeyM;
}

void NuvTaskManager::Sort() {
  tasksM.Sort(CompareSlots);
  cursorM = -1;
  UpdatePriority();
}

// After Shutdown there is no worker left to set.
void NuvTaskManager::UpdatePriority() {
  NuvThread::rtPri priority = NuvThread::standard;
  if (tasksM.Count() > 0) {
    priority = PNextTask()->GetPriority();
  }
  if (workerM != nullptr && priority != workerM->GetRtPriority()) {
    workerM->SetRTPriority(priority);
  }
}

// The flag is set under the lock word, which the worker holds from its test of the flag until
// it sleeps: the wake-up below then always finds it asleep or finds it before its test.
void NuvTaskManager::Shutdown() {
  nuv::TakeWord(&lockM);
  shutdownM = 1;
  NuvThread* worker = workerM;
  workerM = nullptr;
  nuv::GiveWord(&lockM);
  WakeWorker();
  if (worker != nullptr) {
    worker->Join();
    worker->DownRef();
  }
}

int NuvTaskManager::CountTasks() {
  nuv::TakeWord(&lockM);
  const int count = tasksM.Count();
  nuv::GiveWord(&lockM);
  return count;
}
