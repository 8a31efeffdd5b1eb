/// \file NuvTask and the order in which the manager runs tasks.
#include <nuv/task_manager.h>

NuvTask::NuvTask(NuvThread::rtPri priority, int key)
    : NuvCore(NuvMempool::nuv),
      priorityM(priority),
      keyM(key),
      serialM(pCurrentThreadG != nullptr ? pCurrentThreadG->NextTaskSerial() : 0) {}

int CompareTaskPriority(NuvTask** a, NuvTask** b) {
  if ((*a)->GetPriority() != (*b)->GetPriority()) {
    return static_cast<int>((*b)->GetPriority()) - static_cast<int>((*a)->GetPriority());
  }
  return (*a)->GetKey() - (*b)->GetKey();
}
