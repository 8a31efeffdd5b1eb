/// \file Checks of a pool's heap, its reports (arena dump, high-water marks) and leak report.
#include <nuv/mempool.h>

#include <nuv/registry.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>

#include "core/assert_at.h"
#include "core/log.h"
#include "pool/block.h"

namespace {

constexpr unsigned kFirstListedUser = 2;
constexpr unsigned kKilobyte = 1024;

int Kilobytes(int64_t bytes) { return static_cast<int>(bytes / kKilobyte); }

}  // namespace

void NuvMempool::LogPool(const char* format, ...) {
  va_list args;  // NOLINT(cppcoreguidelines-init-variables): set by va_start
  va_start(args, format);
  nuv::log::Record(nuv::log::kFacilityNuv, nuv::log::kPriorityInfo, nameM, format, args);
  va_end(args);
}

void NuvMempool::AssertValidPointer(void* p) {
  // Addresses are compared as numbers: p may be null or foreign, where pointer arithmetic is
  // undefined.
  const uintptr_t block = reinterpret_cast<uintptr_t>(p) - NuvMempoolBlock::kHeaderBytes;
  const auto first = reinterpret_cast<uintptr_t>(firstM);
  const auto top = reinterpret_cast<uintptr_t>(topM);
  NUV_ASSERT_AT(first < block && block < top, 1436, "AssertValidPointer");
  const auto* header = reinterpret_cast<const NuvMempoolBlock*>(block);
  const uintptr_t end = block + header->Size();
  NUV_ASSERT_AT(first < end && end <= top, 1439, "AssertValidPointer");
  const uintptr_t below = block - header->PreviousSize();
  NUV_ASSERT_AT(first <= below && below < top, 1440, "AssertValidPointer");
  NUV_ASSERT_AT(!header->FFree(), 1441, "AssertValidPointer");
}

void NuvMempool::InternalCheckPool(NuvMempoolBlock* expected) {
  AssertWordHeld();
  for (NuvMempoolBlock* head : bucketHeadsM) {
    NuvMempoolBlock* previous = nullptr;
    for (NuvMempoolBlock* block = head; block != nullptr; block = block->NextFree()) {
      NUV_ASSERT_AT(block->PreviousFree() == previous, 2213, "InternalCheckPool");
      block->SetMark(true);
      previous = block;
    }
  }
  unsigned inUse = 0;
  bool metExpected = false;
  NuvMempoolBlock* previous = firstM;
  for (NuvMempoolBlock* block = firstM->Above(); block < topM; block = block->Above()) {
    NUV_ASSERT_AT(block->Below() == previous, 2234, "InternalCheckPool");
    NUV_ASSERT_AT(block->FFree() == block->FMarked(), 2236, "InternalCheckPool");
    block->SetMark(false);
    metExpected = metExpected || block == expected;
    if (block->FFree()) {
      block->AssertDeadBeef();
    } else if (block->User() != unassigned) {
      inUse += block->Size() - NuvMempoolBlock::kHeaderBytes;
    }
    previous = block;
  }
  NUV_ASSERT_AT(topM->Below() == previous, 2260, "InternalCheckPool");
  NUV_ASSERT_AT(expected == nullptr || metExpected, 2261, "InternalCheckPool");
  NUV_ASSERT_AT(inUse == infoM.Word(NuvMempoolInfo::kBlockBytes), 2262, "InternalCheckPool");
}

void NuvMempool::CheckPoolQuietly() {
  Lock();
  InternalCheckPool(nullptr);
  Unlock();
}

// The figures are read before the lock is taken, so they may be slightly out of date.
void NuvMempool::CheckPool() {
  const unsigned calls = infoM.Word(NuvMempoolInfo::kMallocCalls);
  if (calls != 0) {
    const char* poolEnd = reinterpret_cast<const char*>(this) + sizeM;
    nuv::log::Entry(nuv::log::kFacilityNuv, nuv::log::kPriorityInfo, "mempool",
                    "%s block: %dkB/%dkB  chunk: %dkB/%dkB  unused: %dkB  search: %d", nameM,
                    Kilobytes(infoM.Word(NuvMempoolInfo::kBlockBytes)),
                    Kilobytes(topM->Address() - firstM->Address()),
                    Kilobytes(infoM.Word(NuvMempoolInfo::kChunkBytes)),
                    Kilobytes(poolEnd - chunkFloorM), Kilobytes(GapBytes()),
                    static_cast<int>(infoM.Word(NuvMempoolInfo::kBlocksSearched) / calls));
  }
  CheckPoolQuietly();
}

