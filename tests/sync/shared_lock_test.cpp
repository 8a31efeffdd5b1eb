/// \file NuvLockShared: readers, writers, promotion, demotion and time-outs across processes.
#include <nuv/lockword.h>
#include <nuv/mempool.h>
#include <nuv/semaphore.h>
#include <nuv/shared_lock.h>
#include <nuv/status.h>
#include <nuv/time.h>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "support/child_process.h"
#include "support/durations.h"
#include "support/polling.h"
#include "support/pool_prefix.h"
#include "support/pool_usage.h"
#include "support/raw_words.h"
#include "support/shared_memory.h"

namespace {

using nuv::test::InUse;
using nuv::test::Milliseconds;

using nuv::test::ChildOutcome;
using nuv::test::ChildProcess;
using nuv::test::ScopedPoolPrefix;
using nuv::test::SharedObject;
using nuv::test::WaitUntil;
using nuv::test::WordAt;
using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr const char* kPoolName = "sharedlock";
constexpr unsigned kPoolSize = 64 * 1024;
// The drain follows the gate and the two counts (the layout the pool format fixes).
constexpr unsigned kDrainOffset = 36;
// How long the parent waits for a child to reach a state or to end.
constexpr milliseconds kStepDeadline{3000};
constexpr int kHoldsUntilWrap = 32768;
// The four-process run: how long it lasts, how long each holder stays inside and pauses after.
constexpr milliseconds kStressRun{2000};
constexpr microseconds kHold{500};
constexpr microseconds kPause{500};
constexpr int64_t kWriterPatienceMs = 250;

// What a child saw, in memory that the parent reads.
struct Report {
  volatile unsigned go;    // raised by the parent to let the child go on
  volatile unsigned done;  // set by the child once its operation has returned
  volatile int result;     // the operation's result
  volatile int readers;    // the lock's counts right after it
  volatile int promoters;
  volatile int gate;
  volatile int64_t elapsedUs;  // how long the operation took
};

// Four processes' bookkeeping around the lock: who is inside, and what went wrong.
struct Occupancy {
  volatile unsigned readersInside;
  volatile unsigned writersInside;
  volatile unsigned violations;
  volatile unsigned readerOverlaps;
  volatile unsigned reads;
  volatile unsigned writes;
  volatile unsigned stop;
};

int64_t MicrosecondsOf(int64_t ms) { return ms * 1000; }

// In a child: waits until the parent has raised go to at least step (the parent's deadline
// ends a child that waits for ever).
void AwaitStep(const Report* report, unsigned step) {
  while (report->go < step) {
    std::this_thread::sleep_for(milliseconds(1));
  }
}

::testing::AssertionResult Completed(const ChildOutcome& outcome) {
  if (outcome.Exited() && outcome.ExitCode() == 0) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure()
         << (outcome.timedOut ? "killed at its deadline" : "failed") << ": " << outcome.err;
}

NuvSema* Drain(const NuvLockShared* lock) {
  return reinterpret_cast<NuvSema*>(WordAt(reinterpret_cast<const char*>(lock) + kDrainOffset));
}

unsigned NuvBlocks(const NuvMempool* pool) {
  return pool->GetInfo().Word(NuvMempoolInfo::kUserBlocks + NuvMempool::nuv);
}

// One pass of a reader: inside, no writer may be, and the other reader may.
void ReadOnce(NuvLockShared* lock, Occupancy* occupancy) {
  lock->readlock(nullptr);
  if (fadd(&occupancy->readersInside, 1) != 0) {
    fadd(&occupancy->readerOverlaps, 1);
  }
  const bool alone = occupancy->writersInside == 0;
  std::this_thread::sleep_for(kHold);
  if (!alone || occupancy->writersInside != 0) {
    fadd(&occupancy->violations, 1);
  }
  fadd(&occupancy->readersInside, -1);
  fadd(&occupancy->reads, 1);
  lock->readunlock(nullptr);
}

// One pass of a writer: inside, nobody else may be. The wait is bounded because the last
// reader's look at the drain is made without its lock word, so a wake-up can be missed by
// design; the writer then tries again instead of sleeping until some later reader leaves.
void WriteOnce(NuvLockShared* lock, Occupancy* occupancy) {
  NuvTime patience = Milliseconds(kWriterPatienceMs);
  if (lock->writelock(&patience) != 0) {
    return;
  }
  const bool alone = fadd(&occupancy->writersInside, 1) == 0 && occupancy->readersInside == 0 &&
                     lock->GetReaders() == 0;
  std::this_thread::sleep_for(kHold);
  if (!alone || occupancy->writersInside != 1 || occupancy->readersInside != 0) {
    fadd(&occupancy->violations, 1);
  }
  fadd(&occupancy->writersInside, -1);
  fadd(&occupancy->writes, 1);
  lock->writeunlock();
}

class SharedLock : public ::testing::Test {
 protected:
  void SetUp() override {
    // As in thread processes: a wake-up or time-out that arrives outside a wait is lost
    // harmlessly. Children inherit both.
    previousUsr1M = signal(SIGUSR1, SIG_IGN);
    previousAlrmM = signal(SIGALRM, SIG_IGN);
    ASSERT_EQ(NuvMempool::Allocate(kPoolName, kPoolSize, true, nullptr, true, poolM), kNuvOk);
    lockM = new (poolM) NuvLockShared();
  }
  void TearDown() override {
    // A child killed at its deadline may still be queued on the lock; destroying it then would
    // stop at the semaphore's assertion in this process, so it goes with the pool instead.
    if (lockM != nullptr && lockM->GetHead() == nullptr && Drain(lockM)->GetHead() == nullptr) {
      lockM->DeleteThis();
    }
    delete poolM;
    signal(SIGUSR1, previousUsr1M);
    signal(SIGALRM, previousAlrmM);
  }

