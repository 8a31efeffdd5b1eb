/// \file The shared format of tasks and task managers, checked at compile time: every process
/// that shares the pool adds tasks, and the worker runs them.
#include <nuv/task_manager.h>

#include <cstddef>

// Both derive from NuvCore, which makes them formally non-standard-layout; the offsets below are
// exactly what these checks are there to pin down.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
struct NuvTaskLayout {
  static_assert(sizeof(NuvTask) == 24, "task: core, priority, key, serial");
  static_assert(offsetof(NuvTask, priorityM) == 12, "task priority");
  static_assert(offsetof(NuvTask, keyM) == 16, "task key");
  static_assert(offsetof(NuvTask, serialM) == 20, "task serial");

  static_assert(sizeof(NuvTaskManager) == 64, "task manager");
  static_assert(offsetof(NuvTaskManager, lockM) == 12, "manager lock word");
  static_assert(offsetof(NuvTaskManager, wakeM) == 16, "manager wake semaphore");
  static_assert(offsetof(NuvTaskManager, tasksM) == 20, "manager tasks");
  static_assert(offsetof(NuvTaskManager, shutdownM) == 36, "manager shutdown flag");
  static_assert(offsetof(NuvTaskManager, lastPriorityM) == 40, "manager last priority");
  static_assert(offsetof(NuvTaskManager, lastKeyM) == 44, "manager last key");
  static_assert(offsetof(NuvTaskManager, cursorM) == 48, "manager cursor");
  static_assert(offsetof(NuvTaskManager, currentM) == 52, "manager current task");
  static_assert(offsetof(NuvTaskManager, readdedM) == 56, "manager re-added flag");
  static_assert(offsetof(NuvTaskManager, workerM) == 60, "manager worker");
};
#pragma GCC diagnostic pop
