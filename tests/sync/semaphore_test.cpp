/// \file NuvSema and its wait queue: P and V within one process and between forked processes.
#include <nuv/logger.h>
#include <nuv/semaphore.h>
#include <nuv/status.h>
#include <nuv/thread_queue.h>

#include <gtest/gtest.h>

#include <sys/time.h>
#include <unistd.h>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/durations.h"
#include "support/fatal_report.h"
#include "support/log_lines.h"
#include "support/polling.h"
#include "support/round_trips.h"
#include "support/shared_memory.h"
#include "support/shared_pool.h"

namespace {

using nuv::test::Milliseconds;

using nuv::test::ChildOutcome;
using nuv::test::ChildProcess;
using nuv::test::ExpectLibraryAssertion;
using nuv::test::FatalReport;
using nuv::test::KeepsGoingTo;
using nuv::test::RoundTrips;
using nuv::test::RunToFatalReport;
using nuv::test::SharedObject;
using nuv::test::SharedPoolTest;
using nuv::test::WaitUntil;
using Clock = std::chrono::steady_clock;

constexpr const char* kPoolName = "semaphore";
constexpr unsigned kPoolSize = 64 * 1024;
constexpr int kMaxWaiters = NuvThreadQMgr::kBlocks;
constexpr int64_t kNanosecondsPerMillisecond = 1000000;
constexpr std::chrono::milliseconds kStepDeadline{5000};
constexpr std::chrono::milliseconds kChildDeadline{5000};
// How long a word must stay held to show that nothing released it.
constexpr std::chrono::milliseconds kHoldPeriod{50};
// Priority value of the queue manager's records: facility "facnuv" (local0), priority "prierr".
constexpr int kErrRecordValue = 131;
// Longer than any test: a wait that armed its own time-out would have replaced it.
constexpr time_t kSentinelSeconds = 100;

// What the waiting children report, in memory the test sees.
struct Board {
  volatile int results[kMaxWaiters];
  volatile int wakeOrder[kMaxWaiters];
  volatile unsigned woken;
};

// Two processes taking turns: the number of turns taken and the turns taken out of order.
struct Rally {
  volatile unsigned turns;
  volatile unsigned outOfTurn;
};

// A lock word that a child holds into spsema, the round it has armed and its wake-ups.
struct Handoff {
  volatile NuvLock held;
  volatile unsigned armed;
  volatile unsigned wokenWithOne;
};

void SleepMs(long ms) {
  const timespec pause{0, ms * 1000000L};
  nanosleep(&pause, nullptr);
}

std::chrono::milliseconds MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
}

// The queue from its head; a cycle cannot make the walk endless.
std::vector<int> QueuedPids(const NuvSema* sema) {
  std::vector<int> pids;
  for (const NuvThreadQ* block = sema->GetHead();
       block != nullptr && pids.size() <= static_cast<size_t>(kMaxWaiters); block = block->next) {
    pids.push_back(block->pid);
  }
  return pids;
}

bool IsQueued(const NuvSema* sema, int pid) {
  const std::vector<int> pids = QueuedPids(sema);
  return std::find(pids.begin(), pids.end(), pid) != pids.end();
}

// Words of a semaphore: the table pointer and the seed, then count, head, tail, lock and flag.
constexpr unsigned kCountOffset = 12;
constexpr unsigned kLockOffset = 24;
constexpr unsigned kFlagOffset = 28;

volatile unsigned* WordOf(NuvSema* sema, unsigned offset) {
  return reinterpret_cast<volatile unsigned*>(reinterpret_cast<char*>(sema) + offset);
}

// A queue manager's lock word follows the seed, and the head of its free list the lock word.
constexpr unsigned kManagerLockOffset = 8;
constexpr unsigned kFreeListOffset = 12;

volatile unsigned* ManagerWord(NuvMempool* pool) {
  return reinterpret_cast<volatile unsigned*>(reinterpret_cast<char*>(pool->GetQBlockMgr()) +
                                              kManagerLockOffset);
}

int FreeQueueBlocks(const NuvThreadQMgr* manager) {
  const NuvThreadQ* block = *reinterpret_cast<const NuvThreadQ* const*>(
      reinterpret_cast<const char*>(manager) + kFreeListOffset);
  int count = 0;
  for (; block != nullptr && count <= kMaxWaiters; block = block->next) {
    ++count;
  }
  return count;
}

// ITIMER_REAL set far ahead, so that a wait arming its own time-out would show.
void ArmSentinelTimer() {
  itimerval sentinel{};
  sentinel.it_value.tv_sec = kSentinelSeconds;
  setitimer(ITIMER_REAL, &sentinel, nullptr);
}

