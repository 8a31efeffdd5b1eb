/// \file NuvSema: a counting semaphore in a pool, usable between processes, with signal-based
/// blocking; and the free functions of the blocking machinery.
///
/// Layout after the table pointer and the seed (12 bytes): count (signed; negative: minus the
/// number of waiters), head and tail of the wait queue, the lock word, the flag word.
#ifndef NUV_SEMAPHORE_H
#define NUV_SEMAPHORE_H

#include <nuv/lockword.h>
#include <nuv/seed.h>
#include <nuv/time.h>

struct NuvThreadQ;
namespace nuv {
struct HandOff;
}  // namespace nuv

/// Layout, in its pool (checked in sync/layout.cpp): 0 virtual table, 4 seed (pool, count),
/// 12 count, 16 head, 20 tail, 24 lock word, 28 flag; 32 bytes.
class NuvSema : public NuvVirtualSeed {
 public:
  /// Set the semaphore up with init() before use.
  explicit NuvSema(NuvMempool::User user) : NuvVirtualSeed(user) {}
  /// Destroying a semaphore that somebody waits on stops at assertion 803 of "NuvSema".
  ~NuvSema() override;
  NuvSema(const NuvSema&) = delete;
  NuvSema& operator=(const NuvSema&) = delete;
  NuvSema(NuvSema&&) = delete;
  NuvSema& operator=(NuvSema&&) = delete;

  /// count := count, no waiters, the lock word free. The tail is left as it is.
  void init(int count, bool flag);
  /// P. 0: acquired at once; 1: acquired after waiting; -1: timed out (a time-out below 10 ms
  /// never waits). 0 as well when another signal ended the wait (the entry stays queued). A null
  /// time-out waits without limit.
  int psema(NuvTime* timeout);
  /// Releases held and does P, with no gap in which a V could be missed. Results as psema.
  int spsema(volatile NuvLock* held, NuvTime* timeout);
  /// V on other and P on this as one step: when this was available, 1 if the V woke a waiter of
  /// other, else 0; otherwise the result of the wait.
  int sssema(NuvSema* other, NuvTime* timeout);
  /// V: adds one and wakes the first waiter, if any. The result of kill(2) when it woke one,
  /// else 0.
  int vsema();
  /// Wakes the first waiter, if any, without ever raising the count above 0; the fast path
  /// reads the count without the lock word.
  int vwaiter();

  // The wait queue, with the lock word held by the caller.
  /// Appends a block carrying the calling thread's id; returns that id.
  int putq();
  /// Removes the first block and returns its id; 0 when nobody is queued.
  int getq();
  /// Takes the lock word, removes the first block carrying pid and gives its unit back.
  void clnq(int pid);

  int GetCount() const { return countM; }
  NuvThreadQ* GetHead() const { return headM; }

 private:
  friend struct NuvSyncLayout;
  bool PrepareIfNoUnit(const NuvTime* timeout) const;
  friend struct nuv::HandOff;

  int countM = 0;
  NuvThreadQ* headM = nullptr;
  NuvThreadQ* tailM = nullptr;
  volatile NuvLock lockM = 0;
  unsigned flagM = 0;
};

/// With sema's lock word held and its count already lowered: queues the caller, releases the
/// word and sleeps in one sigsuspend until SIGUSR1 (1), the time-out's SIGALRM (-1) or any other
/// signal (0). sema may be null: nothing is queued.
int _block_(NuvSema* sema, NuvTime* timeout);
/// With sema's lock word held and its count already raised: dequeues the first waiter, releases
/// the word and sends it SIGUSR1. A waiter id below 1 stops at assertion 500 of "_unblock_".
int _unblock_(NuvSema* sema);
/// The handler of SIGUSR1 and SIGALRM during a wait.
void _bhandler_(int signal);

#endif  // NUV_SEMAPHORE_H
