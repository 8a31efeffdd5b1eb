/// \file NuvTaskManager: the order of runs, the worker's sleep and class, tasks from several
/// processes, and shutting down.
#include <nuv/os_thread.h>
#include <nuv/task_manager.h>

#include <gtest/gtest.h>

#include <sched.h>
#include <unistd.h>
#include <chrono>
#include <fstream>
#include <string>

#include "support/child_process.h"
#include "support/fatal_report.h"
#include "support/polling.h"
#include "support/pool_usage.h"
#include "thread/thread_pool.h"

namespace {

using nuv::test::ThreadPoolTest;
using nuv::test::WaitUntil;

constexpr int kMaxRuns = 32;

// What the tasks did, in the shared pool: which task ran, in order, and in which process.
struct RunLog {
  volatile int count;
  volatile char names[kMaxRuns];
  volatile int pids[kMaxRuns];
  volatile int gateOpen;
  volatile int running;

  std::string Names() const {
    std::string text;
    for (int i = 0; i < count; ++i) {
      text += names[i];
    }
    return text;
  }
};

// Runs `runs` times, logging its name each time.
class LoggingTask : public NuvTask {
 public:
  LoggingTask(NuvThread::rtPri priority, int key, char name, int runs, RunLog* log)
      : NuvTask(priority, key), nameM(name), runsLeftM(runs), logM(log) {}

  unsigned Run() override {
    const int at = logM->count;
    if (at < kMaxRuns) {
      logM->names[at] = nameM;
      logM->pids[at] = getpid();
      logM->count = at + 1;
    }
    runsLeftM -= 1;
    return static_cast<unsigned>(runsLeftM);
  }

 private:
  char nameM;
  int runsLeftM;
  RunLog* logM;
};

// Holds the worker in its first run until the test opens the gate, so that the tasks added
// meanwhile are all registered when the order is decided.
class GateTask : public NuvTask {
 public:
  GateTask(NuvThread::rtPri priority, RunLog* log) : NuvTask(priority, 0), logM(log) {}

  unsigned Run() override {
    logM->running = 1;
    while (logM->gateOpen == 0) {
      usleep(1000);
    }
    logM->running = 0;
    return 0;
  }

 private:
  RunLog* logM;
};

// Adds itself again during its first run, returning 0 all the same.
class ReAddingTask : public NuvTask {
 public:
  ReAddingTask(NuvTaskManager* manager, RunLog* log)
      : NuvTask(NuvThread::standard, 0), managerM(manager), logM(log) {}

  unsigned Run() override {
    logM->count = logM->count + 1;
    if (logM->count == 1) {
      managerM->Add(this);
    }
    return 0;
  }

 private:
  NuvTaskManager* managerM;
  RunLog* logM;
};

char ProcessState(int pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(stat, line);
  const size_t close = line.rfind(") ");
  return close == std::string::npos ? '?' : line[close + 2];
}

class TaskManager : public ThreadPoolTest {
 protected:
  void SetUp() override {
    ThreadPoolTest::SetUp();
    log = Shared<RunLog>();
    manager = new (Pool()) NuvTaskManager;
    manager->UpRef();
  }

  void TearDown() override {
    if (manager != nullptr) {
      manager->DownRef();
    }
    ThreadPoolTest::TearDown();
  }

  /// Waits until the worker sleeps, idle or in a gate's run.
  bool WorkerSleeps() const {
    const int pid = manager->GetWorker()->GetId();
    return WaitUntil([pid] { return ProcessState(pid) == 'S'; });
  }

  template <typename T, typename... Args>
  T* Make(Args... args) {
    return new (Pool()) T(args...);
  }

