/// \file NuvThread: starting shared threads, their end, joining them, and what they own.
#include <nuv/messenger.h>
#include <nuv/os_thread.h>
#include <nuv/thread.h>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>
#include <chrono>
#include <string>
#include <thread>

#include "support/fatal_report.h"
#include "support/polling.h"
#include "support/pool_usage.h"
#include "thread/thread_pool.h"

namespace {

using nuv::test::ThreadPoolTest;
using nuv::test::WaitUntil;

// What a thread and its test tell each other, in the shared pool.
struct Mailbox {
  volatile int ran;
  volatile int seen;
  volatile int pid;
  volatile unsigned result;
};

Mailbox* MailboxOf(long arg) { return reinterpret_cast<Mailbox*>(arg); }
long ArgOf(Mailbox* mailbox) { return reinterpret_cast<long>(mailbox); }

int MarkRan(long arg) {
  MailboxOf(arg)->ran = 1;
  return 0;
}

int ReturnFortyTwo(long /*arg*/) { return 42; }

int LookAtOwnQueue(long arg) {
  NuvMessage message{};
  MailboxOf(arg)->result = pCurrentThreadG->inext(message, 1, nullptr);
  return 0;
}

class Thread : public ThreadPoolTest {};

TEST_F(Thread, StartedAfterHoldRunDoesNotRunItsEntryUntilReleaseRun) {
  auto* mailbox = Shared<Mailbox>();
  NuvThread* thread = MakeThread(MarkRan, "held");
  thread->HoldRun();
  ASSERT_EQ(thread->Start(ArgOf(mailbox)), 0U);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(mailbox->ran, 0);
  thread->ReleaseRun();
  EXPECT_EQ(thread->Join(), 0);
  EXPECT_EQ(mailbox->ran, 1);
  thread->DownRef();
}

TEST_F(Thread, ItsQueueExistsBeforeItsEntryRuns) {
  auto* mailbox = Shared<Mailbox>();
  NuvThread* thread = MakeThread(LookAtOwnQueue, "queued");
  ASSERT_EQ(thread->Start(ArgOf(mailbox)), 0U);
  thread->Join();
  EXPECT_EQ(mailbox->result, kNuvQueueEmpty);
  EXPECT_EQ(thread->GetQueueId(), thread->GetId() + 0x60000000);
  thread->DownRef();
}

TEST_F(Thread, JoinOnAThreadWhoseEntryReturnedReturnsItsStatusAtOnce) {
  auto* mailbox = Shared<Mailbox>();
  NuvThread* thread = MakeThread(MarkRan, "quick");
  ASSERT_EQ(thread->Start(ArgOf(mailbox)), 0U);
  ASSERT_TRUE(WaitUntil([thread] { return (thread->GetState() & NuvThread::kDead) != 0; }));
  EXPECT_EQ(thread->Join(), 0);
  EXPECT_EQ(thread->GetState() & NuvThread::kRunning, 0U);
  thread->DownRef();
}

TEST_F(Thread, EntryResultReachesWaitAsTheExitCode) {
  auto* thread = new (Pool()) NuvThread(ReturnFortyTwo, "answer");
  thread->UpRef();
  thread->Emancipate();
  ASSERT_EQ(thread->Start(0), 0U);
  EXPECT_EQ(thread->Join(), 0);
  const int status = NuvOsThread::Wait(thread->GetId(), nullptr);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 42);
  thread->DownRef();
}

// The object is left to the pool: the child started it, so its count is no longer the test's.
TEST_F(Thread, StartedTwiceStopsAtAssertion237OfStart) {
  NuvThread* thread = MakeThread(ReturnFortyTwo, "twice");
  const nuv::test::FatalReport report = nuv::test::RunToFatalReport([thread] {
    pCurrentThreadG = nullptr;
    thread->Start(0);
    thread->Start(0);
  });
  nuv::test::ExpectLibraryAssertion(report, "Start", 237);
}

