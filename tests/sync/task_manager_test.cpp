/// \file NuvTaskManager: the order of runs, the worker's sleep and class, tasks from several
/// processes, and shutting down.
#include <nuv/os_thread.h>
#include <nuv/task_manager.h>

#include <gtest/gtest.h>

#include <sched.h>
#include <unistd.h>
#include <chrono>
#include <string>

#include "support/child_process.h"
#include "support/fatal_report.h"
#include "support/polling.h"
#include "support/pool_usage.h"
#include "support/process_state.h"
#include "thread/thread_pool.h"

namespace {

using nuv::test::ProcessState;

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

class TaskManager : public ThreadPoolTest {
 protected:
  void SetUp() override {
    ThreadPoolTest::SetUp();
    logM = Shared<RunLog>();
    NewManager();
  }

  void TearDown() override {
    ReleaseManager();
    ThreadPoolTest::TearDown();
  }

  RunLog* Log() const { return logM; }
  NuvTaskManager* Manager() const { return managerM; }
  void NewManager() {
    managerM = new (Pool()) NuvTaskManager;
    managerM->UpRef();
  }
  void ReleaseManager() {
    if (managerM != nullptr) {
      managerM->DownRef();
      managerM = nullptr;
    }
  }

  /// Waits until the worker sleeps, idle or in a gate's run.
  bool WorkerSleeps() const {
    const int pid = managerM->GetWorker()->GetId();
    return WaitUntil([pid] { return ProcessState(pid) == 'S'; });
  }

  template <typename T, typename... Args>
  T* Make(Args... args) {
    return new (Pool()) T(args...);
  }