  NuvLockShared* Lock() const { return lockM; }
  NuvMempool* Pool() const { return poolM; }
  int DrainCount() const { return Drain(lockM)->GetCount(); }

  // The counter behind the time-outs of writelock and promotelock calibrates once per process
  // (about half a second); doing it here lets every child inherit it.
  static void CalibrateTimeOuts() { NuvTimeCounter::initCounter(); }

  // Runs operation (a call on the lock returning its result) and records what it returned, how
  // long it took and the lock's counts right after it.
  template <typename Operation>
  void Record(Report* report, Operation operation) const {
    const auto start = Clock::now();
    report->result = operation();
    report->elapsedUs = std::chrono::duration_cast<microseconds>(Clock::now() - start).count();
    report->readers = lockM->GetReaders();
    report->promoters = lockM->GetPromoters();
    report->gate = lockM->GetCount();
    report->done = 1;
  }

  // Calibrates, takes a read hold here, and starts a second reader that promotes with a
  // time-out of ms, records the result in report, runs then() and gives its read hold back.
  std::unique_ptr<ChildProcess> StartTimedPromoter(Report* report, int64_t ms,
                                                   const std::function<void()>& then) {
    CalibrateTimeOuts();
    Lock()->readlock(nullptr);
    return std::make_unique<ChildProcess>([this, report, ms, then] {
      Lock()->readlock(nullptr);
      NuvTime timeout = Milliseconds(ms);
      Record(report, [this, &timeout] { return Lock()->promotelock(&timeout); });
      then();
      Lock()->readunlock(nullptr);
    });
  }

  // A child that repeats pass, with a pause after each, until the parent says stop.
  std::function<void()> Repeating(void (*pass)(NuvLockShared*, Occupancy*),
                                  Occupancy* occupancy) const {
    return [this, pass, occupancy] {
      while (occupancy->stop == 0) {
        pass(lockM, occupancy);
        std::this_thread::sleep_for(kPause);
      }
    };
  }

  // A child that takes a read lock, keeps it until go reaches step, then releases it.
  std::function<void()> ReaderUntil(const Report* report, unsigned step) const {
    return [this, report, step] {
      lockM->readlock(nullptr);
      AwaitStep(report, step);
      lockM->readunlock(nullptr);
    };
  }

