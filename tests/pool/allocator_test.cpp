/// \file The pool allocator: header words, blocks, buckets, chunks, Realloc, out-of-memory handler.
#include <nuv/mempool.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "support/raw_words.h"

namespace {

constexpr unsigned kPoolSize = 64 * 1024;
constexpr unsigned kBlockHeader = 8;
constexpr unsigned kDeadBeef = 0xdeadbeef;
constexpr unsigned kSentinelHeader = 0x03000008;
constexpr unsigned kReserve = 512;
constexpr unsigned kSmallestSplit = 17;
constexpr unsigned kSizeMask = 0x00ffffff;

// Offsets in the pool header.
constexpr unsigned kMagicAt = 0;
constexpr unsigned kSizeAt = 4;
constexpr unsigned kBucketsPointerAt = 8;
constexpr unsigned kFirstAt = 12;
constexpr unsigned kTopAt = 16;
constexpr unsigned kReserveAt = 20;
constexpr unsigned kFloorAt = 24;
constexpr unsigned kGranuleAt = 28;
constexpr unsigned kQueueManagerAt = 32;
constexpr unsigned kMessengerAt = 36;
constexpr unsigned kLockPointerAt = 40;
constexpr unsigned kChunksAt = 44;
constexpr unsigned kInfoPointerAt = 48;
constexpr unsigned kRegistryAt = 52;
constexpr unsigned kCheckingAt = 56;
constexpr unsigned kNameAt = 60;
constexpr unsigned kNameEndAt = 107;
constexpr unsigned kHandlerAt = 108;
constexpr unsigned kLockAt = 112;
constexpr unsigned kInfoAt = 116;
constexpr unsigned kBucketHeadsAt = 616;
constexpr unsigned kFirstSentinelAt = 692;
constexpr unsigned kInitialTopAt = 700;

// The pool's own objects, laid out by InitArena: messenger, thread-queue manager, registry.
constexpr unsigned kMessengerBlockAt = 700;
constexpr unsigned kQueueManagerBlockAt = 728;
constexpr unsigned kRegistryBlockAt = 1152;
constexpr unsigned kFreshTopAt = 1176;

// Chunk record words.
constexpr unsigned kRecordAddress = 0;
constexpr unsigned kRecordSize = 1;
constexpr unsigned kRecordUser = 2;
constexpr unsigned kRecordFree = 3;
constexpr unsigned kRecordNext = 4;

using nuv::test::WordAt;

unsigned AddressOf(const void* p) { return static_cast<unsigned>(reinterpret_cast<uintptr_t>(p)); }

char* PointerOf(unsigned word) { return reinterpret_cast<char*>(static_cast<uintptr_t>(word)); }

unsigned RoundUpTo4(unsigned n) { return (n + 3) & ~3U; }

char* BlockOf(void* payload) { return static_cast<char*>(payload) - kBlockHeader; }

unsigned BlockWord(const char* block, unsigned index) { return WordAt(block + 4 * index); }

unsigned SizeOf(void* payload) { return BlockWord(BlockOf(payload), 0) & kSizeMask; }

unsigned HeaderWord(unsigned user, unsigned size) { return (user << 24) | size; }

// True when the words of [from, to) of a block all hold 0xdeadbeef.
bool DeadBeefBetween(const char* block, unsigned from, unsigned to) {
  for (unsigned offset = from; offset + 4 <= to; offset += 4) {
    if (WordAt(block + offset) != kDeadBeef) {
      return false;
    }
  }
  return true;
}

void FillWith(void* payload, unsigned size, unsigned char first) {
  auto* bytes = static_cast<unsigned char*>(payload);
  for (unsigned i = 0; i < size; ++i) {
    bytes[i] = static_cast<unsigned char>(first + i);
  }
}

bool HoldsFill(const void* payload, unsigned size, unsigned char first) {
  const auto* bytes = static_cast<const unsigned char*>(payload);
  for (unsigned i = 0; i < size; ++i) {
    if (bytes[i] != static_cast<unsigned char>(first + i)) {
      return false;
    }
  }
  return true;
}

unsigned MappingLength(unsigned size) {
  const auto page = static_cast<unsigned>(getpagesize());
  return (size + kBlockHeader + page - 1) / page * page;
}

// A fresh anonymous pool of the process, detached when the test ends.
class AllocatorPool : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NuvMempool::Allocate("allocator", kPoolSize, true, nullptr, false, poolM), kNuvOk);
  }
  void TearDown() override { delete poolM; }

  NuvMempool* Pool() const { return poolM; }
  char* Base() const { return reinterpret_cast<char*>(poolM); }
  unsigned Word(unsigned offset) const { return WordAt(Base() + offset); }
  unsigned Address(unsigned offset) const { return AddressOf(Base() + offset); }
  char* Top() const { return PointerOf(Word(kTopAt)); }
  char* Floor() const { return PointerOf(Word(kFloorAt)); }
  char* PoolEnd() const { return Base() + Pool()->GetSize(); }
  unsigned BucketHead(unsigned bucket) const { return Word(kBucketHeadsAt + 4 * bucket); }

  void* Take(unsigned size) const { return poolM->Malloc(size, NuvMempool::unknown); }
  // A block in use that keeps the blocks below it from merging with anything above.
  void* Guard() const { return Take(0); }

  // Free blocks of these sizes (multiples of 4), each between two blocks in use, freed in the
  // order given once all are allocated.
  std::vector<char*> FreeBlocksBetweenGuards(std::initializer_list<unsigned> blockSizes) const {
    std::vector<char*> blocks;
    for (const unsigned size : blockSizes) {
      blocks.push_back(BlockOf(Take(size - kBlockHeader)));
      Guard();
    }
    for (char* block : blocks) {
      poolM->Free(block + kBlockHeader);
    }
    return blocks;
  }
  char* FreeBlockBetweenGuards(unsigned blockSize) const {
    return FreeBlocksBetweenGuards({blockSize}).front();
  }

  // A free block of exactly size bytes between blocks in use, split off by growing a 16-byte
  // block in place: only Realloc makes sizes that are not multiples of 4.
  char* SplitOffFreeBlock(unsigned size) const {
    void* grown = Take(0);
    const unsigned above = RoundUpTo4(size + kSmallestSplit);
    FreeBlockBetweenGuards(above);
    const unsigned need = 16 + above - size;
    poolM->Realloc(grown, need - kBlockHeader);
    return BlockOf(grown) + need;
  }

  unsigned ChunkCount() const {
    unsigned count = 0;
    for (char* record = PointerOf(Word(kChunksAt)); record != nullptr;
         record = PointerOf(WordAt(record + 4 * kRecordNext))) {
      ++count;
    }
    return count;
  }

 private:
  NuvMempool* poolM = nullptr;
};

