/// \file Chunks: multiples of the granule carved downward from the end of a pool.
#include <nuv/mempool.h>

#include <cstdint>

#include "core/assert_at.h"
#include "pool/block.h"

// A size within a granule of 4 GiB would round past 32 bits and wrap to 0: it gets the largest
// multiple of the granule instead, which no gap holds, so the request fails as too large.
unsigned NuvMempool::RoundUpToChunkSize(unsigned n) const {
  const uint64_t rounded = (uint64_t{n} + granuleM - 1) / granuleM * granuleM;
  return rounded <= ~0U ? static_cast<unsigned>(rounded) : ~0U / granuleM * granuleM;
}

unsigned NuvMempool::GapBytes() const {
  return static_cast<unsigned>(chunkFloorM - (topM->Address() + topM->Size()));
}

// Only an exact size is reused, though the walk first looks for one within twice the size.
NuvChunkRecord* NuvMempool::FindReusableChunk(unsigned rounded) {
  for (NuvChunkRecord* record = chunksM; record != nullptr; record = record->next) {
    const bool nearSize = record->size >= rounded && record->size <= 2 * rounded;
    if (record->free != 0 && nearSize && record->size == rounded) {
      return record;
    }
  }
  return nullptr;
}

// With the lock held: lowers the chunk floor and records the new chunk at the list's head.
void* NuvMempool::CarveChunk(unsigned size, unsigned rounded, User user) {
  NUV_ASSERT_AT(chunkFloorM > topM->Address() + topM->Size(), 2021, "GetChunk");
  if (uint64_t{GapBytes()} < uint64_t{rounded} + reserveM) {
    Unlock();
    // Streams and records ask for chunks opportunistically: their failures stay quiet.
    if (user != stream && user != records) {
      LogPool("pool is out of space, requesting %d-byte chunk", static_cast<int>(size));
      DumpArena(false);
    }
    return nullptr;
  }
  chunkFloorM -= rounded;
  auto* record = static_cast<NuvChunkRecord*>(InternalMalloc(sizeof(NuvChunkRecord), nuv));
  if (record == nullptr) {
    BlockFailure(sizeof(NuvChunkRecord));
  }
  *record = NuvChunkRecord{chunkFloorM, rounded, user, 0, chunksM};
  chunksM = record;
  infoM.AllocChunk(rounded, user);
  Unlock();
  return record->address;
}

void* NuvMempool::GetChunk(unsigned size, User user) {
  NUV_ASSERT_AT(size != 0, 1975, "GetChunk");
  const unsigned rounded = RoundUpToChunkSize(size);
  Lock();
  NuvChunkRecord* record = FindReusableChunk(rounded);
  if (record == nullptr) {
    return CarveChunk(size, rounded, user);
  }
  record->free = 0;
  record->user = user;
  infoM.AllocChunk(record->size, user);
  Unlock();
  return record->address;
}

// Space goes back to the gap only from the lowest chunk upward: a free chunk above one still in
// use stays listed, for an exact-size reuse or a later give-back.
void NuvMempool::ReturnChunk(void* p) {
  Lock();
  NuvChunkRecord* record = chunksM;
  while (record != nullptr && record->address != p) {
    record = record->next;
  }
  NUV_ASSERT_AT(record != nullptr, 2091, "ReturnChunk");
  infoM.FreeChunk(record->size, record->user);
  record->free = 1;
  record->user = userFree;
  while (chunksM != nullptr && chunksM->free != 0) {
    NuvChunkRecord* lowest = chunksM;
    chunkFloorM += lowest->size;
    chunksM = lowest->next;
    InternalFree(lowest);
  }
  Unlock();
}
