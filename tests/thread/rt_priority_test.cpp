/// \file Real-time classes: the scheduling a class gives a process, the records it leaves, the
/// NUV_RTPRI variable and MakeRTThread. Scheduling is changed only in child processes, which end
/// at once.
#include <nuv/mempool.h>
#include <nuv/status.h>
#include <nuv/thread.h>

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "core/kernel.h"
#include "support/child_process.h"
#include "support/fields.h"
#include "support/log_lines.h"
#include "support/pool_prefix.h"
#include "thread/restart.h"
#include "thread/rt_priority.h"

namespace {

using nuv::test::ChildOutcome;
using nuv::test::FieldOf;
using nuv::test::Fields;
using nuv::test::HelperPath;

// Values between the angle brackets for facility facnuv (local0 on the wire).
constexpr int kCrit = 130;
constexpr int kInfo = 134;
constexpr unsigned kPoolSize = 256 * 1024;
constexpr const char* kHelper = "rt_priority_helper";
constexpr const char* kEntered = "thread has entered the real-time zone";
// An errno that no scheduler call of these tests gives by itself.
constexpr int kMarkError = EDOM;

bool Privileged() { return geteuid() == 0; }

constexpr const char* kNeedsRoot = "entering SCHED_FIFO needs root (CAP_SYS_NICE)";

// "policy=N priority=N" of the calling process.
void PrintScheduling() {
  sched_param param{};
  sched_getparam(0, &param);
  printf("policy=%d\npriority=%d\n", sched_getscheduler(0), param.sched_priority);
}

// Whether a scheduler call named name would still fail with kMarkError: true when nothing made
// that call since the failure was set up.
bool MarkStillPending(const char* name) {
  return nuv::kernel::Make(nuv::kernel::Call{name, -1, 0, false}, [] { return 0; }).error ==
         kMarkError;
}

// A thread object adopting the calling process, in an anonymous pool of its own.
NuvThread* AdoptProcess(const char* name) {
  NuvMempool* pool = nullptr;
  if (NuvMempool::Allocate("rt", kPoolSize, false, nullptr, false, pool) != kNuvOk) {
    return nullptr;
  }
  return new (pool) NuvThread(name);
}

Fields RunInChildExpectingSuccess(const std::function<void()>& body) {
  const ChildOutcome outcome = nuv::test::RunInChild(body);
  EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.out << outcome.err;
  return nuv::test::FieldsOf(outcome.out);
}

struct HelperRun {
  ChildOutcome outcome;
  Fields fields;
  int pid;
};

HelperRun RunHelper(const std::vector<std::string>& args,
                    const std::vector<std::string>& env = {}) {
  HelperRun run{nuv::test::RunProgramWithEnvironment(HelperPath(kHelper), args, env), {}, 0};
  EXPECT_TRUE(run.outcome.Exited() && run.outcome.ExitCode() == 0)
      << run.outcome.out << run.outcome.err;
  for (const std::string& line : nuv::test::Lines(run.outcome.out)) {
    int pid = 0;
    int policy = 0;
    int priority = 0;
    char levels[64] = {};
    if (sscanf(line.c_str(), "pid=%d policy=%d priority=%d levels=%63s", &pid, &policy, &priority,
               levels) == 4) {
      run.pid = pid;
      run.fields = {{"policy", std::to_string(policy)},
                    {"priority", std::to_string(priority)},
                    {"levels", levels}};
    }
  }
  return run;
}

class SetRTPriority : public ::testing::Test {
 protected:
  void TearDown() override { nuv::kernel::FailNextForTesting(nullptr, 0, 0); }
};

TEST_F(SetRTPriority, ViewerRunsTheProcessFirstInFirstOutAtPriorityFive) {
  if (!Privileged()) {
    GTEST_SKIP() << kNeedsRoot;
  }
  const Fields fields = RunInChildExpectingSuccess([] {
    NuvThread* thread = AdoptProcess("viewer");
    thread->SetRTPriority(NuvThread::viewer);
    PrintScheduling();
    thread->SetRTPriority(NuvThread::standard);
  });
  EXPECT_EQ(FieldOf(fields, "policy"), std::to_string(SCHED_FIFO));
  EXPECT_EQ(FieldOf(fields, "priority"), "5");
}

TEST_F(SetRTPriority, StandardReturnsAFirstInFirstOutProcessToTimeSharing) {
  if (!Privileged()) {
    GTEST_SKIP() << kNeedsRoot;
  }
  const Fields fields = RunInChildExpectingSuccess([] {
    NuvThread* thread = AdoptProcess("viewer");
    thread->SetRTPriority(NuvThread::viewer);
    thread->SetRTPriority(NuvThread::standard);
    PrintScheduling();
  });
  EXPECT_EQ(FieldOf(fields, "policy"), std::to_string(SCHED_OTHER));
  EXPECT_EQ(FieldOf(fields, "priority"), "0");
}

TEST_F(SetRTPriority, StandardOnATimeSharingProcessMakesNoSchedulerCall) {
  const Fields fields = RunInChildExpectingSuccess([] {
    NuvThread* thread = AdoptProcess("plain");
    nuv::kernel::FailNextForTesting("sched_setscheduler", kMarkError);
    thread->SetRTPriority(NuvThread::standard);
    printf("untouched=%d\n", MarkStillPending("sched_setscheduler") ? 1 : 0);
    PrintScheduling();
  });
  EXPECT_EQ(FieldOf(fields, "untouched"), "1");
  EXPECT_EQ(FieldOf(fields, "policy"), std::to_string(SCHED_OTHER));
}

TEST_F(SetRTPriority, ClassSevenIsRecordedWithoutTouchingTheScheduler) {
  const Fields fields = RunInChildExpectingSuccess([] {
    NuvThread* thread = AdoptProcess("seven");
    const auto seven = static_cast<NuvThread::rtPri>(7);
    nuv::kernel::FailNextForTesting("sched_setscheduler", kMarkError);
    thread->SetRTPriority(seven);
    printf("set_untouched=%d\n", MarkStillPending("sched_setscheduler") ? 1 : 0);
    nuv::kernel::FailNextForTesting("sched_getscheduler", kMarkError);
    thread->SetRTPriority(seven);
    printf("get_untouched=%d\n", MarkStillPending("sched_getscheduler") ? 1 : 0);
    printf("recorded=%d\n", static_cast<int>(thread->GetRtPriority()));
    PrintScheduling();
  });
  EXPECT_EQ(FieldOf(fields, "set_untouched"), "1");
  EXPECT_EQ(FieldOf(fields, "get_untouched"), "1");
  EXPECT_EQ(FieldOf(fields, "recorded"), "7");
  EXPECT_EQ(FieldOf(fields, "policy"), std::to_string(SCHED_OTHER));
}

TEST_F(SetRTPriority, NegativeLevelNicesTheCallingProcess) {
  const Fields fields = RunInChildExpectingSuccess([] {
    NuvThread* thread = AdoptProcess("nice");
    const int before = getpriority(PRIO_PROCESS, 0);
    nuv::SetClassPriorityForTesting(NuvThread::standard, -3);
    thread->SetRTPriority(NuvThread::standard);
    printf("raised=%d\n", getpriority(PRIO_PROCESS, 0) - before);
  });
  EXPECT_EQ(FieldOf(fields, "raised"), "3");
}

TEST_F(SetRTPriority, WithoutThePrivilegeLogsThePermissionError) {
  const HelperRun run = RunHelper({"1", "nopriv", "unprivileged"});
  EXPECT_EQ(nuv::test::LogRecords(run.outcome.out, kCrit, "nopriv", run.pid),
            std::vector<std::string>{"unable to invoke real-time scheduling, error = 1"});
  EXPECT_EQ(FieldOf(run.fields, "policy"), std::to_string(SCHED_OTHER));
}

TEST_F(SetRTPriority, ProcessNeverLaunchedLogsUnderTheThreadsOwnName) {
  if (!Privileged()) {
    GTEST_SKIP() << kNeedsRoot;
  }
  const HelperRun run = RunHelper({"1", "ownname"});
  EXPECT_EQ(nuv::test::LogRecords(run.outcome.out, kInfo, "ownname", run.pid),
            std::vector<std::string>{kEntered});
  EXPECT_EQ(FieldOf(run.fields, "policy"), std::to_string(SCHED_FIFO));
}

TEST_F(SetRTPriority, RtpriViewerThirtyLeavesViewerAtFive) {
  const HelperRun run = RunHelper({"1", "viewer"}, {"NUV_RTPRI=viewer=30"});
  EXPECT_EQ(FieldOf(run.fields, "levels"), "0,5,10,15,20");
  if (Privileged()) {
    EXPECT_EQ(FieldOf(run.fields, "policy"), std::to_string(SCHED_FIFO));
    EXPECT_EQ(FieldOf(run.fields, "priority"), "5");
  }
}

TEST_F(SetRTPriority, RtpriOfSeveralOverridesChangesNoLevel) {
  const HelperRun run = RunHelper({"0", "viewer"}, {"NUV_RTPRI=none=0:switcher=40\nviewer=30"});
  EXPECT_EQ(FieldOf(run.fields, "levels"), "0,5,10,15,20");
}

// A launched thread's records carry the name it was launched under, even after a rename.
int EnterViewerRenamed(long /*arg*/) {
  pCurrentThreadG->SetName("renamed");
  pCurrentThreadG->SetRTPriority(NuvThread::viewer);
  pCurrentThreadG->SetRTPriority(NuvThread::standard);
  return 0;
}

TEST_F(SetRTPriority, LaunchedThreadLogsUnderItsLaunchName) {
  if (!Privileged()) {
    GTEST_SKIP() << kNeedsRoot;
  }
  const ChildOutcome outcome = nuv::test::RunInChild([] {
    const nuv::test::ScopedPoolPrefix prefix;
    NuvMempool* pool = nullptr;
    if (NuvMempool::Allocate("rtlaunch", kPoolSize, true, nullptr, true, pool) != kNuvOk) {
      return;
    }
    pCurrentThreadG = new (pool) NuvThread("tester");
    pCurrentThreadG->UpRef();
    auto* thread = new (pool) NuvThread(EnterViewerRenamed, "launched");
    thread->UpRef();
    if (thread->Start(0) == 0) {
      thread->Join();
      printf("thread=%d\n", thread->GetId());
    }
    thread->DownRef();
    NuvThread* tester = pCurrentThreadG;
    pCurrentThreadG = nullptr;
    tester->DownRef();
    delete pool;
  });
  ASSERT_TRUE(outcome.Exited()) << outcome.out << outcome.err;
  const int pid = std::stoi(FieldOf(nuv::test::FieldsOf(outcome.out), "thread"));
  EXPECT_EQ(nuv::test::LogRecords(outcome.out, kInfo, "launched", pid),
            std::vector<std::string>{kEntered});
  EXPECT_TRUE(nuv::test::LogRecords(outcome.out, kInfo, "renamed", pid).empty());
}

TEST(MakeRTThread, SetsTheClassOfTheCurrentThread) {
  if (!Privileged()) {
    GTEST_SKIP() << kNeedsRoot;
  }
  const Fields fields = RunInChildExpectingSuccess([] {
    pCurrentThreadG = AdoptProcess("current");
    NuvThread::MakeRTThread(NuvThread::viewer);
    printf("recorded=%d\n", static_cast<int>(pCurrentThreadG->GetRtPriority()));
    PrintScheduling();
    NuvThread::MakeRTThread(NuvThread::standard);
  });
  EXPECT_EQ(FieldOf(fields, "recorded"), std::to_string(NuvThread::viewer));
  EXPECT_EQ(FieldOf(fields, "policy"), std::to_string(SCHED_FIFO));
  EXPECT_EQ(FieldOf(fields, "priority"), "5");
}

TEST(MakeRTThread, WithoutACurrentThreadDoesNothing) {
  const ChildOutcome outcome = nuv::test::RunInChild([] {
    pCurrentThreadG = nullptr;
    nuv::kernel::FailNextForTesting("sched_setscheduler", kMarkError);
    NuvThread::MakeRTThread(NuvThread::viewer);
    printf("untouched=%d\n", MarkStillPending("sched_setscheduler") ? 1 : 0);
    PrintScheduling();
  });
  ASSERT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.out << outcome.err;
  const Fields fields = nuv::test::FieldsOf(outcome.out);
  EXPECT_EQ(FieldOf(fields, "untouched"), "1");
  EXPECT_EQ(FieldOf(fields, "policy"), std::to_string(SCHED_OTHER));
  EXPECT_EQ(outcome.out.find("real-time"), std::string::npos);
}

}  // namespace