using PoolHeader = AllocatorPool;
using Malloc = AllocatorPool;
using MallocMaybe = AllocatorPool;
using Calloc = AllocatorPool;
using Free = AllocatorPool;
using Bucket = AllocatorPool;
using Chunk = AllocatorPool;
using Realloc = AllocatorPool;
using OutOfMemory = AllocatorPool;

TEST_F(PoolHeader, MagicAndSizeLeadTheHeader) {
  EXPECT_EQ(Word(kMagicAt), 0xa67f3e4dU);
  EXPECT_EQ(Word(kSizeAt), MappingLength(kPoolSize) - 8);
  EXPECT_EQ(Pool()->GetSize(), Word(kSizeAt));
}

TEST_F(PoolHeader, MagicBytesAreInTheNativeByteOrder) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(Base());
  const std::string magic(bytes, bytes + 4);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  EXPECT_EQ(magic, "\xa6\x7f\x3e\x4d");
#else
  EXPECT_EQ(magic, "\x4d\x3e\x7f\xa6");
#endif
#ifdef __powerpc__
  EXPECT_EQ(magic, "\xa6\x7f\x3e\x4d") << "the device's words are big-endian";
#endif
}

TEST_F(PoolHeader, PointersLeadIntoTheHeader) {
  EXPECT_EQ(Word(kBucketsPointerAt), Address(kBucketHeadsAt));
  EXPECT_EQ(Word(kFirstAt), Address(kFirstSentinelAt));
  EXPECT_EQ(Word(kLockPointerAt), Address(kLockAt));
  EXPECT_EQ(Word(kInfoPointerAt), Address(kInfoAt));
  EXPECT_EQ(&Pool()->GetInfo(), reinterpret_cast<const NuvMempoolInfo*>(Base() + kInfoAt));
}

TEST_F(PoolHeader, ReserveGranuleAndChunkFloorOfAFreshPool) {
  EXPECT_EQ(Word(kReserveAt), 512U);
  EXPECT_EQ(Word(kGranuleAt), 512U);
  EXPECT_EQ(Word(kFloorAt), AddressOf(PoolEnd()));
  EXPECT_EQ(Word(kChunksAt), 0U);
}

TEST_F(PoolHeader, CheckingHandlerAndLockStartCleared) {
  EXPECT_EQ(Word(kCheckingAt), 0U);
  EXPECT_EQ(Word(kHandlerAt), 0U);
  EXPECT_EQ(Word(kLockAt), 0U);
}

TEST_F(PoolHeader, BucketHeadsStartEmpty) {
  for (unsigned bucket = 0; bucket < NuvMempool::kBuckets; ++bucket) {
    EXPECT_EQ(BucketHead(bucket), 0U) << "bucket " << bucket;
  }
}

