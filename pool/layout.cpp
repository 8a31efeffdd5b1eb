/// \file The shared format of the pool header, the pool-resident roots and the registry, checked
/// at compile time.
#include <nuv/mempool.h>
#include <nuv/registry.h>
#include <nuv/seed.h>

#include <cstddef>

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
  static_assert(offsetof(NuvSeed, poolM) == 0, "seed pool");
  static_assert(offsetof(NuvSeed, countM) == 4, "seed count");
  static_assert(sizeof(NuvVirtualSeed) == 12, "virtual seed: table pointer, then the seed");
  static_assert(offsetof(NuvVirtualSeed, poolM) == 4, "virtual seed pool");
  static_assert(offsetof(NuvVirtualSeed, countM) == 8, "virtual seed count");
  static_assert(sizeof(NuvCore) == 12, "core adds no fields");
  static_assert(sizeof(NuvMempoolRegistry) == 16, "registry: seed, head, lock");
  static_assert(offsetof(NuvMempoolRegistry, headM) == 8, "registry head");
  static_assert(offsetof(NuvMempoolRegistry, lockM) == 12, "registry lock");
};
#pragma GCC diagnostic pop