 private:
  ScopedPoolPrefix prefixM;
  NuvMempool* poolM = nullptr;
  NuvLockShared* lockM = nullptr;
  sighandler_t previousUsr1M = SIG_DFL;
  sighandler_t previousAlrmM = SIG_DFL;
};

TEST_F(SharedLock, NewLockIsFree) {
  EXPECT_EQ(Lock()->GetCount(), 1);
  EXPECT_EQ(Lock()->GetHead(), nullptr);
  EXPECT_EQ(Lock()->GetReaders(), 0);
  EXPECT_EQ(Lock()->GetPromoters(), 0);
  EXPECT_EQ(DrainCount(), 0);
}

TEST_F(SharedLock, LockAndItsDrainAreTwoBlocksOfUserNuvThatDeleteThisFrees) {
  const std::vector<unsigned> before = InUse(Pool());
  const unsigned nuvBlocksBefore = NuvBlocks(Pool());
  auto* lock = new (Pool()) NuvLockShared();
  EXPECT_EQ(NuvBlocks(Pool()), nuvBlocksBefore + 2);
  lock->DeleteThis();
  EXPECT_EQ(InUse(Pool()), before);
}

TEST_F(SharedLock, ReadlockCountsTheReaderAndGivesTheGateBack) {
  EXPECT_EQ(Lock()->readlock(nullptr), 0);
  EXPECT_EQ(Lock()->GetReaders(), 1);
  EXPECT_EQ(Lock()->GetCount(), 1);
  Lock()->readunlock(nullptr);
}

TEST_F(SharedLock, ReadunlockOfTheLastReaderLeavesTheLockFree) {
  Lock()->readlock(nullptr);
  Lock()->readlock(nullptr);
  EXPECT_EQ(Lock()->readunlock(nullptr), 0);
  EXPECT_EQ(Lock()->readunlock(nullptr), 0);
  EXPECT_EQ(Lock()->GetReaders(), 0);
  EXPECT_EQ(Lock()->GetCount(), 1);
  EXPECT_EQ(DrainCount(), 0);
}

TEST_F(SharedLock, WriterSleepsUntilReadersOfTwoProcessesHaveBothUnlocked) {
  const SharedObject<Report> readers;
  const SharedObject<Report> writer;
  ChildProcess first(ReaderUntil(&*readers, 1));
  ChildProcess second(ReaderUntil(&*readers, 2));
  ASSERT_TRUE(WaitUntil([this] { return Lock()->GetReaders() == 2; }));
  ChildProcess writing([this, &writer] {
    Record(&*writer, [this] { return Lock()->writelock(nullptr); });
    Lock()->writeunlock();
  });
  ASSERT_TRUE(WaitUntil([this] { return DrainCount() == -1; })) << "writer never slept";
  readers->go = 1;
  ASSERT_TRUE(Completed(first.Finish(kStepDeadline)));
  EXPECT_EQ(Lock()->GetReaders(), 1);
  EXPECT_EQ(DrainCount(), -1) << "writer woke with a reader left";
  EXPECT_EQ(writer->done, 0U);
  readers->go = 2;
  ASSERT_TRUE(Completed(second.Finish(kStepDeadline)));
  ASSERT_TRUE(Completed(writing.Finish(kStepDeadline)));
  EXPECT_EQ(writer->result, 0);
  EXPECT_EQ(writer->readers, 0);
  EXPECT_EQ(writer->gate, 0) << "the writer holds the gate";
}

TEST_F(SharedLock, WritelockOnAFreeLockReturnsZeroAndHoldsTheGate) {
  EXPECT_EQ(Lock()->writelock(nullptr), 0);
  EXPECT_EQ(Lock()->GetCount(), 0);
  EXPECT_EQ(Lock()->GetReaders(), 0);
  Lock()->writeunlock();
  EXPECT_EQ(Lock()->GetCount(), 1);
}

TEST_F(SharedLock, ReadlockOfAnotherProcessWaitsUntilWriteunlock) {
  const SharedObject<Report> reader;
  ASSERT_EQ(Lock()->writelock(nullptr), 0);
  ChildProcess reading([this, &reader] {
    Record(&*reader, [this] { return Lock()->readlock(nullptr); });
    Lock()->readunlock(nullptr);
  });
  ASSERT_TRUE(WaitUntil([this] { return Lock()->GetCount() == -1; })) << "reader never queued";
  EXPECT_EQ(reader->done, 0U);
  Lock()->writeunlock();
  ASSERT_TRUE(Completed(reading.Finish(kStepDeadline)));
  EXPECT_EQ(reader->result, 0);
  EXPECT_EQ(reader->readers, 1);
  EXPECT_EQ(Lock()->GetReaders(), 0);
  EXPECT_EQ(Lock()->GetCount(), 1);
}

TEST_F(SharedLock, ReadunlockTimesOutWhileAWriterHoldsTheGateAndKeepsTheCount) {
  const SharedObject<Report> reader;
  constexpr int64_t kTimeoutMs = 50;
  ASSERT_EQ(Lock()->writelock(nullptr), 0);
  ChildProcess unlocking([this, &reader] {
    NuvTime timeout = Milliseconds(kTimeoutMs);
    Record(&*reader, [this, &timeout] { return Lock()->readunlock(&timeout); });
  });
  ASSERT_TRUE(Completed(unlocking.Finish(kStepDeadline)));
  EXPECT_EQ(reader->result, -1);
  EXPECT_GE(reader->elapsedUs, MicrosecondsOf(kTimeoutMs));
  EXPECT_EQ(Lock()->GetReaders(), 0) << "the read hold is not released on a time-out";
  EXPECT_EQ(Lock()->GetCount(), 0) << "the writer still holds the gate";
  EXPECT_EQ(Lock()->GetHead(), nullptr);
  Lock()->writeunlock();
}

TEST_F(SharedLock, DemoteKeepsAReadHoldAndAdmitsAReaderOfAnotherProcessAtOnce) {
  const SharedObject<Report> reader;
  ASSERT_EQ(Lock()->writelock(nullptr), 0);
  Lock()->demotelock();
  EXPECT_EQ(Lock()->GetReaders(), 1);
  EXPECT_EQ(Lock()->GetCount(), 1);
  ChildProcess reading([this, &reader] {
    // A zero time-out is a pure try: it succeeds only if the gate is free.
    NuvTime none(0);
    Record(&*reader, [this, &none] { return Lock()->readlock(&none); });
    Lock()->readunlock(nullptr);
  });
  ASSERT_TRUE(Completed(reading.Finish(kStepDeadline)));
  EXPECT_EQ(reader->result, 0);
  EXPECT_EQ(reader->readers, 2);
  EXPECT_EQ(Lock()->GetReaders(), 1) << "the demoted hold stays until its readunlock";
  Lock()->readunlock(nullptr);
  EXPECT_EQ(Lock()->GetReaders(), 0);
}

TEST_F(SharedLock, DemoteWakesAReaderOfAnotherProcessWaitingForTheWriter) {
  const SharedObject<Report> reader;
  ASSERT_EQ(Lock()->writelock(nullptr), 0);
  ChildProcess reading([this, &reader] {
    Record(&*reader, [this] { return Lock()->readlock(nullptr); });
    AwaitStep(&*reader, 1);
    Lock()->readunlock(nullptr);
  });
  ASSERT_TRUE(WaitUntil([this] { return Lock()->GetCount() == -1; })) << "reader never queued";
  Lock()->demotelock();
  ASSERT_TRUE(WaitUntil([&reader] { return reader->done != 0; }));
  EXPECT_EQ(reader->result, 0);
  EXPECT_EQ(Lock()->GetReaders(), 2);
  reader->go = 1;
  ASSERT_TRUE(Completed(reading.Finish(kStepDeadline)));
  Lock()->readunlock(nullptr);
  EXPECT_EQ(Lock()->GetReaders(), 0);
}

TEST_F(SharedLock, WritelockTimeOutWithAReaderPresentReturnsMinusOneAndHoldsNothing) {
  const SharedObject<Report> writer;
  constexpr int64_t kTimeoutMs = 100;
  CalibrateTimeOuts();
  Lock()->readlock(nullptr);
  ChildProcess writing([this, &writer] {
    NuvTime timeout = Milliseconds(kTimeoutMs);
    Record(&*writer, [this, &timeout] { return Lock()->writelock(&timeout); });
  });
  ASSERT_TRUE(Completed(writing.Finish(kStepDeadline)));
  EXPECT_EQ(writer->result, -1);
  EXPECT_GE(writer->elapsedUs, MicrosecondsOf(kTimeoutMs));
  EXPECT_EQ(Lock()->GetCount(), 1);
  EXPECT_EQ(Lock()->GetHead(), nullptr);
  EXPECT_EQ(DrainCount(), 0);
  EXPECT_EQ(Drain(Lock())->GetHead(), nullptr);
  EXPECT_EQ(Lock()->GetReaders(), 1);
  Lock()->readunlock(nullptr);
  EXPECT_EQ(Lock()->writelock(nullptr), 0) << "nothing of the failed writer is left";
  Lock()->writeunlock();
}

// The writer first waits for the gate, then for the reader that the holder's demotion leaves;
// the second wait receives what is left of the time-out, not the whole of it again. The reader
// leaves after the whole time-out has passed since the writer began but before a wait restarted
// in full would end: only such a wait would still take the lock. Every bound is a lower one.
TEST_F(SharedLock, WritelockChargesItsWaitForTheGateAgainstItsWaitForReaders) {
  const SharedObject<Report> writer;
  constexpr int64_t kTimeoutMs = 400;
  constexpr milliseconds kGateHeld{300};
  constexpr milliseconds kReaderStays{250};
  CalibrateTimeOuts();
  ASSERT_EQ(Lock()->writelock(nullptr), 0);
  ChildProcess writing([this, &writer] {
    NuvTime timeout = Milliseconds(kTimeoutMs);
    Record(&*writer, [this, &timeout] { return Lock()->writelock(&timeout); });
  });
  ASSERT_TRUE(WaitUntil([this] { return Lock()->GetCount() == -1; })) << "writer never queued";
  std::this_thread::sleep_for(kGateHeld);
  Lock()->demotelock();
  std::this_thread::sleep_for(kReaderStays);
  Lock()->readunlock(nullptr);
  ASSERT_TRUE(Completed(writing.Finish(kStepDeadline)));
  EXPECT_EQ(writer->result, -1) << "the wait for readers began its time-out again";
  EXPECT_GE(writer->elapsedUs, MicrosecondsOf(kTimeoutMs));
}

TEST_F(SharedLock, PromoteOfTheOnlyReaderHoldsTheGateAndKeepsItsReadHold) {
  Lock()->readlock(nullptr);
  EXPECT_EQ(Lock()->promotelock(nullptr), 0);
  EXPECT_EQ(Lock()->GetCount(), 0);
  EXPECT_EQ(Lock()->GetReaders(), 1);
  EXPECT_EQ(Lock()->GetPromoters(), 0);
  Lock()->writeunlock();
  Lock()->readunlock(nullptr);
}

TEST_F(SharedLock, PromotedReaderHoldsOffAReaderOfAnotherProcessUntilWriteunlock) {
  const SharedObject<Report> reader;
  Lock()->readlock(nullptr);
  ASSERT_EQ(Lock()->promotelock(nullptr), 0);
  ChildProcess reading([this, &reader] {
    Record(&*reader, [this] { return Lock()->readlock(nullptr); });
    Lock()->readunlock(nullptr);
  });
  ASSERT_TRUE(WaitUntil([this] { return Lock()->GetCount() == -1; })) << "reader never queued";
  Lock()->writeunlock();
  ASSERT_TRUE(Completed(reading.Finish(kStepDeadline)));
  EXPECT_EQ(reader->result, 0);
  EXPECT_EQ(reader->readers, 2) << "the promoter's read hold and the new one";
  Lock()->readunlock(nullptr);
  EXPECT_EQ(Lock()->GetReaders(), 0);
}

// Only the last reader wakes the drain, and the promoter's own hold keeps the count above 0:
// the other reader leaving does not wake it, and its time-out ends the promotion with -1.
TEST_F(SharedLock, PromoterSleepsPastTheOtherReadersUnlockUntilItsTimeOutThenReturnsMinusOne) {
  const SharedObject<Report> promoter;
  constexpr int64_t kTimeoutMs = 300;
  const auto promoting = StartTimedPromoter(&*promoter, kTimeoutMs, [] {});
  ASSERT_TRUE(WaitUntil([this] { return DrainCount() == -1; })) << "promoter never slept";
  EXPECT_EQ(Lock()->GetPromoters(), 1);
  Lock()->readunlock(nullptr);
  EXPECT_EQ(DrainCount(), -1);
  ASSERT_TRUE(Completed(promoting->Finish(kStepDeadline)));
  EXPECT_EQ(promoter->result, -1);
  EXPECT_GE(promoter->elapsedUs, MicrosecondsOf(kTimeoutMs));
  EXPECT_EQ(promoter->gate, 1);
  EXPECT_EQ(promoter->readers, 1);
  EXPECT_EQ(promoter->promoters, 1);
  EXPECT_EQ(Lock()->GetReaders(), 0);
}

// The first promoter sleeps on the drain; the second finds every reader promoting and takes the
// gate, so the first, when its time-out ends, cannot retake it.
TEST_F(SharedLock, PromotelockTimeOutReturnsMinusOneAndLeavesThePromoterCountRaised) {
  const SharedObject<Report> promoter;
  constexpr int64_t kTimeoutMs = 200;
  const auto promoting =
      StartTimedPromoter(&*promoter, kTimeoutMs, [&promoter] { AwaitStep(&*promoter, 1); });
  ASSERT_TRUE(WaitUntil([this] { return DrainCount() == -1; })) << "promoter never slept";
  ASSERT_EQ(Lock()->promotelock(nullptr), 0);
  ASSERT_TRUE(WaitUntil([&promoter] { return promoter->done != 0; }));
  EXPECT_EQ(promoter->result, -1);
  EXPECT_GE(promoter->elapsedUs, MicrosecondsOf(kTimeoutMs));
  EXPECT_EQ(Lock()->GetPromoters(), 1);
  EXPECT_EQ(Lock()->GetReaders(), 2) << "the failed promoter keeps its read hold";
  Lock()->writeunlock();
  promoter->go = 1;
  ASSERT_TRUE(Completed(promoting->Finish(kStepDeadline)));
  Lock()->readunlock(nullptr);
  EXPECT_EQ(Lock()->GetReaders(), 0);
  EXPECT_EQ(Lock()->GetPromoters(), 1);
}

// Nothing holds the gate, so every retake of it succeeds: once the time-out has run out, the
// time-out must still surface as -1 rather than the promoter looping until the reader leaves.
TEST_F(SharedLock, PromotelockReturnsMinusOneWhenItsTimeOutRunsOutWhileAnotherReaderStays) {
  const SharedObject<Report> promoter;
  constexpr int64_t kTimeoutMs = 100;
  constexpr milliseconds kReaderStays{600};
  const auto promoting = StartTimedPromoter(&*promoter, kTimeoutMs, [this, &promoter] {
    if (promoter->result == 0) {
      Lock()->writeunlock();
    }
  });
  EXPECT_TRUE(WaitUntil([&promoter] { return promoter->done != 0; }, kReaderStays))
      << "the promoter was still inside promotelock when the other reader left";
  Lock()->readunlock(nullptr);
  ASSERT_TRUE(Completed(promoting->Finish(kStepDeadline)));
  EXPECT_EQ(promoter->result, -1);
  EXPECT_EQ(Lock()->GetPromoters(), 1);
}

TEST_F(SharedLock, ReaderCountWrapsAsASixteenBitNumber) {
  for (int hold = 0; hold < kHoldsUntilWrap; ++hold) {
    Lock()->readlock(nullptr);
  }
  EXPECT_EQ(Lock()->GetReaders(), INT16_MIN);
  for (int hold = 0; hold < kHoldsUntilWrap; ++hold) {
    Lock()->readunlock(nullptr);
  }
  EXPECT_EQ(Lock()->GetReaders(), 0);
}

TEST_F(SharedLock, WritersOfTwoProcessesNeverOverlapAnyoneWhileReadersOfTwoOthersShare) {
  const SharedObject<Occupancy> occupancy;
  CalibrateTimeOuts();
  ChildProcess firstReader(Repeating(ReadOnce, &*occupancy));
  ChildProcess secondReader(Repeating(ReadOnce, &*occupancy));
  ChildProcess firstWriter(Repeating(WriteOnce, &*occupancy));
  ChildProcess secondWriter(Repeating(WriteOnce, &*occupancy));
  std::this_thread::sleep_for(kStressRun);
  occupancy->stop = 1;
  for (ChildProcess* child : {&firstReader, &secondReader, &firstWriter, &secondWriter}) {
    EXPECT_TRUE(Completed(child->Finish(kStepDeadline)));
  }
  EXPECT_EQ(occupancy->violations, 0U);
  EXPECT_GT(occupancy->reads, 0U);
  EXPECT_GT(occupancy->writes, 0U);
  EXPECT_GE(occupancy->readerOverlaps, 1U) << "the readers never shared the lock";
  EXPECT_EQ(Lock()->GetReaders(), 0);
  EXPECT_EQ(Lock()->GetCount(), 1);
}

}  // namespace