TEST_F(PoolHeader, NameIsAtSixtyAndEndsInsideItsField) {
  EXPECT_STREQ(Base() + kNameAt, "allocator");
  EXPECT_STREQ(Pool()->GetName(), "allocator");
  EXPECT_EQ(Base()[kNameEndAt], '\0');
}

TEST_F(PoolHeader, LongNameIsCutToFortySevenCharacters) {
  const std::string name(60, 'n');
  NuvMempool* pool = nullptr;
  ASSERT_EQ(NuvMempool::Allocate(name.c_str(), kPoolSize, true, nullptr, false, pool), kNuvOk);
  const char* bytes = reinterpret_cast<const char*>(pool);
  EXPECT_EQ(std::string(bytes + kNameAt), name.substr(0, 47));
  EXPECT_EQ(bytes[kNameEndAt], '\0');
  delete pool;
}

TEST_F(PoolHeader, FirstSentinelIsANuvBlockOfEightBytes) {
  EXPECT_EQ(Word(kFirstSentinelAt), kSentinelHeader);
  EXPECT_EQ(Word(kFirstSentinelAt + 4), 0U);
}

TEST_F(PoolHeader, PoolObjectsFollowTheFirstSentinel) {
  EXPECT_EQ(Word(kInitialTopAt), HeaderWord(NuvMempool::nuv, 28));
  EXPECT_EQ(Word(kMessengerBlockAt + 4), 8U);
  EXPECT_EQ(Word(kQueueManagerBlockAt), HeaderWord(NuvMempool::nuv, 424));
  EXPECT_EQ(Word(kQueueManagerBlockAt + 4), 28U);
  EXPECT_EQ(Word(kRegistryBlockAt), HeaderWord(NuvMempool::nuv, 24));
  EXPECT_EQ(Word(kRegistryBlockAt + 4), 424U);
}

TEST_F(PoolHeader, PoolObjectPointersAreTheirBlocksPayloads) {
  EXPECT_EQ(Word(kMessengerAt), Address(kMessengerBlockAt + kBlockHeader));
  EXPECT_EQ(Word(kQueueManagerAt), Address(kQueueManagerBlockAt + kBlockHeader));
  EXPECT_EQ(Word(kRegistryAt), Address(kRegistryBlockAt + kBlockHeader));
  EXPECT_EQ(AddressOf(Pool()->GetMessenger()), Word(kMessengerAt));
  EXPECT_EQ(AddressOf(Pool()->GetQBlockMgr()), Word(kQueueManagerAt));
  EXPECT_EQ(AddressOf(Pool()->GetRegistry()), Word(kRegistryAt));
}

TEST_F(PoolHeader, TopSentinelFollowsThePoolObjects) {
  EXPECT_EQ(Word(kTopAt), Address(kFreshTopAt));
  EXPECT_EQ(Word(kFreshTopAt), kSentinelHeader);
  EXPECT_EQ(Word(kFreshTopAt + 4), 24U);
}

TEST_F(PoolHeader, GrowingTheHeapWritesANewTopSentinel) {
  Take(0);
  EXPECT_EQ(Word(kTopAt), Address(kFreshTopAt + 16));
  EXPECT_EQ(Word(kFreshTopAt + 16), kSentinelHeader);
  EXPECT_EQ(Word(kFreshTopAt + 20), 16U);
}

TEST_F(Malloc, ZeroSizeGivesSixteenByteBlock) {
  void* p = Take(0);
  EXPECT_EQ(SizeOf(p), 16U);
  EXPECT_TRUE(DeadBeefBetween(BlockOf(p), kBlockHeader, 16));
}

TEST_F(Malloc, NineBytesGiveTwentyByteBlock) {
  void* p = Take(9);
  EXPECT_EQ(SizeOf(p), 20U);
  EXPECT_TRUE(DeadBeefBetween(BlockOf(p), kBlockHeader, 20));
}

TEST_F(Malloc, HeaderWordsAreUserAndSizeThenPreviousSize) {
  void* p = Pool()->Malloc(100, NuvMempool::glyph);
  EXPECT_EQ(BlockOf(p), Base() + kFreshTopAt);
  EXPECT_EQ(BlockWord(BlockOf(p), 0), 0x0a00006cU);
  EXPECT_EQ(BlockWord(BlockOf(p), 1), 24U);
}

TEST_F(Malloc, FreshPayloadIsFilledWithDeadBeef) {
  void* p = Take(1000);
  EXPECT_TRUE(DeadBeefBetween(BlockOf(p), kBlockHeader, 1008));
}

TEST_F(Malloc, SpareOfSixteenBytesIsHandedOutWhole) {
  char* free = FreeBlockBetweenGuards(64);
  void* p = Take(40);
  EXPECT_EQ(BlockOf(p), free);
  EXPECT_EQ(SizeOf(p), 64U);
  EXPECT_EQ(BucketHead(1), 0U);
}

