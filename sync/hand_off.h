/// \file Hand-offs between processes with the wake-up kept out of every lock word's hold: the
/// process woken runs at once and needs the words that its waker would otherwise still hold.
#ifndef NUV_SYNC_HAND_OFF_H
#define NUV_SYNC_HAND_OFF_H

#include <nuv/semaphore.h>

namespace nuv {

struct HandOff {
  /// With sema's word held and its count raised: removes the first waiter, releases the word
  /// and returns the waiter's process id, to be woken with Wake. A waiter id below 1 stops at
  /// assertion 500 of "_unblock_".
  static int DequeueWaiter(NuvSema* sema);
  /// Sends SIGUSR1 to pid and returns kill's result; pid 0 (nobody) does nothing and gives 0.
  static int Wake(int pid);
  /// _block_, with the wake-up of wakePid (0: nobody) sent once sema's word is released, and
  /// held (null: none), a word that the caller still holds, released right after sema's.
  static int BlockThenWake(NuvSema* sema, NuvTime* timeout, int wakePid,
                           volatile NuvLock* held = nullptr);

  /// Before taking the first word of an operation that will probably wait: blocks the wake-up
  /// (and time-out) signals and installs their handler, the system calls of a wait, so that
  /// they are made while no word is held that the process's waker needs. The next wait then
  /// skips them. Does nothing for a time-out below 10 ms, which never waits.
  static void PrepareWait(const NuvTime* timeout);
  /// Undoes PrepareWait when the operation ends without waiting; nothing if none is prepared.
  static void CancelWait();
};

}  // namespace nuv

#endif  // NUV_SYNC_HAND_OFF_H