// One row per user from "unknown" to the last counted one, then "TOTAL": block bytes, chunk
// bytes, blocks and chunks, current or at their high-water marks.
void NuvMempool::DumpRows(bool highWater) {
  using Info = NuvMempoolInfo;
  auto row = [this](const char* name, unsigned blocks, unsigned blockBytes, unsigned chunks,
                    unsigned chunkBytes) {
    LogPool("%-12s %7d/%7d bytes (%4d blocks/%2d chunks)", name,
            static_cast<int>(infoM.Word(blockBytes)), static_cast<int>(infoM.Word(chunkBytes)),
            static_cast<int>(infoM.Word(blocks)), static_cast<int>(infoM.Word(chunks)));
  };
  for (unsigned user = kFirstListedUser; user < Info::kUsers; ++user) {
    const char* name = UserName(static_cast<User>(user));
    if (highWater) {
      row(name, Info::kUserBlocksHigh + user, Info::kUserBlockBytesHigh + user,
          Info::kUserChunksHigh + user, Info::kUserChunkBytesHigh + user);
    } else {
      row(name, Info::kUserBlocks + user, Info::kUserBlockBytes + user, Info::kUserChunks + user,
          Info::kUserChunkBytes + user);
    }
  }
  if (highWater) {
    row("TOTAL", Info::kBlocksHigh, Info::kBlockBytesHigh, Info::kChunksHigh,
        Info::kChunkBytesHigh);
  } else {
    row("TOTAL", Info::kBlocks, Info::kBlockBytes, Info::kChunks, Info::kChunkBytes);
  }
}

void NuvMempool::DumpArena(bool /*flag*/) {
  LogPool("Current  (total pool size = %d, unused = %d):", static_cast<int>(sizeM),
          static_cast<int>(GapBytes()));
  DumpRows(false);
}

void NuvMempool::DumpHighWater() {
  LogPool("High water mark:");
  DumpRows(true);
}

// Runs when no other process uses the pool any more: it takes no lock, and frees the chunk
// records without the word.
void NuvMempool::ShouldBeEmpty() {
  poolInSoleUseM = this;
  bool chunksFree = true;
  for (NuvChunkRecord* record = chunksM; record != nullptr;) {
    NuvChunkRecord* next = record->next;
    if (record->free == 0) {
      fprintf(stderr, "Chunk at %p not freed.  Size = %d (0x%x)\n",
              static_cast<void*>(record->address), static_cast<int>(record->size), record->size);
      chunksFree = false;
    }
    InternalFree(record);
    record = next;
  }
  chunksM = nullptr;
  chunkFloorM = reinterpret_cast<char*>(this) + sizeM;
  poolInSoleUseM = nullptr;
  for (NuvMempoolBlock* block = firstM->Above(); block < topM; block = block->Above()) {
    if (!block->FFree() && block->Payload() > static_cast<void*>(registryM)) {
      fprintf(stderr, "leak: %4d bytes at %p, user %s, pool %s\n",
              static_cast<int>(block->Size() - NuvMempoolBlock::kHeaderBytes), block->Payload(),
              UserName(static_cast<User>(block->User())), nameM);
    }
  }
  const bool blocksAsEmpty =
      infoM.Word(NuvMempoolInfo::kBlockBytes) == infoM.Word(NuvMempoolInfo::kEmptyBlockBytes) &&
      infoM.Word(NuvMempoolInfo::kBlocks) == infoM.Word(NuvMempoolInfo::kEmptyBlocks);
  if (chunksFree && blocksAsEmpty) {
    return;
  }
  fprintf(stderr, "Turn on DEBUG_LEAK in mempool to get backtraces\n");
  fprintf(stderr, "for all leaked chunks and blocks.\n");
  NUV_ASSERT_AT(false, 2357, "ShouldBeEmpty");
}