TEST_F(Malloc, SpareOfTwentyBytesIsSplitOff) {
  char* free = FreeBlockBetweenGuards(64);
  void* p = Take(36);
  EXPECT_EQ(BlockOf(p), free);
  EXPECT_EQ(SizeOf(p), 44U);
  EXPECT_EQ(BlockWord(free + 44, 0), HeaderWord(NuvMempool::userFree, 20));
  EXPECT_EQ(BlockWord(free + 44, 1), 44U);
  EXPECT_EQ(BlockWord(free + 64, 1), 20U);
  EXPECT_EQ(BucketHead(0), AddressOf(free + 44));
}

TEST_F(Malloc, TakesTheMostRecentlyFreedFittingBlockOfItsBucket) {
  char* newer = FreeBlocksBetweenGuards({100, 100})[1];
  EXPECT_EQ(BlockOf(Take(92)), newer);
}

TEST_F(Malloc, SkipsBlocksOfItsBucketThatAreTooSmall) {
  char* fits = FreeBlocksBetweenGuards({120, 64})[0];
  EXPECT_EQ(BlockOf(Take(100)), fits);
}

TEST_F(Malloc, TakesTheHeadOfAHigherBucketWhenItsOwnHasNoFit) {
  char* higher = FreeBlocksBetweenGuards({400, 64})[0];
  void* p = Take(60);
  EXPECT_EQ(BlockOf(p), higher);
  EXPECT_EQ(SizeOf(p), 68U);
}

TEST_F(Malloc, GrowsTheHeapWhenNoFreeBlockFits) {
  FreeBlockBetweenGuards(64);
  char* top = Top();
  EXPECT_EQ(BlockOf(Take(100)), top);
  EXPECT_EQ(Top(), top + 108);
}

TEST_F(Malloc, MaySpendTheReserve) {
  const unsigned need = static_cast<unsigned>(Floor() - Top()) - (kReserve - 4);
  void* p = Take(need - kBlockHeader);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(Floor() - Top(), 508);
}

// Block sizes and the gap are multiples of 4, so 508 is the largest gap below the reserve.
TEST_F(MallocMaybe, LeavingLessThanTheReserveReturnsNull) {
  const unsigned need = static_cast<unsigned>(Floor() - Top()) - (kReserve - 4);
  const unsigned blocks = Pool()->GetInfo().Word(NuvMempoolInfo::kBlocks);
  EXPECT_EQ(Pool()->MallocMaybe(need - kBlockHeader, NuvMempool::unknown), nullptr);
  EXPECT_EQ(Pool()->GetInfo().Word(NuvMempoolInfo::kBlocks), blocks);
}

TEST_F(MallocMaybe, RefusedBlockStaysFreeBelowTheRaisedTop) {
  char* top = Top();
  const unsigned need = static_cast<unsigned>(Floor() - top) - (kReserve - 4);
  Pool()->MallocMaybe(need - kBlockHeader, NuvMempool::unknown);
  EXPECT_EQ(Top(), top + need);
  EXPECT_EQ(BlockWord(top, 0), HeaderWord(NuvMempool::userFree, need));
  EXPECT_EQ(BucketHead(SelectBucket(need)), AddressOf(top));
}

TEST_F(MallocMaybe, LeavingExactlyTheReserveSucceeds) {
  const unsigned need = static_cast<unsigned>(Floor() - Top()) - kReserve;
  EXPECT_NE(Pool()->MallocMaybe(need - kBlockHeader, NuvMempool::unknown), nullptr);
  EXPECT_EQ(Floor() - Top(), 512);
}

TEST_F(MallocMaybe, ReturnsNullWhenNothingFits) {
  EXPECT_EQ(Pool()->MallocMaybe(Pool()->GetSize(), NuvMempool::unknown), nullptr);
}

TEST_F(MallocMaybe, RequestBeyondTheSizeFieldReturnsNull) {
  EXPECT_EQ(Pool()->MallocMaybe(kSizeMask, NuvMempool::unknown), nullptr);
}

TEST_F(MallocMaybe, RequestOfNearlyFourGibibytesReturnsNull) {
  EXPECT_EQ(Pool()->MallocMaybe(~0U, NuvMempool::unknown), nullptr);
}

TEST_F(Calloc, ClearsTheRequestedBytesOnly) {
  auto* p = static_cast<unsigned char*>(Pool()->Calloc(5, NuvMempool::unknown));
  EXPECT_EQ(std::string(p, p + 5), std::string(5, '\0'));
  unsigned dead = kDeadBeef;
  EXPECT_EQ(memcmp(p + 5, reinterpret_cast<unsigned char*>(&dead) + 1, 3), 0);
}