 private:
  RunLog* logM = nullptr;
  NuvTaskManager* managerM = nullptr;
};

TEST_F(TaskManager, TwoTasksOfTheTopPriorityAlternateAndALowerOneRunsOnlyAfterBoth) {
  ASSERT_TRUE(WorkerSleeps());
  Manager()->Add(Make<GateTask>(NuvThread::groupmaster, Log()));
  ASSERT_TRUE(WaitUntil([this] { return Log()->running == 1; }));
  Manager()->Add(Make<LoggingTask>(NuvThread::viewer, 0, 'a', 3, Log()));
  Manager()->Add(Make<LoggingTask>(NuvThread::viewer, 0, 'b', 3, Log()));
  Manager()->Add(Make<LoggingTask>(NuvThread::standard, 0, 'c', 1, Log()));
  Log()->gateOpen = 1;
  ASSERT_TRUE(WaitUntil([this] { return Log()->count == 7; }));
  const std::string order = Log()->Names();
  EXPECT_TRUE(order == "ababab" + std::string("c") || order == "bababa" + std::string("c"))
      << order;
}

TEST_F(TaskManager, TaskThatAddsItselfDuringItsRunStaysRegistered) {
  ASSERT_TRUE(WorkerSleeps());
  Manager()->Add(Make<ReAddingTask>(Manager(), Log()));
  ASSERT_TRUE(WaitUntil([this] { return Log()->count >= 2; }));
  ASSERT_TRUE(WaitUntil([this] { return Manager()->CountTasks() == 0; }));
  EXPECT_EQ(Log()->count, 2);
}

TEST_F(TaskManager, AddOfARegisteredTaskDoesNotDuplicateItButSortsAgain) {
  ASSERT_TRUE(WorkerSleeps());
  Manager()->Add(Make<GateTask>(NuvThread::pipeline, Log()));
  ASSERT_TRUE(WaitUntil([this] { return Log()->running == 1; }));
  auto* low = Make<LoggingTask>(NuvThread::standard, 0, 'l', 1, Log());
  Manager()->Add(low);
  Manager()->Add(Make<LoggingTask>(NuvThread::viewer, 0, 'h', 1, Log()));
  low->SetPriority(NuvThread::switcher);
  Manager()->Add(low);
  EXPECT_EQ(Manager()->CountTasks(), 3);
  Log()->gateOpen = 1;
  ASSERT_TRUE(WaitUntil([this] { return Log()->count == 2; }));
  EXPECT_EQ(Log()->Names(), "lh");
}

TEST_F(TaskManager, IdleWorkerSleepsAndTheFirstAddWakesIt) {
  ASSERT_TRUE(WorkerSleeps());
  EXPECT_EQ(Log()->count, 0);
  Manager()->Add(Make<LoggingTask>(NuvThread::standard, 0, 'w', 1, Log()));
  ASSERT_TRUE(WaitUntil([this] { return Log()->count == 1; }));
  EXPECT_EQ(Log()->pids[0], Manager()->GetWorker()->GetId());
}

TEST_F(TaskManager, WorkersClassFollowsTheTopTaskAndIsTimeSharingWithNoTask) {
  if (getuid() != 0) {
    GTEST_SKIP() << "real-time classes need root";
  }
  ASSERT_TRUE(WorkerSleeps());
  const int worker = Manager()->GetWorker()->GetId();
  EXPECT_EQ(sched_getscheduler(worker), SCHED_OTHER);
  Manager()->Add(Make<GateTask>(NuvThread::viewer, Log()));
  ASSERT_TRUE(WaitUntil([this] { return Log()->running == 1; }));
  sched_param param{};
  EXPECT_EQ(sched_getscheduler(worker), SCHED_FIFO);
  sched_getparam(worker, &param);
  EXPECT_EQ(param.sched_priority, 5);
  Manager()->Add(Make<LoggingTask>(NuvThread::pipeline, 0, 'p', 1, Log()));
  sched_getparam(worker, &param);
  EXPECT_EQ(param.sched_priority, 10);
  Log()->gateOpen = 1;
  ASSERT_TRUE(WaitUntil([this] { return Manager()->CountTasks() == 0; }));
  ASSERT_TRUE(WaitUntil([worker] { return sched_getscheduler(worker) == SCHED_OTHER; }));
  EXPECT_EQ(Manager()->GetWorker()->GetRtPriority(), NuvThread::standard);
}

TEST_F(TaskManager, TasksAddedFromTwoProcessesAreRunByTheOneWorker) {
  ASSERT_TRUE(WorkerSleeps());
  Manager()->Add(Make<LoggingTask>(NuvThread::standard, 0, 'p', 1, Log()));
  NuvTaskManager* shared = Manager();
  RunLog* runs = Log();
  NuvMempool* pool = Pool();
  const auto outcome = nuv::test::RunInChild([shared, runs, pool] {
    pCurrentThreadG = nullptr;
    shared->Add(new (pool) LoggingTask(NuvThread::standard, 0, 'c', 1, runs));
  });
  ASSERT_TRUE(outcome.Exited());
  ASSERT_TRUE(WaitUntil([this] { return Log()->count == 2; }));
  EXPECT_EQ(Log()->pids[0], Manager()->GetWorker()->GetId());
  EXPECT_EQ(Log()->pids[1], Manager()->GetWorker()->GetId());
}

TEST_F(TaskManager, ShutdownWhileATaskRunsLetsTheRunFinishThenJoinsTheWorker) {
  ASSERT_TRUE(WorkerSleeps());
  Manager()->Add(Make<GateTask>(NuvThread::standard, Log()));
  ASSERT_TRUE(WaitUntil([this] { return Log()->running == 1; }));
  const int worker = Manager()->GetWorker()->GetId();
  // Another process opens the gate while Shutdown waits: a signal-based wait wants this
  // process to have one thread of control.
  RunLog* runs = Log();
  const pid_t opener = fork();
  if (opener == 0) {
    usleep(50000);
    runs->gateOpen = 1;
    _exit(0);
  }
  Manager()->Shutdown();
  nuv::test::WaitWithDeadline(opener, std::chrono::seconds(5));
  EXPECT_EQ(Log()->running, 0) << "the run ended before Shutdown returned";
  EXPECT_EQ(Manager()->GetWorker(), nullptr);
  EXPECT_EQ(NuvOsThread::Alive(worker), kNuvNotActive) << "the worker was joined and reaped";
}

TEST_F(TaskManager, ReleasedManagerLeavesThePoolAsBefore) {
  ASSERT_TRUE(WorkerSleeps());
  ReleaseManager();
  const std::vector<unsigned> before = nuv::test::InUse(Pool());
  NewManager();
  ASSERT_TRUE(WorkerSleeps());
  Manager()->Add(Make<LoggingTask>(NuvThread::standard, 0, 'x', 2, Log()));
  ASSERT_TRUE(WaitUntil([this] { return Log()->count == 2; }));
  ReleaseManager();
  EXPECT_EQ(nuv::test::InUse(Pool()), before);
}

TEST_F(TaskManager, NextTaskOfAnEmptyManagerStopsAtAssertion129OfPNextTask) {
  const auto report = nuv::test::RunToFatalReport([this] { Manager()->PNextTask(); });
  nuv::test::ExpectLibraryAssertion(report, "PNextTask", 129);
}

TEST_F(TaskManager, RunStartingWhileAnotherIsCurrentStopsAtAssertion244OfThreadEntry) {
  ASSERT_TRUE(WorkerSleeps());
  Manager()->Add(Make<GateTask>(NuvThread::standard, Log()));
  ASSERT_TRUE(WaitUntil([this] { return Log()->running == 1; }));
  const auto report = nuv::test::RunToFatalReport([this] {
    pCurrentThreadG = nullptr;
    Manager()->ThreadEntry();
  });
  // The child died holding the manager's lock word (offset 12): give it back for the worker.
  *reinterpret_cast<volatile NuvLock*>(reinterpret_cast<char*>(Manager()) + 12) = 0;
  Log()->gateOpen = 1;
  nuv::test::ExpectLibraryAssertion(report, "ThreadEntry", 244);
}

TEST_F(TaskManager, HigherPriorityComesFirstThenTheSmallerKey) {
  NuvTask* viewer = Make<LoggingTask>(NuvThread::viewer, 9, 'v', 1, Log());
  NuvTask* standard = Make<LoggingTask>(NuvThread::standard, 1, 's', 1, Log());
  NuvTask* viewerFirst = Make<LoggingTask>(NuvThread::viewer, 2, 'f', 1, Log());
  NuvTask* viewerTwin = Make<LoggingTask>(NuvThread::viewer, 2, 't', 1, Log());
  EXPECT_LT(CompareTaskPriority(&viewer, &standard), 0);
  EXPECT_GT(CompareTaskPriority(&standard, &viewer), 0);
  EXPECT_LT(CompareTaskPriority(&viewerFirst, &viewer), 0);
  EXPECT_EQ(CompareTaskPriority(&viewerFirst, &viewerTwin), 0);
  for (NuvTask* task : {viewer, standard, viewerFirst, viewerTwin}) {
    task->DeleteThis();
  }
}

TEST_F(TaskManager, SerialsCountTheTasksThatTheCreatingThreadMade) {
  NuvTask* first = Make<LoggingTask>(NuvThread::standard, 0, '1', 1, Log());
  NuvTask* second = Make<LoggingTask>(NuvThread::standard, 0, '2', 1, Log());
  EXPECT_EQ(second->GetSerial(), first->GetSerial() + 1);
  first->DeleteThis();
  second->DeleteThis();
}

}  // namespace
