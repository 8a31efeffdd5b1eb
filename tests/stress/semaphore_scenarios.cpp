/// \file Semaphores and the shared lock under load: 50 waiters released and queued again, with
/// a watchdog for a lost wake-up; 4 readers and 4 writers proving exclusion on a shared count.
#include <nuv/lockword.h>
#include <nuv/semaphore.h>
#include <nuv/shared_lock.h>
#include <nuv/time.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "stress/stress.h"

namespace nuv::stress {
namespace {

constexpr unsigned kWaiters = 50;  // the whole stock of wait-queue blocks of a pool
constexpr unsigned kReaders = 4;
constexpr unsigned kWriters = 4;
// A waiter that sleeps longer than this while the semaphore is posted every millisecond has
// lost its wake-up.
constexpr int64_t kWatchdogNanoseconds = 10LL * 1000 * 1000 * 1000;
// The lock lets new readers overtake a writer that waits for the last one to leave, so readers
// that take the lock again at once can keep a writer out for good without a wake-up being lost.
// Holders that pause between holds, as an application's do, leave the lock free now and then.
constexpr auto kPauseBetweenHolds = std::chrono::microseconds(100);

struct WaiterTally {
  std::atomic<uint32_t> acquired;
  std::atomic<uint32_t> timedOut;
  std::atomic<uint32_t> stop;
};

bool Wait(NuvSema* sema, WaiterTally* tally) {
  while (tally->stop == 0) {
    NuvTime watchdog(kWatchdogNanoseconds);
    if (sema->psema(&watchdog) < 0) {
      ++tally->timedOut;
    } else {
      ++tally->acquired;
    }
  }
  return true;
}

struct LockTally {
  std::atomic<int32_t> readersInside;
  std::atomic<int32_t> writersInside;
  std::atomic<uint32_t> reads;
  std::atomic<uint32_t> writes;
  std::atomic<uint32_t> violations;
  std::atomic<uint32_t> timedOut;
  std::atomic<uint32_t> stop;
};

bool Read(NuvLockShared* lock, LockTally* tally) {
  while (tally->stop == 0) {
    NuvTime watchdog(kWatchdogNanoseconds);
    if (lock->readlock(&watchdog) < 0) {
      ++tally->timedOut;
      continue;
    }
    ++tally->readersInside;
    tally->violations += tally->writersInside != 0 ? 1 : 0;
    ++tally->reads;
    --tally->readersInside;
    lock->readunlock(nullptr);
    std::this_thread::sleep_for(kPauseBetweenHolds);
  }
  return true;
}

bool Write(NuvLockShared* lock, LockTally* tally) {
  while (tally->stop == 0) {
    NuvTime watchdog(kWatchdogNanoseconds);
    if (lock->writelock(&watchdog) < 0) {
      ++tally->timedOut;
      continue;
    }
    tally->violations += ++tally->writersInside != 1 || tally->readersInside != 0 ? 1 : 0;
    ++tally->writes;
    --tally->writersInside;
    lock->writeunlock();
    std::this_thread::sleep_for(kPauseBetweenHolds);
  }
  return true;
}

}  // namespace

Outcome RunSemaphoreWaiters(const Scale& scale) {
  const auto start = std::chrono::steady_clock::now();
  ScenarioPool pool("waiters", 1024 * 1024);
  auto* sema = new (pool.Get()) NuvSema(NuvMempool::catalog);
  sema->init(0, false);
  auto* tally = SharedArray<WaiterTally>(1);
  std::vector<pid_t> waiters;
  for (unsigned i = 0; i < kWaiters; ++i) {
    waiters.push_back(StartWorker([&] { return Wait(sema, tally); }));
  }
  unsigned posts = 0;
  while (std::chrono::steady_clock::now() - start < scale.waitersFor) {
    sema->vsema();
    ++posts;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  tally->stop = 1;
  for (unsigned i = 0; i < kWaiters; ++i) {
    sema->vsema();
    ++posts;
  }
  std::string trouble;
  bool passed = JoinWorkers(waiters, std::chrono::seconds(30), &trouble);
  // Every post was taken by exactly one waiter, or is still on the count.
  const unsigned left = sema->GetCount() > 0 ? static_cast<unsigned>(sema->GetCount()) : 0;
  const bool conserved = tally->acquired + left == posts;
  passed = passed && tally->timedOut == 0 && conserved;
  sema->DeleteThis();
  return {passed, std::to_string(kWaiters) + " waiters for " + Elapsed(start) + ": " +
                      std::to_string(posts) + " posts, " + std::to_string(tally->acquired.load()) +
                      " acquired, " + std::to_string(left) + " left on the count, " +
                      std::to_string(tally->timedOut.load()) + " woken by the watchdog" +
                      (conserved ? "" : ", POSTS LOST") + trouble};
}

Outcome RunSharedLock(const Scale& scale) {
  const auto start = std::chrono::steady_clock::now();
  ScenarioPool pool("shared_lock", 1024 * 1024);
  auto* lock = new (pool.Get()) NuvLockShared();
  auto* tally = SharedArray<LockTally>(1);
  std::vector<pid_t> workers;
  for (unsigned i = 0; i < kReaders; ++i) {
    workers.push_back(StartWorker([&] { return Read(lock, tally); }));
  }
  for (unsigned i = 0; i < kWriters; ++i) {
    workers.push_back(StartWorker([&] { return Write(lock, tally); }));
  }
  std::this_thread::sleep_for(scale.sharedLockFor);
  tally->stop = 1;
  std::string trouble;
  bool passed = JoinWorkers(workers, std::chrono::seconds(30), &trouble);
  passed = passed && tally->violations == 0 && tally->timedOut == 0 && tally->reads > 0 &&
           tally->writes > 0;
  lock->DeleteThis();
  return {passed, std::to_string(kReaders) + " readers and " + std::to_string(kWriters) +
                      " writers for " + Elapsed(start) + ": " +
                      std::to_string(tally->reads.load()) + " reads, " +
                      std::to_string(tally->writes.load()) + " writes, " +
                      std::to_string(tally->violations.load()) + " exclusion faults, " +
                      std::to_string(tally->timedOut.load()) + " woken by the watchdog" + trouble};
}

}  // namespace nuv::stress