TEST_F(Calloc, MaybeFormClearsTheRequestedBytes) {
  auto* p = static_cast<unsigned char*>(Pool()->CallocMaybe(40, NuvMempool::unknown));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(std::string(p, p + 40), std::string(40, '\0'));
}

TEST_F(Calloc, MaybeFormReturnsNullWhenNothingFits) {
  EXPECT_EQ(Pool()->CallocMaybe(Pool()->GetSize(), NuvMempool::unknown), nullptr);
}

TEST_F(Free, FreedBlockHoldsNullLinksThenDeadBeef) {
  char* block = FreeBlockBetweenGuards(100);
  EXPECT_EQ(BlockWord(block, 0), HeaderWord(NuvMempool::userFree, 100));
  EXPECT_EQ(BlockWord(block, 1), 24U);
  EXPECT_EQ(BlockWord(block, 2), 0U);
  EXPECT_EQ(BlockWord(block, 3), 0U);
  EXPECT_TRUE(DeadBeefBetween(block, 16, 100));
}

TEST_F(Free, FreedBlockIsPushedAtTheHeadOfItsBucket) {
  const std::vector<char*> blocks = FreeBlocksBetweenGuards({100, 80});
  char* older = blocks[0];
  char* newer = blocks[1];
  EXPECT_EQ(BucketHead(1), AddressOf(newer));
  EXPECT_EQ(BlockWord(newer, 2), 0U);
  EXPECT_EQ(BlockWord(newer, 3), AddressOf(older));
  EXPECT_EQ(BlockWord(older, 2), AddressOf(newer));
  EXPECT_EQ(BlockWord(older, 3), 0U);
}

TEST_F(Free, MiddleLowerUpperMergeIntoOneBlockOfTheirTotalSize) {
  void* lower = Take(56);
  void* middle = Take(120);
  void* upper = Take(248);
  void* guard = Guard();
  Pool()->Free(middle);
  Pool()->Free(lower);
  Pool()->Free(upper);
  EXPECT_EQ(BlockWord(BlockOf(lower), 0), HeaderWord(NuvMempool::userFree, 448));
  EXPECT_EQ(BlockWord(BlockOf(guard), 1), 448U);
  EXPECT_EQ(BucketHead(3), AddressOf(BlockOf(lower)));
  EXPECT_EQ(BucketHead(1), 0U);
  EXPECT_EQ(BucketHead(2), 0U);
  EXPECT_EQ(BlockWord(BlockOf(lower), 2), 0U);
  EXPECT_EQ(BlockWord(BlockOf(lower), 3), 0U);
}

TEST_F(Free, MergedAwayHeadersBecomeDeadBeef) {
  void* lower = Take(56);
  void* middle = Take(120);
  void* upper = Take(248);
  Guard();
  Pool()->Free(middle);
  Pool()->Free(lower);
  Pool()->Free(upper);
  EXPECT_TRUE(DeadBeefBetween(BlockOf(lower), 16, 448));
}

TEST_F(Free, BlockBelowTheTopSentinelStaysInItsBucket) {
  void* p = Take(100);
  char* top = Top();
  Pool()->Free(p);
  EXPECT_EQ(Top(), top);
  EXPECT_EQ(BucketHead(1), AddressOf(BlockOf(p)));
  EXPECT_EQ(BlockWord(top, 0), kSentinelHeader);
}

TEST(BucketOfSize, SizesBelowSixtyFourAreBucketZero) {
  EXPECT_EQ(SelectBucket(0), 0U);
  EXPECT_EQ(SelectBucket(63), 0U);
}

TEST(BucketOfSize, EachBucketDoublesFromSixtyFour) {
  EXPECT_EQ(SelectBucket(64), 1U);
  EXPECT_EQ(SelectBucket(127), 1U);
  EXPECT_EQ(SelectBucket(128), 2U);
  EXPECT_EQ(SelectBucket(255), 2U);
  EXPECT_EQ(SelectBucket(256), 3U);
}

TEST(BucketOfSize, SizesFromEightMebibytesAreBucketEighteen) {
  EXPECT_EQ(SelectBucket(8388607), 17U);
  EXPECT_EQ(SelectBucket(8388608), 18U);
  EXPECT_EQ(SelectBucket(kSizeMask), 18U);
}

TEST_F(Bucket, FreeBlockOfSixtyThreeBytesIsInBucketZero) {
  char* block = SplitOffFreeBlock(63);
  EXPECT_EQ(BlockWord(block, 0), 63U);
  EXPECT_EQ(BucketHead(0), AddressOf(block));
}

TEST_F(Bucket, FreeBlockOfSixtyFourBytesIsInBucketOne) {
  char* block = SplitOffFreeBlock(64);
  EXPECT_EQ(BlockWord(block, 0), 64U);
  EXPECT_EQ(BucketHead(1), AddressOf(block));
}

