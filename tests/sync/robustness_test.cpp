/// \file Bad input to the sync entry points: each gets a documented result or a documented
/// assertion (docs/robustness.md).
#include <nuv/lockword.h>
#include <nuv/mempool.h>
#include <nuv/messenger.h>
#include <nuv/semaphore.h>
#include <nuv/shared_lock.h>
#include <nuv/status.h>
#include <nuv/thread_queue.h>
#include <nuv/time.h>

#include <gtest/gtest.h>

#include <unistd.h>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>

#include "support/child_process.h"
#include "support/durations.h"
#include "support/fatal_report.h"
#include "support/polling.h"
#include "support/raw_words.h"
#include "support/shared_memory.h"
#include "support/shared_pool.h"

namespace {

using nuv::test::ChildOutcome;
using nuv::test::ChildProcess;
using nuv::test::ExpectLibraryAssertion;
using nuv::test::FatalReport;
using nuv::test::Milliseconds;
using nuv::test::RunToFatalReport;
using nuv::test::SharedObject;
using nuv::test::SharedPoolTest;
using nuv::test::WaitUntil;

constexpr const char* kPoolName = "robustsync";
constexpr unsigned kPoolSize = 256 * 1024;
constexpr std::chrono::milliseconds kChildDeadline{5000};

// The largest time-out there is: its millisecond count, taken as 32 bits, stays positive, so a
// wait with it is armed for years.
constexpr int64_t kLargestTimeout = std::numeric_limits<int64_t>::max();
// 2^31 ms (about 24.9 days): taken as a signed 32-bit millisecond count it is negative, below
// the 10 ms under which nothing waits.
constexpr int64_t kTwoTo31Milliseconds = int64_t{1} << 31;
constexpr int64_t kMinusOneSecond = -1000000000;

// Offsets the pool format fixes: the messenger's counter of queue numbers and its list of
// queues; a queue's receive semaphore and link; a shared lock's drain semaphore.
constexpr unsigned kNextNumberOffset = 12;
constexpr unsigned kQueueListOffset = 16;
constexpr unsigned kReceiveSemaphoreOffset = 28;
constexpr unsigned kNextQueueOffset = 36;
constexpr unsigned kDrainOffset = 36;

// What a child saw, in memory that the parent reads.
struct Outcome {
  volatile int result;
  volatile unsigned unsignedResult;
  volatile int done;
  NuvMessage message;
};

::testing::AssertionResult Completed(const ChildOutcome& outcome) {
  if (outcome.Exited() && outcome.ExitCode() == 0 && !outcome.timedOut) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure()
         << (outcome.timedOut ? "killed at its deadline" : "failed") << ": " << outcome.err;
}

// The pointer stored at offset in object, as every process of the pool reads it.
template <typename T>
T* PointerAt(const void* object, unsigned offset) {
  return reinterpret_cast<T*>(nuv::test::WordAt(static_cast<const char*>(object) + offset));
}

const NuvSema* DrainOf(const NuvLockShared* lock) {
  return PointerAt<const NuvSema>(lock, kDrainOffset);
}

NuvMessage MessageOf(unsigned type) { return NuvMessage{type, {type + 1, type + 2}}; }

// A shared pool, so that the objects a test makes are seen by the children it forks.
class SyncRobustness : public SharedPoolTest {
 protected:
  SyncRobustness() : SharedPoolTest(kPoolName, kPoolSize) {}

  NuvMessenger* Queues() const { return Pool()->GetMessenger(); }

  NuvLockShared* NewLock() const { return new (Pool()) NuvLockShared; }