// Disarms the sentinel and returns the whole seconds it had left.
time_t DisarmSentinelTimer() {
  const itimerval zero{};
  itimerval left{};
  setitimer(ITIMER_REAL, &zero, &left);
  return left.it_value.tv_sec;
}

// One P without limit, then its result and the waiter's place in the wake order.
void WaitAndRecord(NuvSema* sema, int slot, Board* board) {
  board->results[slot] = sema->psema(nullptr);
  board->wakeOrder[fadd(&board->woken, 1)] = slot;
}

void DoNothing(int /*signal*/) {}

// A handler that does nothing: the signal only ends a suspend.
void CatchSignal(int signal) {
  struct sigaction action {};
  action.sa_handler = DoNothing;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

bool Ignored(int signal) {
  struct sigaction current {};
  sigaction(signal, nullptr, &current);
  return current.sa_handler == SIG_IGN;
}

// Each test gets a named pool, so that its semaphores are shared with the children it forks.
class SharedPool : public SharedPoolTest {
 protected:
  SharedPool() : SharedPoolTest(kPoolName, kPoolSize) {}

  Board* Records() const { return &*boardM; }

  // Starts body in a child; true once that child's entry is in sema's queue.
  bool QueueProcess(NuvSema* sema, const std::function<void()>& body) {
    waitersM.push_back(std::make_unique<ChildProcess>(body));
    const int pid = waitersM.back()->Pid();
    return WaitUntil([sema, pid] { return IsQueued(sema, pid); });
  }

  bool QueueWaiter(NuvSema* sema, int slot) {
    Board* board = Records();
    return QueueProcess(sema, [sema, slot, board] { WaitAndRecord(sema, slot, board); });
  }

  // Queues slots 0 to count-1 in that order, each only after the one before it.
  bool QueueWaitersInTurn(NuvSema* sema, int count) {
    for (int slot = 0; slot < count; ++slot) {
      if (!QueueWaiter(sema, slot)) {
        return false;
      }
    }
    return true;
  }

  // A waiter that another signal can interrupt, and that then stays until a late wake-up has
  // run the wait's still-installed handler, which puts back the ignored action.
  bool QueueInterruptibleWaiter(NuvSema* sema) {
    Board* board = Records();
    return QueueProcess(sema, [sema, board] {
      CatchSignal(SIGUSR2);
      WaitAndRecord(sema, 0, board);
      while (!Ignored(SIGUSR1)) {
        SleepMs(1);
      }
    });
  }

  // A SIGUSR2 that lands before the waiter has reached its suspend only runs the handler, so
  // it is sent again until the wait has ended.
  bool InterruptUntilTheWaitEnds(int pid) const {
    Board* board = Records();
    return WaitUntil([board, pid] {
      if (board->woken > 0) {
        return true;
      }
      kill(pid, SIGUSR2);
      return false;
    });
  }

  int WaiterPid(int index) const { return waitersM[static_cast<size_t>(index)]->Pid(); }

  // One V at a time, each waiting until a waiter has recorded its wake-up.
  bool WakeInTurn(NuvSema* sema, int count) const {
    Board* board = Records();
    for (unsigned woken = 1; woken <= static_cast<unsigned>(count); ++woken) {
      if (sema->vsema() != 0 || !WaitUntil([board, woken] { return board->woken == woken; })) {
        return false;
      }
    }
    return true;
  }

  // Reaps every waiter within one deadline; true when all returned normally.
  bool WaitersExitedCleanly() {
    const auto giveUp = Clock::now() + kChildDeadline;
    bool clean = true;
    for (const auto& waiter : waitersM) {
      const auto left = std::max(Clock::duration::zero(), giveUp - Clock::now());
      const ChildOutcome outcome =
          waiter->Finish(std::chrono::duration_cast<std::chrono::milliseconds>(left));
      clean = clean && outcome.Exited() && outcome.ExitCode() == 0;
    }
    return clean;
  }

  std::vector<int> WakeOrder(int count) const {
    return {Records()->wakeOrder, Records()->wakeOrder + count};
  }
  std::vector<int> Results(int count) const {
    return {Records()->results, Records()->results + count};
  }

 private:
  SharedObject<Board> boardM;
  // Waiters still running when a test fails are ended (SIGKILL) by their ChildProcess.
  std::vector<std::unique_ptr<ChildProcess>> waitersM;
};

using Semaphore = SharedPool;
using ThreadQueueManager = SharedPool;

std::vector<int> Ascending(int count) {
  std::vector<int> values(static_cast<size_t>(count));
  std::iota(values.begin(), values.end(), 0);
  return values;
}

// Three waiters, each a process of its own.
constexpr int kThreeWaiters = 3;

TEST_F(Semaphore, PsemaOnCountOneReturnsZeroAndLeavesZero) {
  NuvSema* sema = NewSema(1);
  EXPECT_EQ(sema->psema(nullptr), 0);
  EXPECT_EQ(sema->GetCount(), 0);
  EXPECT_EQ(sema->GetHead(), nullptr);
}

TEST_F(Semaphore, PsemaWithFiveMsTimeoutOnZeroReturnsMinusOneAndLeavesZero) {
  NuvSema* sema = NewSema(0);
  NuvTime timeout = Milliseconds(5);
  EXPECT_EQ(sema->psema(&timeout), -1);
  EXPECT_EQ(sema->GetCount(), 0);
  EXPECT_EQ(sema->GetHead(), nullptr);
}

TEST_F(Semaphore, PsemaWithFiveMsTimeoutDoesNotWait) {
  NuvSema* sema = NewSema(0);
  NuvTime timeout = Milliseconds(5);
  ArmSentinelTimer();
  sema->psema(&timeout);
  EXPECT_GT(DisarmSentinelTimer(), kSentinelSeconds / 2);
}

TEST_F(Semaphore, PsemaWithTimeoutJustBelowTenMsDoesNotWait) {
  NuvSema* sema = NewSema(0);
  NuvTime timeout(10 * kNanosecondsPerMillisecond - 1);
  ArmSentinelTimer();
  EXPECT_EQ(sema->psema(&timeout), -1);
  EXPECT_GT(DisarmSentinelTimer(), kSentinelSeconds / 2);
}

TEST_F(Semaphore, PsemaWithZeroTimeoutOnCountOneAcquires) {
  NuvSema* sema = NewSema(1);
  NuvTime timeout = Milliseconds(0);
  EXPECT_EQ(sema->psema(&timeout), 0);
  EXPECT_EQ(sema->GetCount(), 0);
}

TEST_F(Semaphore, PsemaWithTenMsTimeoutWaitsAtLeastTenMs) {
  NuvSema* sema = NewSema(0);
  NuvTime timeout = Milliseconds(10);
  const auto start = Clock::now();
  EXPECT_EQ(sema->psema(&timeout), -1);
  EXPECT_GE(MillisecondsSince(start).count(), 10);
}

TEST_F(Semaphore, PsemaWithFiftyMsTimeoutReturnsMinusOneNoEarlierThanFiftyMs) {
  NuvSema* sema = NewSema(0);
  NuvTime timeout = Milliseconds(50);
  const auto start = Clock::now();
  EXPECT_EQ(sema->psema(&timeout), -1);
  EXPECT_GE(MillisecondsSince(start).count(), 50);
}

TEST_F(Semaphore, TimedOutPsemaRestoresTheCountAndReturnsItsQueueBlock) {
  NuvSema* sema = NewSema(0);
  NuvTime timeout = Milliseconds(50);
  ASSERT_EQ(sema->psema(&timeout), -1);
  EXPECT_EQ(sema->GetCount(), 0);
  EXPECT_EQ(sema->GetHead(), nullptr);
  EXPECT_EQ(FreeQueueBlocks(Pool()->GetQBlockMgr()), kMaxWaiters);
}

TEST_F(Semaphore, TimedOutPsemaPutsBackTheIgnoredSignalActions) {
  NuvSema* sema = NewSema(0);
  NuvTime timeout = Milliseconds(50);
  ASSERT_EQ(sema->psema(&timeout), -1);
  EXPECT_TRUE(Ignored(SIGALRM));
  EXPECT_TRUE(Ignored(SIGUSR1));
}

TEST_F(Semaphore, TimedOutWaiterBehindAnotherLeavesOnlyTheOtherQueued) {
  NuvSema* sema = NewSema(0);
  ASSERT_TRUE(QueueWaiter(sema, 0));
  NuvTime timeout = Milliseconds(50);
  ASSERT_EQ(sema->psema(&timeout), -1);
  EXPECT_EQ(sema->GetCount(), -1);
  EXPECT_EQ(QueuedPids(sema), std::vector<int>{WaiterPid(0)});
  ASSERT_TRUE(WakeInTurn(sema, 1));
  EXPECT_TRUE(WaitersExitedCleanly());
  EXPECT_EQ(Results(1), std::vector<int>{1});
  EXPECT_EQ(sema->GetCount(), 0);
}

TEST_F(Semaphore, WaiterQueuedAfterATimedOutTailIsWokenInTurn) {
  NuvSema* sema = NewSema(0);
  ASSERT_TRUE(QueueWaiter(sema, 0));
  NuvTime timeout = Milliseconds(50);
  ASSERT_EQ(sema->psema(&timeout), -1);
  ASSERT_TRUE(QueueWaiter(sema, 1));
  EXPECT_EQ(QueuedPids(sema), (std::vector<int>{WaiterPid(0), WaiterPid(1)}));
  ASSERT_TRUE(WakeInTurn(sema, 2));
  EXPECT_TRUE(WaitersExitedCleanly());
  EXPECT_EQ(Results(2), (std::vector<int>{1, 1}));
  EXPECT_EQ(sema->GetCount(), 0);
}

TEST_F(Semaphore, WaiterQueuesItsOwnPidAndLowersTheCount) {
  NuvSema* sema = NewSema(0);
  ASSERT_TRUE(QueueWaiter(sema, 0));
  EXPECT_EQ(sema->GetCount(), -1);
  EXPECT_EQ(QueuedPids(sema), std::vector<int>{WaiterPid(0)});
  ASSERT_TRUE(WakeInTurn(sema, 1));
  EXPECT_TRUE(WaitersExitedCleanly());
}

TEST_F(Semaphore, VFromAnotherProcessWakesTheWaiterWithOneAndLeavesZero) {
  NuvSema* sema = NewSema(0);
  ASSERT_TRUE(QueueWaiter(sema, 0));
  ChildProcess poster([sema] { sema->vsema(); });
  ASSERT_TRUE(poster.Finish(kChildDeadline).Exited());
  EXPECT_TRUE(WaitersExitedCleanly());
  EXPECT_EQ(Results(1), std::vector<int>{1});
  EXPECT_EQ(sema->GetCount(), 0);
  EXPECT_EQ(sema->GetHead(), nullptr);
}

TEST_F(Semaphore, VsemaThatWakesAWaiterReturnsTheKillResultZero) {
  NuvSema* sema = NewSema(0);
  ASSERT_TRUE(QueueWaiter(sema, 0));
  EXPECT_EQ(sema->vsema(), 0);
  EXPECT_TRUE(WaitersExitedCleanly());
}

TEST_F(Semaphore, VsemaWithoutWaitersReturnsZeroAndRaisesTheCount) {
  NuvSema* sema = NewSema(0);
  EXPECT_EQ(sema->vsema(), 0);
  EXPECT_EQ(sema->GetCount(), 1);
}

TEST_F(Semaphore, TwoWaitersAreWokenInArrivalOrder) {
  NuvSema* sema = NewSema(0);
  ASSERT_TRUE(QueueWaitersInTurn(sema, 2));
  ASSERT_TRUE(WakeInTurn(sema, 2));
  EXPECT_TRUE(WaitersExitedCleanly());
  EXPECT_EQ(WakeOrder(2), Ascending(2));
  EXPECT_EQ(Results(2), std::vector<int>(2, 1));
}

TEST_F(Semaphore, ThreeWaitersInThreeProcessesAreQueuedInArrivalOrder) {
  NuvSema* sema = NewSema(0);
  ASSERT_TRUE(QueueWaitersInTurn(sema, kThreeWaiters));
  EXPECT_EQ(QueuedPids(sema), (std::vector<int>{WaiterPid(0), WaiterPid(1), WaiterPid(2)}));
  EXPECT_EQ(sema->GetCount(), -kThreeWaiters);
  ASSERT_TRUE(WakeInTurn(sema, kThreeWaiters));
  EXPECT_TRUE(WaitersExitedCleanly());
}

TEST_F(Semaphore, ThreeWaitersInThreeProcessesAreWokenInArrivalOrder) {
  NuvSema* sema = NewSema(0);
  ASSERT_TRUE(QueueWaitersInTurn(sema, kThreeWaiters));
  ASSERT_TRUE(WakeInTurn(sema, kThreeWaiters));
  EXPECT_TRUE(WaitersExitedCleanly());
  EXPECT_EQ(WakeOrder(kThreeWaiters), Ascending(kThreeWaiters));
  EXPECT_EQ(Results(kThreeWaiters), std::vector<int>(kThreeWaiters, 1));
  EXPECT_EQ(sema->GetCount(), 0);
  EXPECT_EQ(sema->GetHead(), nullptr);
}

TEST_F(Semaphore, VwaiterWithoutWaitersReturnsZeroAndLeavesTheCount) {
  NuvSema* sema = NewSema(0);
  EXPECT_EQ(sema->vwaiter(), 0);
  EXPECT_EQ(sema->GetCount(), 0);
}

TEST_F(Semaphore, VwaiterWakesAWaiterOfAnotherProcessAndLeavesZero) {
  NuvSema* sema = NewSema(0);
  ASSERT_TRUE(QueueWaiter(sema, 0));
  EXPECT_EQ(sema->vwaiter(), 0);
  EXPECT_TRUE(WaitersExitedCleanly());
  EXPECT_EQ(Results(1), std::vector<int>{1});
  EXPECT_EQ(sema->GetCount(), 0);
}

// The time-out is only a safety net: a sssema that slept would have no one to wake it and would
// return -1, not 1.
TEST_F(Semaphore, SssemaWithThisAvailableAndAWaiterOnOtherReturnsOneWithoutSleeping) {
  NuvSema* self = NewSema(1);
  NuvSema* other = NewSema(0);
  ASSERT_TRUE(QueueWaiter(other, 0));
  NuvTime timeout = Milliseconds(1000);
  EXPECT_EQ(self->sssema(other, &timeout), 1);
  EXPECT_EQ(self->GetCount(), 0);
  EXPECT_TRUE(WaitersExitedCleanly());
  EXPECT_EQ(Results(1), std::vector<int>{1});
  EXPECT_EQ(other->GetCount(), 0);
}

TEST_F(Semaphore, SssemaWithThisAvailableAndNoWaiterOnOtherReturnsZero) {
  NuvSema* self = NewSema(1);
  NuvSema* other = NewSema(0);
  EXPECT_EQ(self->sssema(other, nullptr), 0);
  EXPECT_EQ(self->GetCount(), 0);
  EXPECT_EQ(other->GetCount(), 1);
}

// Takes a turn: turns alternate, the first player taking the even ones.
void TakeTurn(Rally* rally, unsigned parity) {
  if (rally->turns % 2 != parity) {
    fadd(&rally->outOfTurn, 1);
  }
  rally->turns = rally->turns + 1;
}

// Waits for its own semaphore, then in every round takes its turn and hands over to the peer
// with one sssema; the last round only signals the peer.
void Play(NuvSema* own, NuvSema* peer, unsigned parity, unsigned rounds, Rally* rally) {
  own->psema(nullptr);
  for (unsigned round = 1; round <= rounds; ++round) {
    TakeTurn(rally, parity);
    if (round < rounds) {
      own->sssema(peer, nullptr);
    } else {
      peer->vsema();
    }
  }
}

// Rounds of the usual run (NUV_HANDOFF_ROUND_TRIPS asks for more): a lost wake-up leaves both
// players asleep for good, and a player that backed off 5 ms on every turn would run past the
// test's time limit.
constexpr unsigned kRallyRounds = 10000;

TEST_F(Semaphore, SssemaHandsOffBetweenTwoProcessesWithoutALostWakeUp) {
  const unsigned rounds = RoundTrips(kRallyRounds);
  NuvSema* first = NewSema(1);
  NuvSema* second = NewSema(0);
  const SharedObject<Rally> rally;
  Rally* shared = &*rally;
  ChildProcess one([=] { Play(first, second, 0, rounds, shared); });
  ChildProcess two([=] { Play(second, first, 1, rounds, shared); });
  EXPECT_TRUE(KeepsGoingTo(2 * rounds, [shared] { return shared->turns; }))
      << "no turn for " << nuv::test::kStandstill.count() << " ms: turns taken " << rally->turns;
  const ChildOutcome oneOutcome = one.Finish(kStepDeadline);
  const ChildOutcome twoOutcome = two.Finish(kStepDeadline);
  ASSERT_TRUE(oneOutcome.Exited()) << "turns taken: " << rally->turns;
  ASSERT_TRUE(twoOutcome.Exited()) << "turns taken: " << rally->turns;
  EXPECT_EQ(rally->turns, 2 * rounds);
  EXPECT_EQ(rally->outOfTurn, 0U);
  EXPECT_EQ(first->GetCount(), 1);
  EXPECT_EQ(second->GetCount(), 0);
}

constexpr unsigned kHandoffRounds = 200;

// Takes the word, tells the test the round it is in and holds the word into spsema.
void HoldIntoSpsema(NuvSema* sema, Handoff* handoff, unsigned round) {
  uplock(&handoff->held);
  handoff->armed = round;
  if (sema->spsema(&handoff->held, nullptr) == 1) {
    fadd(&handoff->wokenWithOne, 1);
  }
}

// In each round the child holds the word into spsema; the test takes the word the moment it is
// free and posts at once. A V that came between the release and the queuing would be lost and
// leave the child asleep.
TEST_F(Semaphore, SpsemaReleasesTheHeldWordWithoutLosingAVSentRightAfter) {
  NuvSema* sema = NewSema(0);
  const SharedObject<Handoff> handoff;
  Handoff* shared = &*handoff;
  ChildProcess holder([sema, shared] {
    for (unsigned round = 1; round <= kHandoffRounds; ++round) {
      HoldIntoSpsema(sema, shared, round);
    }
  });
  for (unsigned round = 1; round <= kHandoffRounds; ++round) {
    ASSERT_TRUE(WaitUntil([shared, round] { return shared->armed == round; })) << round;
    uplock(&shared->held);
    upunlock(&shared->held);
    sema->vsema();
  }
  ASSERT_TRUE(holder.Finish(kChildDeadline).Exited());
  EXPECT_EQ(handoff->wokenWithOne, kHandoffRounds);
  EXPECT_EQ(sema->GetCount(), 0);
  EXPECT_EQ(handoff->held, 0U);
}

// While the test holds the semaphore's word, the child is stuck in spsema: the word it holds
// must still be held then, or a V could come between its release and the queuing.
TEST_F(Semaphore, SpsemaKeepsTheHeldWordUntilItHoldsTheSemaphoresWord) {
  NuvSema* sema = NewSema(0);
  const SharedObject<Handoff> handoff;
  Handoff* shared = &*handoff;
  uplock(WordOf(sema, kLockOffset));
  ChildProcess holder([sema, shared] { HoldIntoSpsema(sema, shared, 1); });
  ASSERT_TRUE(WaitUntil([shared] { return shared->armed == 1; }));
  EXPECT_FALSE(WaitUntil([shared] { return shared->held == 0; }, kHoldPeriod));
  upunlock(WordOf(sema, kLockOffset));
  ASSERT_TRUE(WaitUntil([sema, &holder] { return IsQueued(sema, holder.Pid()); }));
  // Released once the child has queued itself and released the semaphore's word.
  EXPECT_TRUE(WaitUntil([shared] { return shared->held == 0; }));
  sema->vsema();
  ASSERT_TRUE(holder.Finish(kChildDeadline).Exited());
  EXPECT_EQ(handoff->wokenWithOne, 1U);
}

// With the queue-block manager's word held by the test, a child in spsema has lowered the count
// but cannot queue itself. Its held word must still be held then: a sender that takes held
// next reads the count without the semaphore's word and must see the waiter.
TEST_F(Semaphore, SpsemaLowersTheCountAndQueuesBeforeReleasingHeld) {
  NuvSema* sema = NewSema(0);
  const SharedObject<Handoff> handoff;
  Handoff* shared = &*handoff;
  uplock(ManagerWord(Pool()));
  ChildProcess holder([sema, shared] { HoldIntoSpsema(sema, shared, 1); });
  ASSERT_TRUE(WaitUntil([sema] { return sema->GetCount() == -1; }));
  EXPECT_FALSE(WaitUntil([shared] { return shared->held == 0; }, kHoldPeriod));
  upunlock(ManagerWord(Pool()));
  ASSERT_TRUE(WaitUntil([sema, &holder] { return IsQueued(sema, holder.Pid()); }));
  EXPECT_TRUE(WaitUntil([shared] { return shared->held == 0; }));
  sema->vsema();
  ASSERT_TRUE(holder.Finish(kChildDeadline).Exited());
  EXPECT_EQ(handoff->wokenWithOne, 1U);
}

// What the other semaphore's waiter saw of this semaphore's queue when it woke.
struct Sighting {
  volatile int awakened;
  volatile int signallerQueued;
};

// The waiter woken by sssema's V needs this semaphore next, so sssema wakes it only once it has
// queued itself on this semaphore and released its word.
TEST_F(Semaphore, SssemaWakesTheOtherWaiterOnlyAfterQueuingItself) {
  NuvSema* self = NewSema(0);
  NuvSema* other = NewSema(0);
  const SharedObject<Sighting> sighting;
  Sighting* shared = &*sighting;
  ASSERT_TRUE(QueueProcess(other, [other, self, shared] {
    other->psema(nullptr);
    shared->signallerQueued = QueuedPids(self).size() == 1 ? 1 : 0;
    shared->awakened = 1;
    self->vsema();
  }));
  ChildProcess signaller([self, other] { self->sssema(other, nullptr); });
  ASSERT_TRUE(WaitUntil([shared] { return shared->awakened == 1; }));
  EXPECT_EQ(sighting->signallerQueued, 1);
  ASSERT_TRUE(signaller.Finish(kChildDeadline).Exited());
  EXPECT_TRUE(WaitersExitedCleanly());
}

// A V's SIGUSR1 can land after the waiter has queued itself and before it suspends; the wait
// must then end at once. Here the wake-up is made pending before the wait begins: a blocked
// signal stays pending even while it is ignored.
TEST_F(Semaphore, WakeUpPendingWhenTheWaiterSuspendsEndsTheWaitWithOne) {
  NuvSema* sema = NewSema(0);
  Board* board = Records();
  ChildProcess waiter([sema, board] {
    sigset_t wake{};
    sigemptyset(&wake);
    sigaddset(&wake, SIGUSR1);
    sigprocmask(SIG_BLOCK, &wake, nullptr);
    kill(getpid(), SIGUSR1);
    WaitAndRecord(sema, 0, board);
  });
  ASSERT_TRUE(waiter.Finish(kChildDeadline).Exited());
  EXPECT_EQ(Results(1), std::vector<int>{1});
}

TEST_F(Semaphore, InitLaysOutCountAndFlagAroundHeadTailAndLock) {
  NuvSema* sema = NewSema(0);
  sema->init(7, true);
  EXPECT_EQ(*WordOf(sema, kCountOffset), 7U);
  EXPECT_EQ(*WordOf(sema, kLockOffset), 0U);
  EXPECT_EQ(*WordOf(sema, kFlagOffset), 1U);
}

TEST_F(Semaphore, WaitEndedByAnotherSignalReturnsZeroAndLeavesTheEntryQueued) {
  NuvSema* sema = NewSema(0);
  ASSERT_TRUE(QueueInterruptibleWaiter(sema));
  ASSERT_TRUE(InterruptUntilTheWaitEnds(WaiterPid(0)));
  EXPECT_EQ(Results(1), std::vector<int>{0});
  EXPECT_EQ(sema->GetCount(), -1);
  EXPECT_EQ(QueuedPids(sema), std::vector<int>{WaiterPid(0)});
  sema->vsema();
  EXPECT_TRUE(WaitersExitedCleanly());
}

// The waiter leaves only once the V's SIGUSR1 has run the handler its wait left installed.
TEST_F(Semaphore, LaterVDequeuesTheEntryOfAWaitEndedByAnotherSignal) {
  NuvSema* sema = NewSema(0);
  ASSERT_TRUE(QueueInterruptibleWaiter(sema));
  ASSERT_TRUE(InterruptUntilTheWaitEnds(WaiterPid(0)));
  EXPECT_EQ(sema->vsema(), 0);
  EXPECT_EQ(sema->GetCount(), 0);
  EXPECT_EQ(sema->GetHead(), nullptr);
  EXPECT_TRUE(WaitersExitedCleanly());
}

TEST_F(Semaphore, BlockWithoutSemaphoreReturnsMinusOneNoEarlierThanTheTimeout) {
  NuvTime timeout = Milliseconds(50);
  const auto start = Clock::now();
  EXPECT_EQ(_block_(nullptr, &timeout), -1);
  EXPECT_GE(MillisecondsSince(start).count(), 50);
}

TEST_F(Semaphore, BlockWithoutSemaphoreAndAFiveMsTimeoutDoesNotWait) {
  NuvTime timeout = Milliseconds(5);
  ArmSentinelTimer();
  EXPECT_EQ(_block_(nullptr, &timeout), -1);
  EXPECT_GT(DisarmSentinelTimer(), kSentinelSeconds / 2);
}

TEST_F(Semaphore, DeleteThisWithoutWaitersFreesTheSemaphore) {
  const unsigned before = Pool()->GetInfo().Word(NuvMempoolInfo::kBlocks);
  NuvSema* sema = NewSema(0);
  sema->DeleteThis();
  EXPECT_EQ(Pool()->GetInfo().Word(NuvMempoolInfo::kBlocks), before);
}

// The dying child leaves the semaphore's word held, so no V can reach the waiter any more: its
// ChildProcess ends it.
TEST_F(Semaphore, DestroyingASemaphoreWithAWaiterStopsAtAssertion803) {
  NuvSema* sema = NewSema(0);
  ASSERT_TRUE(QueueWaiter(sema, 0));
  const FatalReport report = RunToFatalReport([sema] { sema->DeleteThis(); });
  ExpectLibraryAssertion(report, "NuvSema", 803);
}

// The V gives the word back before the check, but the waiter it dequeued is then never sent its
// wake-up: its ChildProcess ends it.
TEST_F(Semaphore, VThatDequeuesAPidBelowOneStopsAtAssertion500) {
  NuvSema* sema = NewSema(0);
  ASSERT_TRUE(QueueWaiter(sema, 0));
  const FatalReport report = RunToFatalReport([sema] {
    // Should the check be missing, kill(0, ...) reaches only this child's own process group.
    setpgid(0, 0);
    sema->GetHead()->pid = 0;
    sema->vsema();
  });
  ExpectLibraryAssertion(report, "_unblock_", 500);
  EXPECT_EQ(sema->GetCount(), 0);
  EXPECT_EQ(sema->GetHead(), nullptr);
}

// The limit is the pool's stock of blocks, not a semaphore's: the 51st waiter waits on another
// semaphore of the same pool. It dies holding that semaphore's word, which is then left alone.
TEST_F(Semaphore, FiftyFirstWaiterInOnePoolStopsAtTheGetQBlockAssertion) {
  NuvSema* crowded = NewSema(0);
  ASSERT_TRUE(QueueWaitersInTurn(crowded, kMaxWaiters));
  EXPECT_EQ(FreeQueueBlocks(Pool()->GetQBlockMgr()), 0);
  NuvSema* another = NewSema(0);
  const FatalReport report = RunToFatalReport([another] { another->psema(nullptr); });
  ExpectLibraryAssertion(report, "GetQBlock", 2417);
  for (int waiter = 0; waiter < kMaxWaiters; ++waiter) {
    EXPECT_EQ(crowded->vsema(), 0);
  }
  EXPECT_TRUE(WaitersExitedCleanly());
  EXPECT_EQ(Results(kMaxWaiters), std::vector<int>(kMaxWaiters, 1));
  EXPECT_EQ(crowded->GetCount(), 0);
  EXPECT_EQ(FreeQueueBlocks(Pool()->GetQBlockMgr()), kMaxWaiters);
}

// Destroys manager in a child whose log entries go to standard output; returns the texts of its
// "threadQ" records.
std::vector<std::string> RecordsOfDestroying(NuvThreadQMgr* manager) {
  ChildProcess destroyer([manager] {
    NuvLogger::LogTty(true);
    delete manager;
  });
  const int pid = destroyer.Pid();
  const ChildOutcome outcome = destroyer.Finish(kChildDeadline);
  EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.err;
  return nuv::test::LogRecords(outcome.out, kErrRecordValue, "threadQ", pid);
}

// Takes one block in a child, which then leaves; returns the child's pid.
int TakeBlockInChild(NuvThreadQMgr* manager) {
  ChildProcess taker([manager] { manager->GetQBlock(); });
  const int pid = taker.Pid();
  EXPECT_TRUE(taker.Finish(kChildDeadline).Exited());
  return pid;
}

TEST_F(ThreadQueueManager, DestructorWithEveryBlockFreeLogsNothing) {
  auto* manager = new (Pool()) NuvThreadQMgr();
  EXPECT_TRUE(RecordsOfDestroying(manager).empty());
}

TEST_F(ThreadQueueManager, DestructorWithABlockReturnedLogsNothing) {
  auto* manager = new (Pool()) NuvThreadQMgr();
  manager->ReturnQBlock(manager->GetQBlock());
  EXPECT_TRUE(RecordsOfDestroying(manager).empty());
}

TEST_F(ThreadQueueManager, DestructorWithBlocksMissingLogsEveryWaitingPid) {
  auto* manager = new (Pool()) NuvThreadQMgr();
  const int first = TakeBlockInChild(manager);
  const int second = TakeBlockInChild(manager);
  std::vector<std::string> records = RecordsOfDestroying(manager);
  ASSERT_EQ(records.size(), 4U);
  EXPECT_EQ(records[0], "A mempool was destroyed while active threads were waiting");
  EXPECT_EQ(records[1], "on semaphores. These threads are:");
  std::sort(records.begin() + 2, records.end());
  std::vector<std::string> expected = {"   PID = " + std::to_string(first),
                                       "   PID = " + std::to_string(second)};
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(std::vector<std::string>(records.begin() + 2, records.end()), expected);
}

TEST_F(ThreadQueueManager, GetQBlockCarriesTheCallersPid) {
  NuvThreadQ* block = Pool()->GetQBlockMgr()->GetQBlock();
  EXPECT_EQ(block->pid, getpid());
  EXPECT_EQ(block->next, nullptr);
  Pool()->GetQBlockMgr()->ReturnQBlock(block);
}

TEST_F(ThreadQueueManager, ReturnQBlockClearsThePidAndRestoresTheStock) {
  NuvThreadQ* block = Pool()->GetQBlockMgr()->GetQBlock();
  EXPECT_EQ(FreeQueueBlocks(Pool()->GetQBlockMgr()), kMaxWaiters - 1);
  Pool()->GetQBlockMgr()->ReturnQBlock(block);
  EXPECT_EQ(block->pid, 0);
  EXPECT_EQ(FreeQueueBlocks(Pool()->GetQBlockMgr()), kMaxWaiters);
}

}  // namespace
