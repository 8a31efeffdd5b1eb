/// \file Bad input to the thread entry points: each gets a documented result or a documented
/// assertion (docs/robustness.md).
#include <nuv/lockword.h>
#include <nuv/mempool.h>
#include <nuv/messenger.h>
#include <nuv/os_thread.h>
#include <nuv/status.h>
#include <nuv/thread.h>
#include <nuv/time.h>

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include "core/kernel.h"
#include "support/child_process.h"
#include "support/polling.h"
#include "support/process_state.h"
#include "support/shared_memory.h"
#include "thread/thread_pool.h"

namespace {

using nuv::test::ChildOutcome;
using nuv::test::ProcessState;
using nuv::test::RunInChild;
using nuv::test::SharedObject;
using nuv::test::SizeOfAPoolAskedFor;
using nuv::test::ThreadPoolTest;
using nuv::test::WaitUntil;

constexpr std::chrono::milliseconds kChildDeadline{5000};
constexpr int64_t kLargestTimeout = std::numeric_limits<int64_t>::max();
// 2^31 ms: negative when its millisecond count is taken as a signed 32-bit number.
constexpr int64_t kTwoTo31MillisecondsInNs = (int64_t{1} << 31) * 1000000;
constexpr int64_t kMinusOneSecond = -1000000000;
// Above any process id the kernel hands out.
constexpr int kPidThatDoesNotExist = INT_MAX;
// An errno that no scheduler call gives: a failure injected with it is still pending when the
// call was not made.
constexpr int kMarkError = EDOM;

// What a thread or child saw, in memory that the test reads.
struct Seen {
  volatile int ready;
  volatile int result;
  volatile unsigned unsignedResult;
  volatile unsigned type;
  unsigned poolSize;
  char poolName[NuvMempool::kNameSize];
  volatile int done;
};

Seen* SeenOf(long arg) { return reinterpret_cast<Seen*>(arg); }
long ArgOf(Seen* seen) { return reinterpret_cast<long>(seen); }

// Makes the failure injected for the call happen now: true when it was still pending.
bool MarkStillPending(const char* name) {
  return nuv::kernel::Make(nuv::kernel::Call{name, -1, 0, false}, [] { return 0; }).error ==
         kMarkError;
}

int ReturnFortyTwo(long /*arg*/) { return 42; }

int LookAtItsPool(long arg) {
  Seen* seen = SeenOf(arg);
  NuvMempool* pool = pCurrentThreadG->GetPool();
  seen->poolSize = pool->GetSize();
  snprintf(seen->poolName, sizeof seen->poolName, "%s", pool->GetName());
  seen->done = 1;
  return 0;
}

int BlockWithTheLargestTimeOut(long arg) {
  NuvTime noWait(0);
  // The first block makes the thread's semaphore, so that an early unblock has one to post.
  pCurrentThreadG->block(nullptr, &noWait);
  SeenOf(arg)->ready = 1;
  NuvTime largest(kLargestTimeout);
  SeenOf(arg)->result = pCurrentThreadG->block(nullptr, &largest);
  return 0;
}

int ReceiveWithTheLargestTimeOut(long arg) {
  NuvTime largest(kLargestTimeout);
  NuvMessage message{};
  SeenOf(arg)->ready = 1;
  SeenOf(arg)->unsignedResult = pCurrentThreadG->inext(message, 0, &largest);
  SeenOf(arg)->type = message.type;
  return 0;
}

::testing::AssertionResult ExitedWith(const ChildOutcome& outcome, int code) {
  if (!outcome.timedOut && outcome.Exited() && outcome.ExitCode() == code) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure()
         << (outcome.timedOut ? "killed at its deadline" : "ended otherwise") << ", status "
         << outcome.status << ": " << outcome.err;
}

// A child of the calling process that exits with code after a moment.
int ForkExitingChild(int code) {
  const int pid = fork();
  if (pid == 0) {
    usleep(50000);
    _exit(code);
  }
  return pid;
}

int ExitCodeOf(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

class ThreadRobustness : public ThreadPoolTest {};
using OsThreadRobustness = ThreadPoolTest;

// --- NuvThread ---

TEST_F(ThreadRobustness, JoinedTwiceReturnsZeroAtOnceTheSecondTime) {
  NuvThread* thread = MakeThread(ReturnFortyTwo, "twice");
  ASSERT_EQ(thread->Start(0), 0U);
  EXPECT_EQ(thread->Join(), 0);
  EXPECT_EQ(thread->Join(), 0);
  EXPECT_EQ(thread->GetState() & NuvThread::kDead, NuvThread::kDead);
  thread->DownRef();
}

// The pool of an unshared thread is anonymous: its name is only a label, and a null one is
// taken as empty. Size 0 gives the smallest pool there is, one page less its header.
TEST_F(ThreadRobustness, StartUnsharedWithANullOrEmptyPoolNameAndSizeZeroRunsInTheSmallestPool) {
  for (const char* poolName : {static_cast<const char*>(nullptr), ""}) {
    SharedObject<Seen> seen;
    NuvThread* thread = MakeThread(LookAtItsPool, "small");
    ASSERT_EQ(thread->StartUnshared(ArgOf(&*seen), poolName, 0), 0U);
    const int status = NuvOsThread::Wait(thread->GetId(), nullptr);
    EXPECT_EQ(ExitCodeOf(status), 0);
    ASSERT_EQ(seen->done, 1);
    EXPECT_EQ(seen->poolSize, SizeOfAPoolAskedFor(0));
    EXPECT_EQ(std::string(seen->poolName), "");
    thread->DownRef();
  }
}

TEST_F(ThreadRobustness, BackgroundThreadWithANullPidStartsTheThread) {
  SharedObject<Seen> seen;
  const ChildOutcome outcome = RunInChild(
      [&seen] {
        const unsigned started =
            NuvThread::BackgroundThread(LookAtItsPool, ArgOf(&*seen), "nopid", 0, nullptr);
        // The thread is this process's only child.
        const int status = NuvOsThread::Wait(-1, nullptr);
        _exit(started == 0 && ExitCodeOf(status) == 0 ? 0 : 1);
      },
      kChildDeadline);
  EXPECT_TRUE(ExitedWith(outcome, 0));
  EXPECT_EQ(seen->done, 1);
}

TEST_F(ThreadRobustness, SleepWithNegativeTicksReturnsAtOnce) {
  const ChildOutcome outcome = RunInChild(
      [] {
        NuvThread::Sleep(-1);
        NuvThread::Sleep(INT_MIN);
      },
      kChildDeadline);
  EXPECT_TRUE(ExitedWith(outcome, 0)) << "a negative tick count sleeps";
}

// Class 7 lies past the five classes: it is recorded and selects no scheduling.
TEST_F(ThreadRobustness, MakeRTThreadOfClassSevenRecordsItWithoutTouchingTheScheduler) {
  const ChildOutcome outcome = RunInChild(
      [this] {
        const auto seven = static_cast<NuvThread::rtPri>(7);
        pCurrentThreadG = Tester();
        nuv::kernel::FailNextForTesting("sched_setscheduler", kMarkError);
        NuvThread::MakeRTThread(seven);
        const bool setUntouched = MarkStillPending("sched_setscheduler");
        nuv::kernel::FailNextForTesting("sched_getscheduler", kMarkError);
        NuvThread::MakeRTThread(seven);
        const bool getUntouched = MarkStillPending("sched_getscheduler");
        _exit(setUntouched && getUntouched && Tester()->GetRtPriority() == seven ? 0 : 1);
      },
      kChildDeadline);
  EXPECT_TRUE(ExitedWith(outcome, 0));
}

TEST_F(ThreadRobustness, BlockWithANegativeTimeOutReturnsMinusOneAtOnceAndReleasesTheWord) {
  NuvTime timeout(kMinusOneSecond);
  EXPECT_EQ(Tester()->block(nullptr, &timeout), -1);
  volatile NuvLock held = 1;
  EXPECT_EQ(Tester()->block(&held, &timeout), -1);
  EXPECT_EQ(held, 0U);
}

TEST_F(ThreadRobustness, BlockWithATimeOutOf2To31MillisecondsReturnsMinusOneAtOnce) {
  NuvThread* tester = Tester();
  const ChildOutcome outcome = RunInChild(
      [tester] {
        NuvTime timeout(kTwoTo31MillisecondsInNs);
        _exit(tester->block(nullptr, &timeout) == -1 ? 0 : 1);
      },
      kChildDeadline);
  EXPECT_TRUE(ExitedWith(outcome, 0)) << "a time-out of 2^31 ms waits";
}

TEST_F(ThreadRobustness, BlockWithTheLargestTimeOutWakesWhenAnotherProcessUnblocks) {
  auto* seen = Shared<Seen>();
  seen->result = -5;
  NuvThread* thread = MakeThread(BlockWithTheLargestTimeOut, "sleeper");
  ASSERT_EQ(thread->Start(ArgOf(seen)), 0U);
  ASSERT_TRUE(WaitUntil([seen] { return seen->ready == 1; }));
  ASSERT_TRUE(WaitUntil([thread] { return ProcessState(thread->GetId()) == 'S'; }));
  thread->unblock();
  thread->Join();
  EXPECT_EQ(seen->result, 1);
  thread->DownRef();
}

TEST_F(ThreadRobustness, IsendIgnoresANegativeAndTheLargestTimeOut) {
  NuvMessage first{1, {}};
  NuvMessage second{2, {}};
  NuvTime negative(kMinusOneSecond);
  NuvTime largest(kLargestTimeout);
  EXPECT_EQ(Tester()->isend(first, 0, &negative), kNuvMessageDone);
  EXPECT_EQ(Tester()->SendMessage(second, &largest), kNuvMessageDone);
  NuvMessage received{};
  EXPECT_EQ(Tester()->inext(received, 1, nullptr), kNuvMessageDone);
  EXPECT_EQ(received.type, 1U);
  EXPECT_EQ(Tester()->inext(received, 1, nullptr), kNuvMessageDone);
  EXPECT_EQ(received.type, 2U);
}

// With noWait set the time-out is not passed on at all.
TEST_F(ThreadRobustness, InextWithANegativeTimeOutReturnsTimedOutOrEmptyAtOnce) {
  NuvTime timeout(kMinusOneSecond);
  NuvMessage received{};
  EXPECT_EQ(Tester()->inext(received, 0, &timeout), kNuvReceiveTimedOut);
  EXPECT_EQ(Tester()->NextMessage(received, &timeout), kNuvReceiveTimedOut);
  EXPECT_EQ(Tester()->inext(received, 1, &timeout), kNuvQueueEmpty);
  NuvMessage sent{6, {}};
  ASSERT_EQ(Tester()->isend(sent, 0, nullptr), kNuvMessageDone);
  EXPECT_EQ(Tester()->NextMessage(received, &timeout), kNuvMessageDone);
  EXPECT_EQ(received.type, 6U);
}

TEST_F(ThreadRobustness, InextWithATimeOutOf2To31MillisecondsReturnsTimedOutAtOnce) {
  NuvThread* tester = Tester();
  const ChildOutcome outcome = RunInChild(
      [tester] {
        NuvTime timeout(kTwoTo31MillisecondsInNs);
        NuvMessage received{};
        _exit(tester->inext(received, 0, &timeout) == kNuvReceiveTimedOut ? 0 : 1);
      },
      kChildDeadline);
  EXPECT_TRUE(ExitedWith(outcome, 0)) << "a time-out of 2^31 ms waits";
}

TEST_F(ThreadRobustness, InextWithTheLargestTimeOutWaitsUntilAMessageIsSent) {
  auto* seen = Shared<Seen>();
  NuvThread* thread = MakeThread(ReceiveWithTheLargestTimeOut, "receiver");
  ASSERT_EQ(thread->Start(ArgOf(seen)), 0U);
  ASSERT_TRUE(WaitUntil([seen] { return seen->ready == 1; }));
  ASSERT_TRUE(WaitUntil([thread] { return ProcessState(thread->GetId()) == 'S'; }));
  NuvMessage sent{8, {}};
  EXPECT_EQ(thread->SendMessage(sent, nullptr), kNuvMessageDone);
  thread->Join();
  EXPECT_EQ(seen->unsignedResult, kNuvMessageDone);
  EXPECT_EQ(seen->type, 8U);
  thread->DownRef();
}

// --- NuvOsThread ---

TEST_F(OsThreadRobustness, KillFreezeAndUnFreezeOfAPidThatDoesNotExistReturnMinusOne) {
  errno = 0;
  EXPECT_EQ(NuvOsThread::Kill(kPidThatDoesNotExist), -1);
  EXPECT_EQ(errno, ESRCH);
  EXPECT_EQ(NuvOsThread::Freeze(kPidThatDoesNotExist), -1);
  EXPECT_EQ(NuvOsThread::UnFreeze(kPidThatDoesNotExist), -1);
}

TEST_F(OsThreadRobustness, AliveOfMinusOneAndOfAPidThatDoesNotExistIsNoSuchProcess) {
  EXPECT_EQ(NuvOsThread::Alive(-1), kNuvNotActive);
  EXPECT_EQ(NuvOsThread::Alive(kPidThatDoesNotExist), kNuvNotActive);
}

// The pid goes to kill(2) as it is: 0 is the caller's process group. The child makes a group
// of its own first, and signals nothing unless it leads one.
TEST_F(OsThreadRobustness, KillOfZeroEndsTheCallersWholeProcessGroup) {
  SharedObject<Seen> seen;
  const ChildOutcome outcome = RunInChild(
      [&seen] {
        if (setpgid(0, 0) != 0 || getpgrp() != getpid()) {
          _exit(2);
        }
        const int member = fork();
        if (member == 0) {
          for (;;) {
            pause();
          }
        }
        seen->result = member;
        seen->ready = 1;
        NuvOsThread::Kill(0);
        _exit(3);
      },
      kChildDeadline);
  ASSERT_TRUE(outcome.Signalled()) << "status " << outcome.status;
  EXPECT_EQ(outcome.Signal(), SIGKILL);
  ASSERT_EQ(seen->ready, 1);
  const int member = seen->result;
  EXPECT_TRUE(WaitUntil([member] {
    const char state = ProcessState(member);
    return state == '?' || state == 'Z';
  })) << "the other member of the group lives on";
}

TEST_F(OsThreadRobustness, FreezeOfZeroStopsTheCallersWholeProcessGroup) {
  const int leader = fork();
  if (leader == 0) {
    if (setpgid(0, 0) != 0 || getpgrp() != getpid()) {
      _exit(2);
    }
    NuvOsThread::Freeze(0);
    _exit(3);
  }
  int status = 0;
  ASSERT_EQ(waitpid(leader, &status, WUNTRACED), leader);
  EXPECT_TRUE(WIFSTOPPED(status)) << "status " << status;
  EXPECT_EQ(WIFSTOPPED(status) ? WSTOPSIG(status) : 0, SIGSTOP);
  kill(leader, SIGCONT);
  ASSERT_EQ(waitpid(leader, &status, 0), leader);
  EXPECT_EQ(ExitCodeOf(status), 3);
}

TEST_F(OsThreadRobustness, UnFreezeOfZeroContinuesTheCallersGroupAndReturnsZero) {
  const ChildOutcome outcome = RunInChild(
      [] {
        if (setpgid(0, 0) != 0 || getpgrp() != getpid()) {
          _exit(2);
        }
        _exit(NuvOsThread::UnFreeze(0) == 0 ? 0 : 1);
      },
      kChildDeadline);
  EXPECT_TRUE(ExitedWith(outcome, 0));
}

// kill(2) takes -1 as every process the caller may signal but itself: as root, every process
// of the system. The call is made only as process 1 of a process-id namespace of its own, where
// "every process" is the one other member that the test made.
constexpr int kNoNamespace = 77;

int SignalEveryProcessInANamespace(int (*operation)(int), int expectedSignal, bool stops) {
  if (unshare(CLONE_NEWPID) != 0) {
    return kNoNamespace;
  }
  const int init = fork();
  if (init == 0) {
    if (getpid() != 1) {
      _exit(2);
    }
    const int member = fork();
    if (member == 0) {
      for (;;) {
        pause();
      }
    }
    const int result = operation(-1);
    int status = 0;
    const bool reached = waitpid(member, &status, stops ? WUNTRACED : 0) == member &&
                         (stops ? WIFSTOPPED(status) && WSTOPSIG(status) == expectedSignal
                                : WIFSIGNALED(status) && WTERMSIG(status) == expectedSignal);
    kill(member, SIGKILL);
    _exit(result == 0 && reached ? 0 : 1);
  }
  int status = 0;
  if (init < 0 || waitpid(init, &status, 0) != init) {
    return 3;
  }
  return ExitCodeOf(status);
}

TEST_F(OsThreadRobustness, KillAndFreezeOfMinusOneSignalEveryOtherProcessTheCallerMaySignal) {
  for (const bool stops : {false, true}) {
    const ChildOutcome outcome = RunInChild(
        [stops] {
          _exit(stops ? SignalEveryProcessInANamespace(NuvOsThread::Freeze, SIGSTOP, true)
                      : SignalEveryProcessInANamespace(NuvOsThread::Kill, SIGKILL, false));
        },
        kChildDeadline);
    if (outcome.Exited() && outcome.ExitCode() == kNoNamespace) {
      GTEST_SKIP() << "no process-id namespace can be made here";
    }
    EXPECT_TRUE(ExitedWith(outcome, 0)) << (stops ? "Freeze" : "Kill");
  }
}

// waitpid(2) takes 0 as any child of the caller's group and -1 as any child at all.
TEST_F(OsThreadRobustness, WaitOfZeroAndMinusOneWithoutChildrenReturnsMinusOne) {
  const ChildOutcome outcome = RunInChild(
      [] {
        const bool failed = NuvOsThread::Wait(0, nullptr) == NuvOsThread::kWaitFailed &&
                            NuvOsThread::Wait(-1, nullptr) == NuvOsThread::kWaitFailed;
        _exit(failed ? 0 : 1);
      },
      kChildDeadline);
  EXPECT_TRUE(ExitedWith(outcome, 0));
}

TEST_F(OsThreadRobustness, WaitOfZeroAndMinusOneReapAnyChild) {
  const ChildOutcome outcome = RunInChild(
      [] {
        ForkExitingChild(5);
        const int first = ExitCodeOf(NuvOsThread::Wait(-1, nullptr));
        ForkExitingChild(6);
        const int second = ExitCodeOf(NuvOsThread::Wait(0, nullptr));
        _exit(first == 5 && second == 6 ? 0 : 1);
      },
      kChildDeadline);
  EXPECT_TRUE(ExitedWith(outcome, 0));
}

TEST_F(OsThreadRobustness, WaitOfAPidThatDoesNotExistReturnsMinusOne) {
  EXPECT_EQ(NuvOsThread::Wait(kPidThatDoesNotExist, nullptr), NuvOsThread::kWaitFailed);
  NuvTime timeout(kLargestTimeout);
  const ChildOutcome outcome = RunInChild(
      [&timeout] {
        _exit(NuvOsThread::Wait(kPidThatDoesNotExist, &timeout) == NuvOsThread::kWaitFailed ? 0
                                                                                            : 1);
      },
      kChildDeadline);
  EXPECT_TRUE(ExitedWith(outcome, 0));
}

// Below one millisecond, a negative value included, the time-out means no limit.
TEST_F(OsThreadRobustness, WaitWithANegativeTimeOutWaitsWithoutLimitForTheChild) {
  const ChildOutcome outcome = RunInChild(
      [] {
        NuvTime timeout(kMinusOneSecond);
        const int pid = ForkExitingChild(4);
        _exit(ExitCodeOf(NuvOsThread::Wait(pid, &timeout)) == 4 ? 0 : 1);
      },
      kChildDeadline);
  EXPECT_TRUE(ExitedWith(outcome, 0));
}

// The timer is armed for years; the child's end comes first, and the timer is taken down.
TEST_F(OsThreadRobustness, WaitWithTheLargestTimeOutReapsTheChildAndLeavesNoTimerArmed) {
  const ChildOutcome outcome = RunInChild(
      [] {
        NuvTime timeout(kLargestTimeout);
        const int pid = ForkExitingChild(4);
        const int code = ExitCodeOf(NuvOsThread::Wait(pid, &timeout));
        itimerval left{};
        getitimer(ITIMER_REAL, &left);
        struct sigaction alarm {};
        sigaction(SIGALRM, nullptr, &alarm);
        const bool disarmed = left.it_value.tv_sec == 0 && left.it_value.tv_usec == 0;
        _exit(code == 4 && disarmed && alarm.sa_handler == SIG_IGN ? 0 : 1);
      },
      kChildDeadline);
  EXPECT_TRUE(ExitedWith(outcome, 0));
}

// buf holds len + 1 characters; the guard bytes after them stay as they were.
TEST_F(OsThreadRobustness, GetExternalNameWithLenZeroWritesOnlyTheTerminatingZero) {
  for (const int pid : {static_cast<int>(getpid()), kPidThatDoesNotExist}) {
    char buf[8];
    memset(buf, '#', sizeof buf);
    NuvOsThread::GetExternalName(pid, buf, 0);
    EXPECT_EQ(buf[0], '\0') << pid;
    EXPECT_EQ(std::string(buf + 1, sizeof buf - 1), "#######") << pid;
  }
}

TEST_F(OsThreadRobustness, GetExternalNameWithATinyLenIsCutToLenCharacters) {
  char buf[8];
  memset(buf, '#', sizeof buf);
  NuvOsThread::GetExternalName(kPidThatDoesNotExist, buf, 4);
  EXPECT_EQ(std::string(buf), "2147");
  EXPECT_EQ(std::string(buf + 5, 3), "###");

  char expected[8] = {};
  FILE* cmdline = fopen("/proc/self/cmdline", "r");
  ASSERT_NE(cmdline, nullptr);
  ASSERT_EQ(fread(expected, 1, 3, cmdline), 3U);
  fclose(cmdline);
  memset(buf, '#', sizeof buf);
  NuvOsThread::GetExternalName(getpid(), buf, 3);
  EXPECT_EQ(std::string(buf), std::string(expected, strnlen(expected, 3)));
  EXPECT_EQ(buf[3], '\0');
  EXPECT_EQ(std::string(buf + 4, 4), "####");
}

// --- NuvTime ---

TEST(TimeRobustness, LargestAndSmallestValuesRoundTrip) {
  EXPECT_EQ(NuvTime(std::numeric_limits<int64_t>::max()).Nanoseconds(),
            std::numeric_limits<int64_t>::max());
  EXPECT_EQ(NuvTime(std::numeric_limits<int64_t>::min()).Nanoseconds(),
            std::numeric_limits<int64_t>::min());
  EXPECT_EQ(NuvTime(-1).Nanoseconds(), -1);
}

// Nothing is normalised: microseconds of a million or more simply add their nanoseconds.
TEST(TimeRobustness, FromTimevalWithAMillionMicrosecondsOrMoreCarriesIntoSeconds) {
  EXPECT_EQ(NuvTime::FromTimeval(1, 1500000).Nanoseconds(), 2500000000LL);
  EXPECT_EQ(NuvTime::FromTimeval(0, std::numeric_limits<uint32_t>::max()).Nanoseconds(),
            4294967295000LL);
}

TEST(TimeRobustness, FromTimevalOfTheLargestSecondsAndMicrosecondsStaysPositive) {
  constexpr uint32_t kLargest = std::numeric_limits<uint32_t>::max();
  EXPECT_EQ(NuvTime::FromTimeval(kLargest, kLargest).Nanoseconds(),
            4294967295000000000LL + 4294967295000LL);
}

}  // namespace