  RunLog* log = nullptr;
  NuvTaskManager* manager = nullptr;
};

TEST_F(TaskManager, TwoTasksOfTheTopPriorityAlternateAndALowerOneRunsOnlyAfterBoth) {
  ASSERT_TRUE(WorkerSleeps());
  manager->Add(Make<GateTask>(NuvThread::groupmaster, log));
  ASSERT_TRUE(WaitUntil([this] { return log->running == 1; }));
  manager->Add(Make<LoggingTask>(NuvThread::viewer, 0, 'a', 3, log));
  manager->Add(Make<LoggingTask>(NuvThread::viewer, 0, 'b', 3, log));
  manager->Add(Make<LoggingTask>(NuvThread::standard, 0, 'c', 1, log));
  log->gateOpen = 1;
  ASSERT_TRUE(WaitUntil([this] { return log->count == 7; }));
  const std::string order = log->Names();
  EXPECT_TRUE(order == "ababab" + std::string("c") || order == "bababa" + std::string("c"))
      << order;
}

TEST_F(TaskManager, TaskThatAddsItselfDuringItsRunStaysRegistered) {
  ASSERT_TRUE(WorkerSleeps());
  manager->Add(Make<ReAddingTask>(manager, log));
  ASSERT_TRUE(WaitUntil([this] { return log->count >= 2; }));
  ASSERT_TRUE(WaitUntil([this] { return manager->CountTasks() == 0; }));
  EXPECT_EQ(log->count, 2);
}

TEST_F(TaskManager, AddOfARegisteredTaskDoesNotDuplicateItButSortsAgain) {
  ASSERT_TRUE(WorkerSleeps());
  manager->Add(Make<GateTask>(NuvThread::pipeline, log));
  ASSERT_TRUE(WaitUntil([this] { return log->running == 1; }));
  auto* low = Make<LoggingTask>(NuvThread::standard, 0, 'l', 1, log);
  manager->Add(low);
  manager->Add(Make<LoggingTask>(NuvThread::viewer, 0, 'h', 1, log));
  low->SetPriority(NuvThread::switcher);
  manager->Add(low);
  EXPECT_EQ(manager->CountTasks(), 3);
  log->gateOpen = 1;
  ASSERT_TRUE(WaitUntil([this] { return log->count == 2; }));
  EXPECT_EQ(log->Names(), "lh");
}

TEST_F(TaskManager, IdleWorkerSleepsAndTheFirstAddWakesIt) {
  ASSERT_TRUE(WorkerSleeps());
  EXPECT_EQ(log->count, 0);
  manager->Add(Make<LoggingTask>(NuvThread::standard, 0, 'w', 1, log));
  ASSERT_TRUE(WaitUntil([this] { return log->count == 1; }));
  EXPECT_EQ(log->pids[0], manager->GetWorker()->GetId());
}

TEST_F(TaskManager, WorkersClassFollowsTheTopTaskAndIsTimeSharingWithNoTask) {
  if (getuid() != 0) {
    GTEST_SKIP() << "real-time classes need root";
  }
  ASSERT_TRUE(WorkerSleeps());
  const int worker = manager->GetWorker()->GetId();
  EXPECT_EQ(sched_getscheduler(worker), SCHED_OTHER);
  manager->Add(Make<GateTask>(NuvThread::viewer, log));
  ASSERT_TRUE(WaitUntil([this] { return log->running == 1; }));
  sched_param param{};
  EXPECT_EQ(sched_getscheduler(worker), SCHED_FIFO);
  sched_getparam(worker, &param);
  EXPECT_EQ(param.sched_priority, 5);
  manager->Add(Make<LoggingTask>(NuvThread::pipeline, 0, 'p', 1, log));
  sched_getparam(worker, &param);
  EXPECT_EQ(param.sched_priority, 10);
  log->gateOpen = 1;
  ASSERT_TRUE(WaitUntil([this] { return manager->CountTasks() == 0; }));
  ASSERT_TRUE(WaitUntil([worker] { return sched_getscheduler(worker) == SCHED_OTHER; }));
  EXPECT_EQ(manager->GetWorker()->GetRtPriority(), NuvThread::standard);
}

TEST_F(TaskManager, TasksAddedFromTwoProcessesAreRunByTheOneWorker) {
  ASSERT_TRUE(WorkerSleeps());
  manager->Add(Make<LoggingTask>(NuvThread::standard, 0, 'p', 1, log));
  NuvTaskManager* shared = manager;
  RunLog* runs = log;
  NuvMempool* pool = Pool();
  const auto outcome = nuv::test::RunInChild([shared, runs, pool] {
    pCurrentThreadG = nullptr;
    shared->Add(new (pool) LoggingTask(NuvThread::standard, 0, 'c', 1, runs));
  });
  ASSERT_TRUE(outcome.Exited());
  ASSERT_TRUE(WaitUntil([this] { return log->count == 2; }));
  EXPECT_EQ(log->pids[0], manager->GetWorker()->GetId());
  EXPECT_EQ(log->pids[1], manager->GetWorker()->GetId());
}

TEST_F(TaskManager, ShutdownWhileATaskRunsLetsTheRunFinishThenJoinsTheWorker) {
  ASSERT_TRUE(WorkerSleeps());
  manager->Add(Make<GateTask>(NuvThread::standard, log));
  ASSERT_TRUE(WaitUntil([this] { return log->running == 1; }));
  const int worker = manager->GetWorker()->GetId();
  // Another process opens the gate while Shutdown waits: a signal-based wait wants this
  // process to have one thread of control.
  RunLog* runs = log;
  const pid_t opener = fork();
  if (opener == 0) {
    usleep(50000);
    runs->gateOpen = 1;
    _exit(0);
  }
  manager->Shutdown();
  nuv::test::WaitWithDeadline(opener, std::chrono::seconds(5));
  EXPECT_EQ(log->running, 0) << "the run ended before Shutdown returned";
  EXPECT_EQ(manager->GetWorker(), nullptr);
  EXPECT_EQ(NuvOsThread::Alive(worker), kNuvNotActive) << "the worker was joined and reaped";
}

TEST_F(TaskManager, ReleasedManagerLeavesThePoolAsBefore) {
  ASSERT_TRUE(WorkerSleeps());
  manager->DownRef();
  manager = nullptr;
  const std::vector<unsigned> before = nuv::test::InUse(Pool());
  manager = new (Pool()) NuvTaskManager;
  manager->UpRef();
  ASSERT_TRUE(WorkerSleeps());
  manager->Add(Make<LoggingTask>(NuvThread::standard, 0, 'x', 2, log));
  ASSERT_TRUE(WaitUntil([this] { return log->count == 2; }));
  manager->DownRef();
  manager = nullptr;
  EXPECT_EQ(nuv::test::InUse(Pool()), before);
}

TEST_F(TaskManager, NextTaskOfAnEmptyManagerStopsAtAssertion129OfPNextTask) {
  const auto report = nuv::test::RunToFatalReport([this] { manager->PNextTask(); });
  nuv::test::ExpectLibraryAssertion(report, "PNextTask", 129);
}

TEST_F(TaskManager, RunStartingWhileAnotherIsCurrentStopsAtAssertion244OfThreadEntry) {
  ASSERT_TRUE(WorkerSleeps());
  manager->Add(Make<GateTask>(NuvThread::standard, log));
  ASSERT_TRUE(WaitUntil([this] { return log->running == 1; }));
  const auto report = nuv::test::RunToFatalReport([this] {
    pCurrentThreadG = nullptr;
    manager->ThreadEntry();
  });
  // The child died holding the manager's lock word (offset 12): give it back for the worker.
  *reinterpret_cast<volatile NuvLock*>(reinterpret_cast<char*>(manager) + 12) = 0;
  log->gateOpen = 1;
  nuv::test::ExpectLibraryAssertion(report, "ThreadEntry", 244);
}

TEST_F(TaskManager, HigherPriorityComesFirstThenTheSmallerKey) {
  NuvTask* viewer = Make<LoggingTask>(NuvThread::viewer, 9, 'v', 1, log);
  NuvTask* standard = Make<LoggingTask>(NuvThread::standard, 1, 's', 1, log);
  NuvTask* viewerFirst = Make<LoggingTask>(NuvThread::viewer, 2, 'f', 1, log);
  NuvTask* viewerTwin = Make<LoggingTask>(NuvThread::viewer, 2, 't', 1, log);
  EXPECT_LT(CompareTaskPriority(&viewer, &standard), 0);
  EXPECT_GT(CompareTaskPriority(&standard, &viewer), 0);
  EXPECT_LT(CompareTaskPriority(&viewerFirst, &viewer), 0);
  EXPECT_EQ(CompareTaskPriority(&viewerFirst, &viewerTwin), 0);
  for (NuvTask* task : {viewer, standard, viewerFirst, viewerTwin}) {
    task->DeleteThis();
  }
}

TEST_F(TaskManager, SerialsCountTheTasksThatTheCreatingThreadMade) {
  NuvTask* first = Make<LoggingTask>(NuvThread::standard, 0, '1', 1, log);
  NuvTask* second = Make<LoggingTask>(NuvThread::standard, 0, '2', 1, log);
  EXPECT_EQ(second->GetSerial(), first->GetSerial() + 1);
  first->DeleteThis();
  second->DeleteThis();
}

}  // namespace