TEST_F(Bucket, FreeBlockOfOneHundredTwentySevenBytesIsInBucketOne) {
  char* block = SplitOffFreeBlock(127);
  EXPECT_EQ(BlockWord(block, 0), 127U);
  EXPECT_EQ(BucketHead(1), AddressOf(block));
}

TEST_F(Bucket, FreeBlockOfOneHundredTwentyEightBytesIsInBucketTwo) {
  char* block = SplitOffFreeBlock(128);
  EXPECT_EQ(BlockWord(block, 0), 128U);
  EXPECT_EQ(BucketHead(2), AddressOf(block));
}

TEST_F(Chunk, GetChunkOfOneByteCarvesFiveHundredTwelveBytes) {
  char* end = PoolEnd();
  auto* chunk = static_cast<char*>(Pool()->GetChunk(1, NuvMempool::catalog));
  EXPECT_EQ(chunk, end - 512);
  EXPECT_EQ(Floor(), end - 512);
}

TEST_F(Chunk, RecordIsATwentyByteNuvBlockListedFirst) {
  char* top = Top();
  void* chunk = Pool()->GetChunk(1, NuvMempool::catalog);
  char* record = PointerOf(Word(kChunksAt));
  EXPECT_EQ(record, top + kBlockHeader);
  EXPECT_EQ(BlockWord(top, 0), HeaderWord(NuvMempool::nuv, 28));
  EXPECT_EQ(WordAt(record + 4 * kRecordAddress), AddressOf(chunk));
  EXPECT_EQ(WordAt(record + 4 * kRecordSize), 512U);
  EXPECT_EQ(WordAt(record + 4 * kRecordUser), unsigned{NuvMempool::catalog});
  EXPECT_EQ(WordAt(record + 4 * kRecordFree), 0U);
  EXPECT_EQ(WordAt(record + 4 * kRecordNext), 0U);
}

TEST_F(Chunk, ChunkMemoryIsNotFilled) {
  auto* chunk = static_cast<char*>(Pool()->GetChunk(512, NuvMempool::catalog));
  EXPECT_EQ(std::string(chunk, chunk + 512), std::string(512, '\0'));
}

TEST_F(Chunk, ReturningTheOnlyChunkRestoresTheFloorAndFreesItsRecord) {
  void* chunk = Pool()->GetChunk(1, NuvMempool::catalog);
  char* record = PointerOf(Word(kChunksAt));
  Pool()->ReturnChunk(chunk);
  EXPECT_EQ(Floor(), PoolEnd());
  EXPECT_EQ(Word(kChunksAt), 0U);
  EXPECT_EQ(BlockWord(record - kBlockHeader, 0) >> 24, unsigned{NuvMempool::userFree});
}

TEST_F(Chunk, NewerChunksLieBelowOlderOnes) {
  auto* older = static_cast<char*>(Pool()->GetChunk(1000, NuvMempool::catalog));
  auto* newer = static_cast<char*>(Pool()->GetChunk(512, NuvMempool::catalog));
  EXPECT_EQ(newer, older - 512);
  EXPECT_EQ(Floor(), newer);
  EXPECT_EQ(WordAt(PointerOf(Word(kChunksAt)) + 4 * kRecordAddress), AddressOf(newer));
}

TEST_F(Chunk, ReturningTheOlderOfTwoKeepsTheFloorAndTheList) {
  void* older = Pool()->GetChunk(512, NuvMempool::catalog);
  void* newer = Pool()->GetChunk(512, NuvMempool::catalog);
  Pool()->ReturnChunk(older);
  EXPECT_EQ(Floor(), newer);
  EXPECT_EQ(ChunkCount(), 2U);
  char* olderRecord = PointerOf(WordAt(PointerOf(Word(kChunksAt)) + 4 * kRecordNext));
  EXPECT_EQ(WordAt(olderRecord + 4 * kRecordFree), 1U);
  EXPECT_EQ(WordAt(olderRecord + 4 * kRecordUser), 0U);
}

TEST_F(Chunk, ReturningTheNewerAfterTheOlderGivesBothBack) {
  void* older = Pool()->GetChunk(512, NuvMempool::catalog);
  void* newer = Pool()->GetChunk(512, NuvMempool::catalog);
  Pool()->ReturnChunk(older);
  Pool()->ReturnChunk(newer);
  EXPECT_EQ(Floor(), PoolEnd());
  EXPECT_EQ(ChunkCount(), 0U);
}

TEST_F(Chunk, FreedChunkIsReusedByARequestRoundingToItsSize) {
  void* freed = Pool()->GetChunk(1024, NuvMempool::catalog);
  Pool()->GetChunk(512, NuvMempool::catalog);
  Pool()->ReturnChunk(freed);
  EXPECT_EQ(Pool()->GetChunk(513, NuvMempool::glyph), freed);
  EXPECT_EQ(ChunkCount(), 2U);
}

