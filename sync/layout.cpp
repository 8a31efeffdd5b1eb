/// \file The shared format of the semaphores, their queue blocks, the shared lock, the messenger
/// and its queues, checked at compile time.
#include <nuv/messenger.h>
#include <nuv/semaphore.h>
#include <nuv/shared_lock.h>
#include <nuv/thread_queue.h>

#include <cstddef>

// These objects derive from NuvSeed, which makes them formally non-standard-layout; the offsets
// below are exactly what these checks are there to pin down.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
struct NuvSyncLayout {
  static_assert(sizeof(NuvMessenger) == 20, "messenger: seed, lock, next number, queues");
  static_assert(offsetof(NuvMessenger, lockM) == 8, "messenger lock");
  static_assert(offsetof(NuvMessenger, nextNumberM) == 12, "messenger next number");
  static_assert(offsetof(NuvMessenger, queuesM) == 16, "messenger queues");
  static_assert(sizeof(NuvThreadQ) == 8, "queue block: pid, next");
  static_assert(offsetof(NuvThreadQ, pid) == 0, "queue block pid");
  static_assert(offsetof(NuvThreadQ, next) == 4, "queue block next");
  static_assert(sizeof(NuvThreadQMgr) == 16 + 50 * 8, "queue manager: seed, lock, free, blocks");
  static_assert(offsetof(NuvThreadQMgr, lockM) == 8, "queue manager lock");
  static_assert(offsetof(NuvThreadQMgr, freeM) == 12, "queue manager free list");
  static_assert(offsetof(NuvThreadQMgr, blocksM) == 16, "queue manager blocks");
  static_assert(sizeof(NuvSema) == 32, "semaphore: table, seed, count, head, tail, lock, flag");
  static_assert(offsetof(NuvSema, countM) == 12, "semaphore count");
  static_assert(offsetof(NuvSema, headM) == 16, "semaphore head");
  static_assert(offsetof(NuvSema, tailM) == 20, "semaphore tail");
  static_assert(offsetof(NuvSema, lockM) == 24, "semaphore lock");
  static_assert(offsetof(NuvSema, flagM) == 28, "semaphore flag");
  static_assert(sizeof(NuvLockShared) == 40, "shared lock: gate, readers, promoters, drain");
  static_assert(offsetof(NuvLockShared, readersM) == 32, "shared lock readers");
  static_assert(offsetof(NuvLockShared, promotersM) == 34, "shared lock promoters");
  static_assert(offsetof(NuvLockShared, drainM) == 36, "shared lock drain");
  static_assert(sizeof(NuvMessageQ) == 40, "queue: core and seven fields");
  static_assert(offsetof(NuvMessageQ, headM) == 12, "queue head");
  static_assert(offsetof(NuvMessageQ, tailM) == 16, "queue tail");
  static_assert(offsetof(NuvMessageQ, numberM) == 20, "queue number");
  static_assert(offsetof(NuvMessageQ, lockM) == 24, "queue lock");
  static_assert(offsetof(NuvMessageQ, receiveM) == 28, "queue receive semaphore");
  static_assert(offsetof(NuvMessageQ, sizeM) == 32, "queue size semaphore");
  static_assert(offsetof(NuvMessageQ, nextM) == 36, "queue next");
};
#pragma GCC diagnostic pop
