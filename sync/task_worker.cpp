/// \file The worker of a task manager: one task run at a time, no lock word held while it runs.
#include <nuv/semaphore.h>
#include <nuv/task_manager.h>

#include "core/assert_at.h"
#include "core/word.h"

int NuvTaskManager::ThreadEntryFcn(long manager) {
  return reinterpret_cast<NuvTaskManager*>(manager)->ThreadEntry();
}

int NuvTaskManager::ThreadEntry() {
  while (shutdownM == 0) {
    if (WaitForWork()) {
      RunOnce();
    }
  }
  return 0;
}

// With the lock word taken: true, the word still held, when there is a task to run; false,
// the word released, after a sleep on an empty list or when shutting down. Shutdown is tested
// again under the word, so its wake-up cannot fall between that test and the sleep.
bool NuvTaskManager::WaitForWork() {
  nuv::TakeWord(&lockM);
  if (shutdownM != 0) {
    nuv::GiveWord(&lockM);
    return false;
  }
  if (tasksM.Count() == 0) {
    wakeM->spsema(&lockM, nullptr);
    return false;
  }
  return true;
}

void NuvTaskManager::RunOnce() {
  NUV_ASSERT_AT(currentM == nullptr, 244, "ThreadEntry");
  currentM = PNextTask().get();
  currentM->UpRef();
  readdedM = 0;
  nuv::GiveWord(&lockM);
  const NuvThread::rtPri priority = currentM->GetPriority();
  const int key = currentM->GetKey();
  FinishRun(currentM->Run(), priority, key);
}

void NuvTaskManager::FinishRun(unsigned result, NuvThread::rtPri priority, int key) {
  nuv::TakeWord(&lockM);
  if (result == 0 && readdedM == 0) {
    Remove(currentM, false);
  }
  if (currentM->GetPriority() != priority || currentM->GetKey() != key) {
    Sort();
  }
  currentM->DownRef();
  currentM = nullptr;
  readdedM = 0;
  nuv::GiveWord(&lockM);
}