TEST_F(Chunk, FreedChunkIsNotReusedForASmallerSize) {
  void* freed = Pool()->GetChunk(1024, NuvMempool::catalog);
  char* floor = static_cast<char*>(Pool()->GetChunk(512, NuvMempool::catalog));
  Pool()->ReturnChunk(freed);
  EXPECT_EQ(Pool()->GetChunk(512, NuvMempool::catalog), floor - 512);
}

TEST_F(Chunk, FreedChunkIsNotReusedForALargerSize) {
  void* freed = Pool()->GetChunk(1024, NuvMempool::catalog);
  char* floor = static_cast<char*>(Pool()->GetChunk(512, NuvMempool::catalog));
  Pool()->ReturnChunk(freed);
  EXPECT_EQ(Pool()->GetChunk(1536, NuvMempool::catalog), floor - 1536);
}

TEST_F(Chunk, CarvingMayLeaveTheReserveInTheGap) {
  const auto gap = static_cast<unsigned>(Floor() - (Top() + kBlockHeader));
  const unsigned largest = (gap - kReserve) / 512 * 512;
  EXPECT_NE(Pool()->GetChunk(largest, NuvMempool::stream), nullptr);
}

TEST_F(Chunk, CarvingIntoTheReserveReturnsNull) {
  const auto gap = static_cast<unsigned>(Floor() - (Top() + kBlockHeader));
  const unsigned tooLarge = (gap - kReserve) / 512 * 512 + 512;
  EXPECT_EQ(Pool()->GetChunk(tooLarge, NuvMempool::stream), nullptr);
  EXPECT_EQ(Floor(), PoolEnd());
}

TEST_F(Realloc, ToASmallerSizeKeepsThePointerAndTheBlockSize) {
  void* p = Take(100);
  EXPECT_EQ(Pool()->Realloc(p, 10), p);
  EXPECT_EQ(SizeOf(p), 108U);
}

TEST_F(Realloc, GrowsInPlaceIntoAFreeBlockAbove) {
  void* p = Take(24);
  FillWith(p, 24, 1);
  FreeBlockBetweenGuards(128);
  EXPECT_EQ(Pool()->Realloc(p, 60), p);
  EXPECT_EQ(SizeOf(p), 68U);
  EXPECT_TRUE(HoldsFill(p, 24, 1));
  EXPECT_TRUE(DeadBeefBetween(BlockOf(p), 32, 68));
}

TEST_F(Realloc, GrowingInPlaceSplitsOffTheRest) {
  void* p = Take(24);
  char* above = FreeBlockBetweenGuards(128);
  Pool()->Realloc(p, 60);
  char* rest = BlockOf(p) + 68;
  EXPECT_EQ(BlockWord(rest, 0), HeaderWord(NuvMempool::userFree, 92));
  EXPECT_EQ(BlockWord(rest, 1), 68U);
  EXPECT_EQ(BlockWord(above + 128, 1), 92U);
  EXPECT_EQ(BucketHead(1), AddressOf(rest));
  EXPECT_EQ(BucketHead(2), 0U);
}

TEST_F(Realloc, SpareOfSixteenBytesStaysInTheBlock) {
  void* p = Take(8);
  char* above = FreeBlockBetweenGuards(64);
  Pool()->Realloc(p, 56);
  EXPECT_EQ(SizeOf(p), 80U);
  EXPECT_EQ(BlockWord(above + 64, 1), 80U);
}

TEST_F(Realloc, SpareOfSeventeenBytesIsSplitOff) {
  void* p = Take(8);
  FreeBlockBetweenGuards(64);
  Pool()->Realloc(p, 55);
  EXPECT_EQ(SizeOf(p), 63U);
  EXPECT_EQ(BlockWord(BlockOf(p) + 63, 0), HeaderWord(NuvMempool::userFree, 17));
}

// Growing in place keeps the unrounded size, so the rest that is split off can start at an
// address that is not a multiple of 4.
TEST_F(Realloc, SizeNotAMultipleOfFourLeavesAnUnalignedFreeBlock) {
  void* p = Take(8);
  char* above = FreeBlockBetweenGuards(64);
  Pool()->Realloc(p, 21);
  char* rest = BlockOf(p) + 29;
  EXPECT_NE(AddressOf(rest) % 4, 0U);
  EXPECT_EQ(SizeOf(p), 29U);
  EXPECT_EQ(BlockWord(rest, 0), HeaderWord(NuvMempool::userFree, 51));
  EXPECT_EQ(BlockWord(rest, 1), 29U);
  EXPECT_EQ(BlockWord(above + 64, 1), 51U);
  EXPECT_EQ(BucketHead(0), AddressOf(rest));
}