  const NuvSema* ReceiveSemaphoreOf(int number) const {
    const auto* queue = PointerAt<const NuvMessageQ>(Queues(), kQueueListOffset);
    while (queue != nullptr && queue->GetNumber() != number) {
      queue = PointerAt<const NuvMessageQ>(queue, kNextQueueOffset);
    }
    return queue != nullptr ? PointerAt<const NuvSema>(queue, kReceiveSemaphoreOffset) : nullptr;
  }
};

using SemaphoreRobustness = SyncRobustness;
using SharedLockRobustness = SyncRobustness;
using MessengerRobustness = SyncRobustness;

// --- NuvSema ---

// A negative count stands for waiters that are not there: a P that cannot wait gives its unit
// back and leaves the count as it was set.
TEST_F(SemaphoreRobustness, InitWithANegativeCountKeepsItAndAPsemaThatCannotWaitGivesItBack) {
  NuvSema* sema = NewSema(-2);
  EXPECT_EQ(sema->GetCount(), -2);
  EXPECT_EQ(sema->GetHead(), nullptr);
  NuvTime timeout(0);
  EXPECT_EQ(sema->psema(&timeout), -1);
  EXPECT_EQ(sema->GetCount(), -2);
  EXPECT_EQ(sema->GetHead(), nullptr);
  sema->DeleteThis();
}

// The V finds the count below 0 and dequeues a waiter from an empty queue: the pid 0 it gets
// fails _unblock_'s check.
TEST_F(SemaphoreRobustness, VsemaOnANegativeCountWithNobodyQueuedStopsAtAssertion500OfUnblock) {
  NuvSema* sema = NewSema(-1);
  const FatalReport report = RunToFatalReport([sema] {
    // Should the check be missing, kill(0, ...) reaches only this child's own process group.
    setpgid(0, 0);
    sema->vsema();
  });
  ExpectLibraryAssertion(report, "_unblock_", 500);
  EXPECT_EQ(sema->GetHead(), nullptr);
}

TEST_F(SemaphoreRobustness, VwaiterOnANegativeCountWithNobodyQueuedStopsAtAssertion500OfUnblock) {
  NuvSema* sema = NewSema(-1);
  const FatalReport report = RunToFatalReport([sema] {
    setpgid(0, 0);
    sema->vwaiter();
  });
  ExpectLibraryAssertion(report, "_unblock_", 500);
}

TEST_F(SemaphoreRobustness, PsemaWithANegativeTimeOutReturnsMinusOneAtOnceAndLeavesTheCount) {
  NuvSema* sema = NewSema(0);
  NuvTime timeout(kMinusOneSecond);
  EXPECT_EQ(sema->psema(&timeout), -1);
  EXPECT_EQ(sema->GetCount(), 0);
  EXPECT_EQ(sema->GetHead(), nullptr);
  sema->DeleteThis();
}

TEST_F(SemaphoreRobustness, PsemaWithANegativeTimeOutTakesAFreeUnit) {
  NuvSema* sema = NewSema(1);
  NuvTime timeout(kMinusOneSecond);
  EXPECT_EQ(sema->psema(&timeout), 0);
  EXPECT_EQ(sema->GetCount(), 0);
  sema->DeleteThis();
}

TEST_F(SemaphoreRobustness, PsemaWithAZeroTimeOutOnZeroReturnsMinusOneAtOnce) {
  NuvSema* sema = NewSema(0);
  NuvTime timeout(0);
  EXPECT_EQ(sema->psema(&timeout), -1);
  EXPECT_EQ(sema->GetCount(), 0);
  EXPECT_EQ(sema->GetHead(), nullptr);
  sema->DeleteThis();
}

TEST_F(SemaphoreRobustness, PsemaWithTheLargestTimeOutTakesAFreeUnitAtOnce) {
  NuvSema* sema = NewSema(1);
  NuvTime timeout(kLargestTimeout);
  EXPECT_EQ(sema->psema(&timeout), 0);
  EXPECT_EQ(sema->GetCount(), 0);
  sema->DeleteThis();
}

TEST_F(SemaphoreRobustness, PsemaWithTheLargestTimeOutWaitsUntilAnotherProcessPosts) {
  NuvSema* sema = NewSema(0);
  const SharedObject<Outcome> waiter;
  ChildProcess waiting([sema, &waiter] {
    NuvTime timeout(kLargestTimeout);
    waiter->result = sema->psema(&timeout);
    waiter->done = 1;
  });
  ASSERT_TRUE(WaitUntil([sema] { return sema->GetCount() == -1; })) << "the waiter never slept";
  EXPECT_EQ(waiter->done, 0);
  EXPECT_EQ(sema->vsema(), 0);
  ASSERT_TRUE(Completed(waiting.Finish(kChildDeadline)));
  EXPECT_EQ(waiter->result, 1);
  EXPECT_EQ(sema->GetCount(), 0);
  EXPECT_EQ(sema->GetHead(), nullptr);
}

// The millisecond count is taken as a signed 32-bit number: 2^31 ms becomes negative, and a
// time-out below 10 ms never waits.
TEST_F(SemaphoreRobustness, PsemaWithATimeOutOf2To31MillisecondsReturnsMinusOneAtOnce) {
  NuvSema* sema = NewSema(0);
  NuvTime timeout = Milliseconds(kTwoTo31Milliseconds);
  const ChildOutcome outcome = nuv::test::RunInChild(
      [sema, &timeout] { _exit(sema->psema(&timeout) == -1 ? 0 : 1); }, kChildDeadline);
  EXPECT_TRUE(Completed(outcome)) << "a time-out of 2^31 ms waits";
  EXPECT_EQ(sema->GetCount(), 0);
  EXPECT_EQ(sema->GetHead(), nullptr);
}

TEST_F(SemaphoreRobustness, ClnqOfAPidThatIsNotQueuedChangesNothing) {
  NuvSema* sema = NewSema(0);
  ChildProcess waiting([sema] { sema->psema(nullptr); });
  const int waiterPid = waiting.Pid();
  ASSERT_TRUE(WaitUntil([sema] { return sema->GetCount() == -1; }));
  sema->clnq(waiterPid + 1);
  sema->clnq(-1);
  sema->clnq(0);
  EXPECT_EQ(sema->GetCount(), -1);
  ASSERT_NE(sema->GetHead(), nullptr);
  EXPECT_EQ(sema->GetHead()->pid, waiterPid);
  EXPECT_EQ(sema->GetHead()->next, nullptr);
  EXPECT_EQ(sema->vsema(), 0);
  EXPECT_TRUE(Completed(waiting.Finish(kChildDeadline)));
}

TEST_F(SemaphoreRobustness, ClnqOnAnEmptyQueueChangesNothing) {
  NuvSema* sema = NewSema(3);
  sema->clnq(getpid());
  EXPECT_EQ(sema->GetCount(), 3);
  EXPECT_EQ(sema->GetHead(), nullptr);
  sema->DeleteThis();
}

TEST_F(SemaphoreRobustness, GetqOfAnEmptyQueueReturnsZeroAndChangesNothing) {
  NuvSema* sema = NewSema(0);
  EXPECT_EQ(sema->getq(), 0);
  EXPECT_EQ(sema->GetCount(), 0);
  EXPECT_EQ(sema->GetHead(), nullptr);
  sema->DeleteThis();
}

// --- NuvLockShared ---

// Nothing records who holds what: the unlock counts a reader that was never there.
TEST_F(SharedLockRobustness, ReadunlockWithoutAReadHoldReturnsZeroAndLeavesMinusOneReaders) {
  NuvLockShared* lock = NewLock();
  EXPECT_EQ(lock->readunlock(nullptr), 0);
  EXPECT_EQ(lock->GetReaders(), -1);
  EXPECT_EQ(lock->GetCount(), 1) << "the gate is given back";
  lock->DeleteThis();
}

// The gate opens to 2: two writers then hold the lock at once.
TEST_F(SharedLockRobustness, WriteunlockWithoutTheWriteLockReturnsZeroAndLetsTwoWritersIn) {
  NuvLockShared* lock = NewLock();
  EXPECT_EQ(lock->writeunlock(), 0);
  EXPECT_EQ(lock->GetCount(), 2);
  NuvTime noWait(0);
  EXPECT_EQ(lock->writelock(&noWait), 0);
  EXPECT_EQ(lock->writelock(&noWait), 0);
  EXPECT_EQ(lock->GetCount(), 0);
  lock->DeleteThis();
}

TEST_F(SharedLockRobustness, DemotelockWithoutTheWriteLockCountsAReaderAndOpensTheGateToTwo) {
  NuvLockShared* lock = NewLock();
  EXPECT_EQ(lock->demotelock(), 0);
  EXPECT_EQ(lock->GetReaders(), 1);
  EXPECT_EQ(lock->GetCount(), 2);
  lock->DeleteThis();
}

// With no read hold there are no readers to wait for: the caller gets the gate, as a writer.
TEST_F(SharedLockRobustness, PromotelockWithoutAReadHoldReturnsZeroHoldingTheGate) {
  NuvLockShared* lock = NewLock();
  EXPECT_EQ(lock->promotelock(nullptr), 0);
  EXPECT_EQ(lock->GetCount(), 0) << "the gate is held";
  EXPECT_EQ(lock->GetReaders(), 0);
  EXPECT_EQ(lock->GetPromoters(), 0);
  EXPECT_EQ(lock->writeunlock(), 0);
  EXPECT_EQ(lock->GetCount(), 1);
  lock->DeleteThis();
}

// A negative time-out is one that has run out: a free gate is still taken, a held one is not
// waited for.
TEST_F(SharedLockRobustness, NegativeTimeOutsTakeAFreeLockAndGiveMinusOneAtOnceOnAHeldOne) {
  NuvLockShared* lock = NewLock();
  NuvTime timeout(kMinusOneSecond);
  EXPECT_EQ(lock->readlock(&timeout), 0);
  EXPECT_EQ(lock->promotelock(&timeout), 0);
  EXPECT_EQ(lock->demotelock(), 0);
  EXPECT_EQ(lock->readunlock(&timeout), 0);
  EXPECT_EQ(lock->readunlock(&timeout), 0);
  EXPECT_EQ(lock->GetReaders(), 0);
  EXPECT_EQ(lock->writelock(&timeout), 0);
  EXPECT_EQ(lock->readlock(&timeout), -1);
  EXPECT_EQ(lock->readunlock(&timeout), -1);
  EXPECT_EQ(lock->writelock(&timeout), -1);
  EXPECT_EQ(lock->promotelock(&timeout), -1);
  EXPECT_EQ(lock->GetCount(), 0) << "the writer still holds the gate";
  EXPECT_EQ(lock->GetHead(), nullptr) << "nobody waits";
  EXPECT_EQ(lock->writeunlock(), 0);
  EXPECT_EQ(lock->GetCount(), 1);
  lock->DeleteThis();
}

TEST_F(SharedLockRobustness, TheLargestTimeOutTakesAFreeLockAtOnce) {
  NuvLockShared* lock = NewLock();
  NuvTime timeout(kLargestTimeout);
  EXPECT_EQ(lock->readlock(&timeout), 0);
  EXPECT_EQ(lock->promotelock(&timeout), 0);
  EXPECT_EQ(lock->demotelock(), 0);
  EXPECT_EQ(lock->readunlock(&timeout), 0);
  EXPECT_EQ(lock->readunlock(&timeout), 0);
  EXPECT_EQ(lock->writelock(&timeout), 0);
  EXPECT_EQ(lock->writeunlock(), 0);
  EXPECT_EQ(lock->GetCount(), 1);
  EXPECT_EQ(lock->GetReaders(), 0);
  lock->DeleteThis();
}

TEST_F(SharedLockRobustness, WritelockWithTheLargestTimeOutWaitsUntilAnotherProcessReaderLeaves) {
  NuvLockShared* lock = NewLock();
  ASSERT_EQ(lock->readlock(nullptr), 0);
  const SharedObject<Outcome> writer;
  ChildProcess writing([lock, &writer] {
    NuvTime timeout(kLargestTimeout);
    writer->result = lock->writelock(&timeout);
    writer->done = 1;
    lock->writeunlock();
  });
  // The writer gives the gate back and sleeps on the lock's drain semaphore.
  const NuvSema* drain = DrainOf(lock);
  ASSERT_TRUE(WaitUntil([drain] { return drain->GetCount() == -1; })) << "the writer never slept";
  EXPECT_EQ(writer->done, 0);
  EXPECT_EQ(lock->readunlock(nullptr), 0);
  ASSERT_TRUE(Completed(writing.Finish(kChildDeadline)));
  EXPECT_EQ(writer->result, 0);
  EXPECT_EQ(lock->GetCount(), 1);
  EXPECT_EQ(lock->GetReaders(), 0);
}

TEST_F(SharedLockRobustness, ReadlockWithATimeOutOf2To31MillisecondsOnAWriteHeldLockFailsAtOnce) {
  NuvLockShared* lock = NewLock();
  ASSERT_EQ(lock->writelock(nullptr), 0);
  NuvTime timeout = Milliseconds(kTwoTo31Milliseconds);
  const ChildOutcome outcome = nuv::test::RunInChild(
      [lock, &timeout] { _exit(lock->readlock(&timeout) == -1 ? 0 : 1); }, kChildDeadline);
  EXPECT_TRUE(Completed(outcome)) << "a time-out of 2^31 ms waits";
  EXPECT_EQ(lock->GetCount(), 0);
  EXPECT_EQ(lock->GetHead(), nullptr);
  EXPECT_EQ(lock->writeunlock(), 0);
}

// --- NuvMessenger ---

// The size only sets the size semaphore, which nothing waits on or signals.
TEST_F(MessengerRobustness, QueuesOfSizeZeroNegativeAndExtremeCarryMessagesAndGoCleanly) {
  for (const int size : {0, -1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
    const int number = Queues()->CreateQueue(size);
    NuvMessage sent = MessageOf(7);
    EXPECT_EQ(Queues()->isend(number, sent, 0, nullptr), kNuvMessageDone) << size;
    NuvMessage received{};
    EXPECT_EQ(Queues()->irecv(number, received, 1, nullptr), kNuvMessageDone) << size;
    EXPECT_EQ(received.type, 7U) << size;
    EXPECT_EQ(Queues()->DestroyQueue(number), kNuvMessageDone) << size;
  }
}

TEST_F(MessengerRobustness, NamedQueuesOfZeroAndNegativeNumbersWorkLikeAnyOther) {
  for (const int number : {0, -7, std::numeric_limits<int>::min()}) {
    EXPECT_EQ(Queues()->CreateNamedQueue(number, -5), kNuvMessageDone) << number;
    EXPECT_EQ(Queues()->CreateNamedQueue(number, 10), kNuvQueueNumberTaken) << number;
    NuvMessage sent = MessageOf(9);
    EXPECT_EQ(Queues()->isend(number, sent, 0, nullptr), kNuvMessageDone) << number;
    EXPECT_TRUE(Queues()->Peek(number, 9)) << number;
    NuvMessage received{};
    EXPECT_EQ(Queues()->irecv(number, received, 1, nullptr), kNuvMessageDone) << number;
    EXPECT_EQ(received.type, 9U) << number;
    EXPECT_EQ(Queues()->DestroyQueue(number), kNuvMessageDone) << number;
    EXPECT_EQ(Queues()->DestroyQueue(number), kNuvQueueNumberTaken) << number;
  }
}

TEST_F(MessengerRobustness, CreateQueueAfterTheLargestNumberWrapsToTheSmallest) {
  nuv::test::SetWordAt(reinterpret_cast<char*>(Queues()) + kNextNumberOffset,
                       static_cast<unsigned>(std::numeric_limits<int>::max()));
  EXPECT_EQ(Queues()->CreateQueue(1), std::numeric_limits<int>::max());
  EXPECT_EQ(Queues()->CreateQueue(1), std::numeric_limits<int>::min());
  EXPECT_EQ(Queues()->DestroyQueue(std::numeric_limits<int>::max()), kNuvMessageDone);
  EXPECT_EQ(Queues()->DestroyQueue(std::numeric_limits<int>::min()), kNuvMessageDone);
}

TEST_F(MessengerRobustness, IsendIgnoresANegativeAndTheLargestTimeOut) {
  const int number = Queues()->CreateQueue(10);
  NuvMessage first = MessageOf(1);
  NuvMessage second = MessageOf(2);
  NuvTime negative(kMinusOneSecond);
  NuvTime largest(kLargestTimeout);
  EXPECT_EQ(Queues()->isend(number, first, 0, &negative), kNuvMessageDone);
  EXPECT_EQ(Queues()->isend(number, second, 1, &largest), kNuvMessageDone);
  NuvMessage received{};
  EXPECT_EQ(Queues()->irecv(number, received, 1, nullptr), kNuvMessageDone);
  EXPECT_EQ(received.type, 1U);
  EXPECT_EQ(Queues()->irecv(number, received, 1, nullptr), kNuvMessageDone);
  EXPECT_EQ(received.type, 2U);
  EXPECT_EQ(Queues()->DestroyQueue(number), kNuvMessageDone);
}

TEST_F(MessengerRobustness, IrecvWithANegativeTimeOutTakesAQueuedMessageAndOtherwiseReturnsFour) {
  const int number = Queues()->CreateQueue(10);
  NuvTime timeout(kMinusOneSecond);
  NuvMessage received{};
  EXPECT_EQ(Queues()->irecv(number, received, 0, &timeout), kNuvReceiveTimedOut);
  NuvMessage sent = MessageOf(3);
  ASSERT_EQ(Queues()->isend(number, sent, 0, nullptr), kNuvMessageDone);
  EXPECT_EQ(Queues()->irecv(number, received, 0, &timeout), kNuvMessageDone);
  EXPECT_EQ(received.type, 3U);
  EXPECT_EQ(Queues()->DestroyQueue(number), kNuvMessageDone);
}

TEST_F(MessengerRobustness, IrecvWithATimeOutOf2To31MillisecondsOnAnEmptyQueueReturnsFourAtOnce) {
  const int number = Queues()->CreateQueue(10);
  NuvTime timeout = Milliseconds(kTwoTo31Milliseconds);
  NuvMessenger* queues = Queues();
  const ChildOutcome outcome = nuv::test::RunInChild(
      [queues, number, &timeout] {
        NuvMessage received{};
        _exit(queues->irecv(number, received, 0, &timeout) == kNuvReceiveTimedOut ? 0 : 1);
      },
      kChildDeadline);
  EXPECT_TRUE(Completed(outcome)) << "a time-out of 2^31 ms waits";
  EXPECT_EQ(Queues()->DestroyQueue(number), kNuvMessageDone);
}

TEST_F(MessengerRobustness, IrecvWithTheLargestTimeOutTakesAQueuedMessageAtOnce) {
  const int number = Queues()->CreateQueue(10);
  NuvMessage sent = MessageOf(4);
  ASSERT_EQ(Queues()->isend(number, sent, 0, nullptr), kNuvMessageDone);
  NuvTime timeout(kLargestTimeout);
  NuvMessage received{};
  EXPECT_EQ(Queues()->irecv(number, received, 0, &timeout), kNuvMessageDone);
  EXPECT_EQ(received.type, 4U);
  EXPECT_EQ(Queues()->DestroyQueue(number), kNuvMessageDone);
}

TEST_F(MessengerRobustness, IrecvWithTheLargestTimeOutWaitsUntilAnotherProcessSends) {
  const int number = Queues()->CreateQueue(10);
  NuvMessenger* queues = Queues();
  const SharedObject<Outcome> receiver;
  ChildProcess receiving([queues, number, &receiver] {
    NuvTime timeout(kLargestTimeout);
    NuvMessage message{};
    receiver->unsignedResult = queues->irecv(number, message, 0, &timeout);
    receiver->message = message;
    receiver->done = 1;
  });
  const NuvSema* receive = ReceiveSemaphoreOf(number);
  ASSERT_TRUE(WaitUntil([receive] { return receive->GetCount() == -1; }))
      << "the receiver never slept";
  NuvMessage sent = MessageOf(5);
  EXPECT_EQ(receiver->done, 0);
  EXPECT_EQ(Queues()->isend(number, sent, 0, nullptr), kNuvMessageDone);
  ASSERT_TRUE(Completed(receiving.Finish(kChildDeadline)));
  EXPECT_EQ(receiver->unsignedResult, kNuvMessageDone);
  EXPECT_EQ(receiver->message.type, 5U);
  EXPECT_EQ(Queues()->DestroyQueue(number), kNuvMessageDone);
}

}  // namespace
