/// \file NuvTask and NuvTaskManager: application tasks run one at a time, most urgent first, on a
/// worker thread whose real-time class follows the most urgent task.
#ifndef NUV_TASK_MANAGER_H
#define NUV_TASK_MANAGER_H

#include <nuv/array.h>
#include <nuv/lockword.h>
#include <nuv/seed.h>
#include <nuv/thread.h>

class NuvSema;

/// A slice of work that the manager runs again until Run returns 0 (pool user "nuv").
/// Layout (checked in sync/task_layout.cpp): 0 core, 12 priority, 16 key, 20 serial; 24 bytes.
class NuvTask : public NuvCore {
 public:
  /// The serial is the next one of the creating thread (0 where no thread is current).
  NuvTask(NuvThread::rtPri priority, int key);
  ~NuvTask() override = default;
  NuvTask(const NuvTask&) = delete;
  NuvTask& operator=(const NuvTask&) = delete;
  NuvTask(NuvTask&&) = delete;
  NuvTask& operator=(NuvTask&&) = delete;

  /// Does one slice of work; 0 when the task is finished.
  virtual unsigned Run() = 0;

  NuvThread::rtPri GetPriority() const { return priorityM; }
  int GetKey() const { return keyM; }
  unsigned GetSerial() const { return serialM; }
  /// While the task runs, a change is noticed after the run; at other times Remove and Add the
  /// task again.
  void SetPriority(NuvThread::rtPri priority) { priorityM = priority; }
  void SetKey(int key) { keyM = key; }

 private:
  friend struct NuvTaskLayout;
  NuvThread::rtPri priorityM;
  int keyM;
  unsigned serialM;
};

/// Higher priority first, then smaller key first; 0 for equal priority and key.
int CompareTaskPriority(NuvTask** a, NuvTask** b);

/// Runs its tasks on a worker thread ("NuvTaskManager") started by the constructor. Tasks may be
/// added and removed from every process that shares the pool.
/// Layout (checked in sync/task_layout.cpp): 0 core, 12 lock word, 16 wake semaphore, 20 tasks
/// (an array, 16 bytes), 36 shutdown, 40 last priority, 44 last key, 48 cursor, 52 current task,
/// 56 re-added, 60 worker; 64 bytes.
class NuvTaskManager : public NuvCore {
 public:
  NuvTaskManager();
  /// Shuts the worker down (see Shutdown) and releases what the manager holds.
  ~NuvTaskManager() override;
  NuvTaskManager(const NuvTaskManager&) = delete;
  NuvTaskManager& operator=(const NuvTaskManager&) = delete;
  NuvTaskManager(NuvTaskManager&&) = delete;
  NuvTaskManager& operator=(NuvTaskManager&&) = delete;

  /// Registers the task (once; the manager takes a reference) and re-sorts; wakes an idle
  /// worker. The result of the wake-up (kill's, or 0).
  int Add(NuvTask* task);
  /// Removes the task and re-sorts; with takeLock false the caller holds the lock word.
  void Remove(NuvTask* task);
  void Remove(NuvTask* task, bool takeLock);
  /// The task to run next, with a reference for the caller: tasks of the top priority and key
  /// in turn. With no task stops at assertion 129 of "PNextTask". With the lock word held.
  ref<NuvTask> PNextTask();
  /// Sorts the tasks, starts the turn from the top and updates the worker's class.
  void Sort();
  /// Gives the worker the real-time class of the next task (standard with none).
  void UpdatePriority();
  /// Lets a running task finish, ends the worker's loop and joins the worker.
  void Shutdown();
  /// The worker's entry: ThreadEntry of the manager passed as the argument.
  static int ThreadEntryFcn(long manager);
  /// The worker's loop, until Shutdown. A run that starts while another is current stops at
  /// assertion 244 of "ThreadEntry".
  int ThreadEntry();

  /// The worker thread (null after Shutdown), with no reference added.
  NuvThread* GetWorker() const { return workerM; }
  /// How many tasks are registered.
  int CountTasks();

 private:
  friend struct NuvTaskLayout;

  int WakeWorker();
  bool FSameTurn(const NuvTask* task) const;
  bool WaitForWork();
  void RunOnce();
  void FinishRun(unsigned result, NuvThread::rtPri priority, int key);

  volatile NuvLock lockM = 0;
  NuvSema* wakeM;
  NuvGenericArray tasksM;
  volatile unsigned shutdownM = 0;
  NuvThread::rtPri lastPriorityM = NuvThread::standard;
  int lastKeyM = 0;
  int cursorM = -1;
  NuvTask* currentM = nullptr;
  unsigned readdedM = 0;
  NuvThread* workerM = nullptr;
};

#endif  // NUV_TASK_MANAGER_H