TEST_F(Realloc, MovesWhenTheBlockAboveIsInUse) {
  void* p = Take(24);
  FillWith(p, 24, 7);
  Guard();
  void* moved = Pool()->Realloc(p, 200);
  EXPECT_NE(moved, p);
  EXPECT_EQ(SizeOf(moved), 208U);
  EXPECT_TRUE(HoldsFill(moved, 24, 7));
  EXPECT_EQ(BlockWord(BlockOf(p), 0) >> 24, unsigned{NuvMempool::userFree});
}

TEST_F(Realloc, MovedBlockKeepsItsUser) {
  void* p = Pool()->Malloc(24, NuvMempool::overlay);
  Guard();
  void* moved = Pool()->Realloc(p, 200);
  EXPECT_EQ(BlockWord(BlockOf(moved), 0) >> 24, unsigned{NuvMempool::overlay});
}

TEST_F(Realloc, MaybeFormReturnsNullAndLeavesTheBlockWhenNothingFits) {
  void* p = Take(24);
  FillWith(p, 24, 3);
  const unsigned header = BlockWord(BlockOf(p), 0);
  EXPECT_EQ(Pool()->ReallocMaybe(p, Pool()->GetSize()), nullptr);
  EXPECT_EQ(BlockWord(BlockOf(p), 0), header);
  EXPECT_TRUE(HoldsFill(p, 24, 3));
}

// The handlers are plain functions: what they see and do goes through these.
struct HandlerState {
  unsigned calls = 0;
  unsigned lockWordSeen = ~0U;
  unsigned falseReturnsBeforeFreeing = 0;
  void* releasable = nullptr;
};
HandlerState handlerState;

bool FreeingHandler(NuvMempool* pool) {
  ++handlerState.calls;
  handlerState.lockWordSeen = WordAt(reinterpret_cast<char*>(pool) + kLockAt);
  if (handlerState.calls > handlerState.falseReturnsBeforeFreeing &&
      handlerState.releasable != nullptr) {
    pool->Free(handlerState.releasable);
    handlerState.releasable = nullptr;
  }
  return true;
}

bool RefusingHandler(NuvMempool* /*pool*/) {
  ++handlerState.calls;
  return false;
}

// A pool whose only room for a large block is a block that the handler may free.
class ExhaustedPool : public AllocatorPool {
 protected:
  void SetUp() override {
    AllocatorPool::SetUp();
    ASSERT_NE(Pool(), nullptr);
    handlerState = HandlerState{};
    largeM = RoundUpTo4(Pool()->GetSize() / 2);
    handlerState.releasable = Take(largeM);
    Guard();
  }
  void TearDown() override {
    handlerState = HandlerState{};
    AllocatorPool::TearDown();
  }

  // More than half the pool: a second one never fits beside the first.
  unsigned Large() const { return largeM; }

 private:
  unsigned largeM = 0;
};

using OutOfMemoryHandler = ExhaustedPool;

TEST_F(OutOfMemory, InstallingReturnsThePreviousHandler) {
  EXPECT_EQ(Pool()->OutOfMemory(FreeingHandler), nullptr);
  EXPECT_EQ(Pool()->OutOfMemory(RefusingHandler), &FreeingHandler);
  EXPECT_EQ(Word(kHandlerAt), static_cast<unsigned>(reinterpret_cast<uintptr_t>(&RefusingHandler)));
}

TEST_F(OutOfMemoryHandler, RunsWithThePoolLockReleased) {
  Pool()->OutOfMemory(FreeingHandler);
  Take(Large());
  EXPECT_EQ(handlerState.calls, 1U);
  EXPECT_EQ(handlerState.lockWordSeen, 0U);
}

TEST_F(OutOfMemoryHandler, TrueReturnRetriesTheAllocation) {
  Pool()->OutOfMemory(FreeingHandler);
  handlerState.falseReturnsBeforeFreeing = 2;
  void* p = Take(Large());
  EXPECT_EQ(handlerState.calls, 3U);
  EXPECT_EQ(SizeOf(p), Large() + kBlockHeader);
}

TEST_F(OutOfMemoryHandler, MallocMaybeAsksItToo) {
  Pool()->OutOfMemory(RefusingHandler);
  EXPECT_EQ(Pool()->MallocMaybe(Large(), NuvMempool::unknown), nullptr);
  EXPECT_EQ(handlerState.calls, 1U);
}

TEST_F(OutOfMemoryHandler, ReallocAsksItWhenNothingFits) {
  Pool()->OutOfMemory(FreeingHandler);
  void* p = Take(24);
  Guard();
  void* moved = Pool()->Realloc(p, Large());
  EXPECT_EQ(handlerState.calls, 1U);
  EXPECT_EQ(SizeOf(moved), Large() + kBlockHeader);
}

}  // namespace