TEST_F(Thread, JoinedWithoutAStartStopsAtAssertion560OfJoin) {
  NuvThread* thread = MakeThread(ReturnFortyTwo, "never");
  const nuv::test::FatalReport report = nuv::test::RunToFatalReport([thread] { thread->Join(); });
  nuv::test::ExpectLibraryAssertion(report, "Join", 560);
  thread->DownRef();
}

TEST_F(Thread, NameOfFortyCharactersIsKeptAsItsFirstThirtyOne) {
  const std::string name(40, 'n');
  NuvThread* thread = MakeThread(ReturnFortyTwo, name.c_str());
  EXPECT_EQ(std::string(thread->GetName()), name.substr(0, 31));
  thread->DownRef();
}

TEST_F(Thread, SleepOfSixtyTicksSleepsAtLeast999960Microseconds) {
  const auto start = std::chrono::steady_clock::now();
  NuvThread::Sleep(60);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::microseconds(999960));
}

TEST_F(Thread, AdoptingTheProcessMakesItRunningWithItsQueueAndAGroup) {
  EXPECT_EQ(Tester()->GetState(), NuvThread::kRunning);
  EXPECT_EQ(Tester()->GetId(), getpid());
  EXPECT_NE(Tester()->PThreadGroup(), nullptr);
  EXPECT_EQ(Tester()->PParent(), nullptr);
  NuvMessage message{};
  EXPECT_EQ(Tester()->inext(message, 1, nullptr), kNuvQueueEmpty);
}

TEST_F(Thread, StartedThreadJoinsItsParentsGroupAndCountsAsItsChild) {
  NuvThread* thread = MakeThread(ReturnFortyTwo, "child");
  NuvThread* parent = thread->PParent();
  EXPECT_EQ(parent, Tester());
  parent->DownRef();
  ASSERT_EQ(thread->Start(0), 0U);
  EXPECT_EQ(thread->PThreadGroup(), Tester()->PThreadGroup());
  EXPECT_EQ(Tester()->GetChildCount(), 1);
  thread->Join();
  thread->DownRef();
  EXPECT_EQ(Tester()->GetChildCount(), 0);
}

TEST_F(Thread, UnstartedThreadReleasedLeavesItsParentsCountAlone) {
  NuvThread* thread = MakeThread(ReturnFortyTwo, "unstarted");
  thread->DownRef();
  EXPECT_EQ(Tester()->GetChildCount(), 0);
}

int ReleaseOwnObjectLate(long arg) {
  NuvThread* self = pCurrentThreadG;
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  MailboxOf(arg)->ran = 1;
  pCurrentThreadG = nullptr;
  self->DownRef();
  return 0;
}

TEST_F(Thread, ParentsDestructorWaitsUntilItsChildrenAreGone) {
  auto* mailbox = Shared<Mailbox>();
  NuvThread* thread = MakeThread(ReleaseOwnObjectLate, "orphan");
  ASSERT_EQ(thread->Start(ArgOf(mailbox)), 0U);
  const int pid = thread->GetId();
  ReleaseTester();
  EXPECT_EQ(mailbox->ran, 1);
  NuvOsThread::Wait(pid, nullptr);
}

int WaitForOneMessage(long /*arg*/) {
  NuvMessage message{};
  return static_cast<int>(pCurrentThreadG->NextMessage(message, nullptr));
}

TEST_F(Thread, TwentyThreadsStartedAndJoinedLeaveThePoolsUsageAsBefore) {
  const std::vector<unsigned> before = nuv::test::InUse(Pool());
  for (int round = 0; round < 20; ++round) {
    NuvThread* thread = MakeThread(WaitForOneMessage, "round");
    ASSERT_EQ(thread->Start(0), 0U);
    NuvMessage message{7, {}};
    ASSERT_EQ(thread->SendMessage(message, nullptr), kNuvMessageDone);
    thread->Join();
    thread->DownRef();
  }
  EXPECT_EQ(nuv::test::InUse(Pool()), before);
}

}  // namespace
