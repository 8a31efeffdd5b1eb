/// \file The block allocator of a pool: buckets, splitting, coalescing, growing the heap.
#include <nuv/mempool.h>

#include <nuv/lockword.h>

#include <cassert>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "core/assert_at.h"
#include "pool/block.h"

namespace {

constexpr unsigned kSmallestBucketSize = 64;
constexpr unsigned kSmallestSplit = 17;
constexpr unsigned kSentinelHeader = 0x03000008;

uint64_t RoundUpTo4(uint64_t size) { return (size + 3) & ~uint64_t{3}; }

}  // namespace

unsigned SelectBucket(unsigned size) {
  unsigned bucket = 0;
  for (unsigned rest = size / kSmallestBucketSize; rest != 0; rest >>= 1) {
    ++bucket;
  }
  // Sizes fit 24 bits, so 18 is the highest bucket any block reaches.
  return bucket < NuvMempool::kBuckets ? bucket : NuvMempool::kBuckets - 1;
}

void NuvMempool::Lock() { upsleeplock(&lockM); }

void NuvMempool::Unlock() { upunlock(&lockM); }

const NuvMempool* NuvMempool::poolInSoleUseM = nullptr;

void NuvMempool::AssertWordHeld() const {
  assert((lockM != 0 || poolInSoleUseM == this) && "the pool's word is held");
}

void NuvMempool::LinkFree(NuvMempoolBlock* block) {
  AssertWordHeld();
  NuvMempoolBlock*& head = bucketHeadsM[SelectBucket(block->Size())];
  block->SetPreviousFree(nullptr);
  block->SetNextFree(head);
  if (head != nullptr) {
    head->SetPreviousFree(block);
  }
  head = block;
}

void NuvMempool::UnlinkFree(unsigned bucket, NuvMempoolBlock* block) {
  AssertWordHeld();
  NuvMempoolBlock* previous = block->PreviousFree();
  NuvMempoolBlock* next = block->NextFree();
  if (previous != nullptr) {
    previous->SetNextFree(next);
  } else {
    bucketHeadsM[bucket] = next;
  }
  if (next != nullptr) {
    next->SetPreviousFree(previous);
  }
}

// Lists are last-freed-first, so within a bucket the most recently freed fitting block wins.
NuvMempoolBlock* NuvMempool::TakeFittingBlock(unsigned need) {
  AssertWordHeld();
  for (unsigned bucket = SelectBucket(need); bucket < kBuckets; ++bucket) {
    for (NuvMempoolBlock* block = bucketHeadsM[bucket]; block != nullptr;
         block = block->NextFree()) {
      infoM.wordsM[NuvMempoolInfo::kBlocksSearched] += 1;
      if (block->Size() >= need) {
        UnlinkFree(bucket, block);
        return block;
      }
    }
  }
  return nullptr;
}

// Succeeds only with more than need + 8 bytes between the top sentinel and the chunk floor.
NuvMempoolBlock* NuvMempool::ExtendHeap(unsigned need) {
  AssertWordHeld();
  NuvMempoolBlock* top = topM;
  const int64_t room = chunkFloorM - top->Address() - static_cast<int64_t>(top->Size());
  if (room <= static_cast<int64_t>(need)) {
    return nullptr;
  }
  top->SetSize(need);
  NuvMempoolBlock* newTop = top->Above();
  newTop->SetWord(0, kSentinelHeader);
  newTop->SetPreviousSize(need);
  topM = newTop;
  return top;
}

// Keeps the first keep bytes in block and makes the rest a free block of its bucket.
void NuvMempool::SplitOff(NuvMempoolBlock* block, unsigned keep) {
  const unsigned rest = block->Size() - keep;
  block->SetSize(keep);
  NuvMempoolBlock* free = block->Above();
  free->SetHeader(userFree, rest);
  free->SetPreviousSize(keep);
  free->Above()->SetPreviousSize(rest);
  LinkFree(free);
}

void* NuvMempool::InternalMalloc(unsigned size, User user) {
  AssertWordHeld();
  const uint64_t rounded = RoundUpTo4(size) + uint64_t{NuvMempoolBlock::kHeaderBytes};
  // A request beyond the 24-bit size field cannot be a block: it is exhaustion.
  if (rounded > NuvMempoolBlock::kSizeMask) {
    return nullptr;
  }
  const unsigned need = rounded < NuvMempoolBlock::kMinimumSize ? NuvMempoolBlock::kMinimumSize
                                                                : static_cast<unsigned>(rounded);
  infoM.wordsM[NuvMempoolInfo::kMallocCalls] += 1;
  if (checkingM != 0) {
    InternalCheckPool(nullptr);
  }
  NuvMempoolBlock* block = TakeFittingBlock(need);
  if (block == nullptr) {
    block = ExtendHeap(need);
    if (block == nullptr) {
      return nullptr;
    }
  }
  if (block->Size() - need >= kSmallestSplit) {
    SplitOff(block, need);
  }
  infoM.AllocBlock(block->Size() - NuvMempoolBlock::kHeaderBytes, user);
  block->SetUser(user);
  block->Init();
  return block->Payload();
}

