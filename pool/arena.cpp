/// \file The pool header: its layout, laying out a new arena, and the pool's own objects.
#include <nuv/mempool.h>

#include <nuv/messenger.h>
#include <nuv/os_mempool.h>
#include <nuv/registry.h>
#include <nuv/semaphore.h>
#include <nuv/shared_lock.h>
#include <nuv/thread_queue.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "diag/assert_at.h"
#include "pool/block.h"

// The shared format of the pool header and of the pool's own objects, checked at compile time.
// The pool objects derive from NuvSeed, which makes them formally non-standard-layout; the
// offsets below are exactly what these checks are there to pin down.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
struct NuvMempoolLayout {
  static_assert(sizeof(void*) == 4, "pools hold 32-bit pointers");
  static_assert(offsetof(NuvMempool, magicM) == 0, "magic");
  static_assert(offsetof(NuvMempool, sizeM) == 4, "size");
  static_assert(offsetof(NuvMempool, bucketsM) == 8, "bucket heads pointer");
  static_assert(offsetof(NuvMempool, firstM) == 12, "first sentinel");
  static_assert(offsetof(NuvMempool, topM) == 16, "top sentinel");
  static_assert(offsetof(NuvMempool, reserveM) == 20, "reserve");
  static_assert(offsetof(NuvMempool, chunkFloorM) == 24, "chunk floor");
  static_assert(offsetof(NuvMempool, granuleM) == 28, "chunk granule");
  static_assert(offsetof(NuvMempool, qBlockMgrM) == 32, "thread-queue manager");
  static_assert(offsetof(NuvMempool, messengerM) == 36, "messenger");
  static_assert(offsetof(NuvMempool, lockWordM) == 40, "lock word pointer");
  static_assert(offsetof(NuvMempool, chunksM) == 44, "chunk records");
  static_assert(offsetof(NuvMempool, infoPointerM) == 48, "statistics pointer");
  static_assert(offsetof(NuvMempool, registryM) == 52, "registry");
  static_assert(offsetof(NuvMempool, checkingM) == 56, "checking flag");
  static_assert(offsetof(NuvMempool, nameM) == 60, "name");
  static_assert(offsetof(NuvMempool, outOfMemoryM) == 108, "out-of-memory handler");
  static_assert(offsetof(NuvMempool, lockM) == 112, "lock word");
  static_assert(offsetof(NuvMempool, infoM) == 116, "statistics");
  static_assert(sizeof(NuvMempoolInfo) == 500, "statistics record is 125 words");
  static_assert(offsetof(NuvMempool, bucketHeadsM) == 616, "bucket heads");
  static_assert(offsetof(NuvMempool, firstSentinelM) == 692, "first sentinel block");
  static_assert(offsetof(NuvMempool, topSentinelM) == 700, "initial top sentinel block");
  static_assert(sizeof(NuvMempool) == NuvMempool::kHeaderSize, "header is 708 bytes");

  static_assert(sizeof(NuvSeed) == 8, "seed: pool, count");
  static_assert(sizeof(NuvVirtualSeed) == 12, "virtual seed: seed and table pointer");
  static_assert(sizeof(NuvCore) == 12, "core adds no fields");
  static_assert(sizeof(NuvMessenger) == 20, "messenger: seed, lock, next number, queues");
  static_assert(offsetof(NuvMessenger, lockM) == 8, "messenger lock");
  static_assert(offsetof(NuvMessenger, nextNumberM) == 12, "messenger next number");
  static_assert(offsetof(NuvMessenger, queuesM) == 16, "messenger queues");
  static_assert(sizeof(NuvThreadQ) == 8, "queue block: pid, next");
  static_assert(sizeof(NuvThreadQMgr) == 16 + 50 * 8, "queue manager: seed, lock, free, blocks");
  static_assert(offsetof(NuvThreadQMgr, lockM) == 8, "queue manager lock");
  static_assert(offsetof(NuvThreadQMgr, freeM) == 12, "queue manager free list");
  static_assert(offsetof(NuvThreadQMgr, blocksM) == 16, "queue manager blocks");
  static_assert(sizeof(NuvMempoolRegistry) == 16, "registry: seed, head, lock");
  static_assert(offsetof(NuvMempoolRegistry, headM) == 8, "registry head");
  static_assert(offsetof(NuvMempoolRegistry, lockM) == 12, "registry lock");
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

namespace {

constexpr unsigned kSentinelHeader = 0x03000008;
constexpr unsigned kReserve = 512;
constexpr unsigned kGranule = 512;

bool WordAligned(const void* p) { return reinterpret_cast<uintptr_t>(p) % 4 == 0; }

}  // namespace

// A pool is laid over a mapping, never constructed.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): the assertion ends the process.
NuvMempool::NuvMempool() { NUV_ASSERT_AT(false, 978, "NuvMempool"); }

// NOLINTNEXTLINE(cert-dcl54-cpp,misc-new-delete-overloads): pools are never made with new.
void NuvMempool::operator delete(void* /*p*/) {}

void NuvMempool::SetName(const char* name) {
  strncpy(nameM, name != nullptr ? name : "", kNameSize);
  nameM[kNameSize - 1] = '\0';
}

void NuvMempool::InitArena(unsigned size) {
  NUV_ASSERT_AT(WordAligned(this), 1492, "InitArena");
  NUV_ASSERT_AT(WordAligned(bucketHeadsM), 1494, "InitArena");
  NUV_ASSERT_AT(WordAligned(firstSentinelM), 1498, "InitArena");
  NUV_ASSERT_AT(WordAligned(topSentinelM), 1501, "InitArena");
  NUV_ASSERT_AT(WordAligned(&infoM), 1504, "InitArena");
  magicM = kMagic;
  sizeM = size;
  bucketsM = bucketHeadsM;
  firstM = NuvMempoolBlock::At(reinterpret_cast<char*>(firstSentinelM));
  topM = NuvMempoolBlock::At(reinterpret_cast<char*>(topSentinelM));
  chunkFloorM = reinterpret_cast<char*>(this) + size;
  outOfMemoryM = nullptr;
  memset(bucketHeadsM, 0, sizeof bucketHeadsM);
  firstSentinelM[0] = kSentinelHeader;
  firstSentinelM[1] = 0;
  topSentinelM[0] = kSentinelHeader;
  topSentinelM[1] = sizeof firstSentinelM;
  reserveM = kReserve;
  granuleM = kGranule;
  chunksM = nullptr;
  infoPointerM = &infoM;
  infoM.Clear();
  checkingM = 0;
  lockWordM = &lockM;
  lockM = 0;
  messengerM = new (this) NuvMessenger();
  qBlockMgrM = new (this) NuvThreadQMgr();
  registryM = new (this) NuvMempoolRegistry();
  ResetEmpty();
}

int NuvMempool::Protect() { return NuvOsMempool::Protect(this, sizeM); }
int NuvMempool::Unprotect() { return NuvOsMempool::Unprotect(this, sizeM); }
int NuvMempool::MLock() { return NuvOsMempool::MLock(this, sizeM); }
int NuvMempool::MUnlock() { return NuvOsMempool::MUnlock(this, sizeM); }
