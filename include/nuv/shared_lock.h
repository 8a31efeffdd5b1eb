/// \file NuvLockShared: a reader/writer lock in a pool, between processes.
#ifndef NUV_SHARED_LOCK_H
#define NUV_SHARED_LOCK_H

#include <nuv/semaphore.h>

#include <cstdint>

/// The semaphore itself is the gate (initially 1): readers hold it only while they count
/// themselves, a writer for as long as it writes. Writers and promoters wait on drain until the
/// readers are gone. New readers are admitted while a writer waits, so a writer can be overtaken.
/// Layout (checked in sync/layout.cpp): 0 the gate semaphore, 32 readers (16 bits),
/// 34 promoters (16 bits), 36 drain semaphore; 40 bytes.
class NuvLockShared : public NuvSema {
 public:
  /// Free: gate 1, no readers, drain created in the same pool (user "nuv").
  NuvLockShared();
  /// Frees drain; destroying the lock while anyone waits on the gate stops at an assertion.
  ~NuvLockShared() override;
  NuvLockShared(const NuvLockShared&) = delete;
  NuvLockShared& operator=(const NuvLockShared&) = delete;
  NuvLockShared(NuvLockShared&&) = delete;
  NuvLockShared& operator=(NuvLockShared&&) = delete;

  /// 0, or -1 when the gate could not be taken in time.
  int readlock(NuvTime* timeout);
  /// 0, or -1 when the gate could not be taken in time (the read hold then stays).
  int readunlock(NuvTime* timeout);
  /// 0 with the lock held exclusively, or -1 with nothing held. Time spent waiting is charged
  /// against the time-out.
  int writelock(NuvTime* timeout);
  /// Wakes a writer or promoter still waiting for readers, then releases the gate.
  int writeunlock();
  /// For a reader: 0 with the gate (the write lock) held, or -1. The caller's read hold stays
  /// counted; after a -1 the promoter count stays raised, as the lock has always behaved.
  int promotelock(NuvTime* timeout);
  /// For the writer: keeps a read hold and releases the gate.
  int demotelock();

  int16_t GetReaders() const { return readersM; }
  int16_t GetPromoters() const { return promotersM; }

 private:
  friend struct NuvSyncLayout;
  int16_t readersM = 0;
  int16_t promotersM = 0;
  NuvSema* drainM = nullptr;
};

#endif  // NUV_SHARED_LOCK_H