void NuvMempool::InternalFree(void* p) {
  AssertWordHeld();
  AssertValidPointer(p);
  NuvMempoolBlock* block = NuvMempoolBlock::OfPayload(p);
  if (checkingM != 0) {
    InternalCheckPool(block);
  }
  infoM.FreeBlock(block->Size() - NuvMempoolBlock::kHeaderBytes, block->User());
  block->SetUser(userFree);
  block->UnInit();
  NuvMempoolBlock* below = block->Below();
  if (below->FFree()) {
    UnlinkFree(SelectBucket(below->Size()), below);
    below->SetSize(below->Size() + block->Size());
    below->Above()->SetPreviousSize(below->Size());
    block->Bury();
    block = below;
  }
  NuvMempoolBlock* above = block->Above();
  if (above->FFree()) {
    UnlinkFree(SelectBucket(above->Size()), above);
    block->SetSize(block->Size() + above->Size());
    block->Above()->SetPreviousSize(block->Size());
    above->Bury();
  }
  LinkFree(block);
}

// Grows in place into a free block above; a block never shrinks in place. The size needed is
// not rounded to 4 here, so a split may put a block header on an address that is not a
// multiple of 4: blocks are read and written bytewise-safe for that reason.
bool NuvMempool::InternalRealloc(void* p, unsigned size) {
  AssertWordHeld();
  // A null, foreign or freed pointer would be read as a block header, and a freed block even
  // handed back as grown: it stops here, as in Free.
  AssertValidPointer(p);
  NuvMempoolBlock* block = NuvMempoolBlock::OfPayload(p);
  const uint64_t wanted = uint64_t{size} + NuvMempoolBlock::kHeaderBytes;
  const unsigned need = wanted < NuvMempoolBlock::kMinimumSize ? NuvMempoolBlock::kMinimumSize
                        : wanted > NuvMempoolBlock::kSizeMask  ? NuvMempoolBlock::kSizeMask + 1
                                                               : static_cast<unsigned>(wanted);
  if (need <= block->Size()) {
    return true;
  }
  NuvMempoolBlock* above = block->Above();
  const unsigned oldSize = block->Size();
  if (!above->FFree() || oldSize + above->Size() < need) {
    return false;
  }
  infoM.FreeBlock(oldSize - NuvMempoolBlock::kHeaderBytes, block->User());
  UnlinkFree(SelectBucket(above->Size()), above);
  block->SetSize(oldSize + above->Size());
  block->Above()->SetPreviousSize(block->Size());
  above->Bury();
  if (block->Size() - need >= kSmallestSplit) {
    SplitOff(block, need);
  }
  block->InitTail(oldSize);
  infoM.AllocBlock(block->Size() - NuvMempoolBlock::kHeaderBytes, block->User());
  return true;
}

// Lock, allocate, unlock; on failure ask the out-of-memory handler and try again while it says so.
void* NuvMempool::MallocLoop(unsigned size, User user) {
  for (;;) {
    Lock();
    void* p = InternalMalloc(size, user);
    Unlock();
    if (p != nullptr || outOfMemoryM == nullptr || !outOfMemoryM(this)) {
      return p;
    }
  }
}

bool NuvMempool::ReserveKept() const {
  return chunkFloorM - topM->Address() >= static_cast<int64_t>(reserveM);
}

void* NuvMempool::Malloc(unsigned size, User user) {
  void* p = MallocLoop(size, user);
  if (p == nullptr) {
    BlockFailure(size);
  }
  return p;
}

void* NuvMempool::MallocMaybe(unsigned size, User user) {
  void* p = MallocLoop(size, user);
  const bool reserveKept = ReserveKept();
  if (p == nullptr || !reserveKept) {
    LogPool("pool is out of space, requesting %d-byte sBlock", static_cast<int>(size));
  }
  if (p != nullptr && !reserveKept) {
    Free(p);
    return nullptr;
  }
  return p;
}

void* NuvMempool::Calloc(unsigned size, User user) {
  void* p = Malloc(size, user);
  memset(p, 0, size);
  return p;
}

void* NuvMempool::CallocMaybe(unsigned size, User user) {
  void* p = MallocMaybe(size, user);
  if (p != nullptr) {
    memset(p, 0, size);
  }
  return p;
}

void* NuvMempool::ReallocMaybe(void* p, unsigned size) {
  for (;;) {
    Lock();
    const bool grown = InternalRealloc(p, size);
    Unlock();
    if (grown) {
      return p;
    }
    NuvMempoolBlock* block = NuvMempoolBlock::OfPayload(p);
    void* moved = MallocMaybe(size, static_cast<User>(block->User()));
    if (moved != nullptr) {
      const unsigned payload = block->Size() - NuvMempoolBlock::kHeaderBytes;
      memcpy(moved, p, size < payload ? size : payload);
      Free(p);
      return moved;
    }
    if (outOfMemoryM == nullptr || !outOfMemoryM(this)) {
      return nullptr;
    }
  }
}

void* NuvMempool::Realloc(void* p, unsigned size) {
  void* moved = ReallocMaybe(p, size);
  if (moved == nullptr) {
    LogPool("pool is out of space, reallocing %d bytes", static_cast<int>(size));
    LogPool("total pool size: %d bytes", static_cast<int>(sizeM));
    NUV_ASSERT_AT(false, 1319, "Realloc");
    exit(1);
  }
  return moved;
}

void NuvMempool::Free(void* p) {
  Lock();
  InternalFree(p);
  Unlock();
}

NuvMempool::OutOfMemoryHandler NuvMempool::OutOfMemory(OutOfMemoryHandler handler) {
  const OutOfMemoryHandler previous = outOfMemoryM;
  outOfMemoryM = handler;
  return previous;
}

void NuvMempool::BlockFailure(unsigned size) {
  LogPool("pool is out of space, requesting %d bytes", static_cast<int>(size));
  LogPool("total pool size: %d bytes", static_cast<int>(sizeM));
  DumpArena(false);
  NUV_ASSERT_AT(false, 1216, "BlockFailure");
  exit(1);
}
