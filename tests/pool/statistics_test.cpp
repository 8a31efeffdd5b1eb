/// \file Pool statistics: counters, user names, dumps, a randomised model, four sharing processes.
#include <nuv/mempool.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/child_process.h"
#include "support/fatal_report.h"
#include "support/log_lines.h"
#include "support/pool_prefix.h"
#include "support/raw_words.h"
#include "support/shared_memory.h"

namespace {

using Info = NuvMempoolInfo;
using nuv::test::ChildOutcome;
using nuv::test::ChildProcess;

constexpr const char* kPoolName = "stats";
constexpr unsigned kPoolSize = 64 * 1024;
constexpr unsigned kBlockHeader = 8;
constexpr unsigned kDeadBeef = 0xdeadbeef;
constexpr unsigned kSizeMask = 0x00ffffff;
constexpr unsigned kReserve = 512;
constexpr unsigned kGranule = 512;
constexpr unsigned kLargestSpare = 16;
constexpr unsigned kTopAt = 16;
constexpr unsigned kFloorAt = 24;
constexpr unsigned kChunksAt = 44;
// The pool's own objects: messenger, thread-queue manager and registry, all of user "nuv".
constexpr unsigned kOwnBlocks = 3;
constexpr unsigned kOwnBytes = 20 + 416 + 16;
// Records of the pool's reports: facility "facnuv" (local0), priority "priinfo".
constexpr int kInfoRecordValue = 134;

using nuv::test::WordAt;

char* PointerOf(unsigned word) { return reinterpret_cast<char*>(static_cast<uintptr_t>(word)); }

char* BlockOf(void* payload) { return static_cast<char*>(payload) - kBlockHeader; }

unsigned BlockSizeOf(void* payload) { return WordAt(BlockOf(payload)) & kSizeMask; }

unsigned RoundUpTo4(unsigned n) { return (n + 3) & ~3U; }

// The block size that Malloc looks for: the size rounded up to 4 with its header, at least 16.
unsigned NeedFor(unsigned size) { return std::max(RoundUpTo4(size) + kBlockHeader, 16U); }

std::vector<unsigned> WordsOf(const NuvMempool* pool) {
  std::vector<unsigned> words(Info::kWords);
  for (unsigned i = 0; i < Info::kWords; ++i) {
    words[i] = pool->GetInfo().Word(i);
  }
  return words;
}

// A fresh anonymous pool, detached when the test ends.
class StatisticsPool : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NuvMempool::Allocate(kPoolName, kPoolSize, true, nullptr, false, poolM), kNuvOk);
  }
  void TearDown() override { delete poolM; }

  NuvMempool* Pool() const { return poolM; }
  std::vector<unsigned> Words() const { return WordsOf(poolM); }
  unsigned Word(unsigned index) const { return poolM->GetInfo().Word(index); }
  void* Take(unsigned size, NuvMempool::User user) const { return poolM->Malloc(size, user); }
  // A block in use that keeps the blocks below it from merging with anything above.
  void* Guard() const { return Take(0, NuvMempool::unknown); }

 private:
  NuvMempool* poolM = nullptr;
};

using Statistics = StatisticsPool;
using DumpArena = StatisticsPool;
using DumpHighWater = StatisticsPool;

// Adds count and amount (modulo 2^32, so they may be "negative") to the block or chunk words of
// the totals and of the row of user; high-water marks are left to the caller.
void Shift(std::vector<unsigned>& words, unsigned count, unsigned amount, unsigned row,
           bool chunk) {
  const unsigned total = chunk ? Info::kChunks : Info::kBlocks;
  const unsigned users = chunk ? Info::kUserChunks : Info::kUserBlocks;
  const unsigned userBytes = chunk ? Info::kUserChunkBytes : Info::kUserBlockBytes;
  words[total] += count;
  words[total + 1] += amount;
  words[users + row] += count;
  words[userBytes + row] += amount;
}

TEST_F(Statistics, FreshPoolCountsItsOwnObjectsAsNuv) {
  std::vector<unsigned> expected(Info::kWords, 0);
  for (const unsigned high : {0U, 2U}) {
    expected[Info::kBlocks + high] = kOwnBlocks;
    expected[Info::kBlockBytes + high] = kOwnBytes;
  }
  expected[Info::kUserBlocks + NuvMempool::nuv] = kOwnBlocks;
  expected[Info::kUserBlocksHigh + NuvMempool::nuv] = kOwnBlocks;
  expected[Info::kUserBlockBytes + NuvMempool::nuv] = kOwnBytes;
  expected[Info::kUserBlockBytesHigh + NuvMempool::nuv] = kOwnBytes;
  expected[Info::kEmptyBlockBytes] = kOwnBytes;
  expected[Info::kEmptyBlocks] = kOwnBlocks;
  expected[Info::kMallocCalls] = kOwnBlocks;
  EXPECT_EQ(Words(), expected);
}

TEST_F(Statistics, AllocBlockRaisesTotalsUserAndTheirHighWaterMarks) {
  std::vector<unsigned> expected = Words();
  Take(100, NuvMempool::catalog);
  Shift(expected, 1, 100, NuvMempool::catalog, false);
  expected[Info::kBlocksHigh] = expected[Info::kBlocks];
  expected[Info::kBlockBytesHigh] = expected[Info::kBlockBytes];
  expected[Info::kUserBlocksHigh + NuvMempool::catalog] = 1;
  expected[Info::kUserBlockBytesHigh + NuvMempool::catalog] = 100;
  expected[Info::kMallocCalls] += 1;
  EXPECT_EQ(Words(), expected);
}

TEST_F(Statistics, FreeBlockLowersTotalsAndUserButKeepsHighWaterMarks) {
  void* p = Take(100, NuvMempool::catalog);
  std::vector<unsigned> expected = Words();
  Pool()->Free(p);
  Shift(expected, -1U, -100U, NuvMempool::catalog, false);
  EXPECT_EQ(Words(), expected);
  EXPECT_EQ(Word(Info::kUserBlockBytesHigh + NuvMempool::catalog), 100U);
}

TEST_F(Statistics, PayloadBytesAreTheBlockSizeLessItsHeader) {
  const unsigned before = Word(Info::kBlockBytes);
  Take(9, NuvMempool::catalog);
  EXPECT_EQ(Word(Info::kBlockBytes) - before, 12U);
  EXPECT_EQ(Word(Info::kUserBlockBytes + NuvMempool::catalog), 12U);
}

TEST_F(Statistics, AllocChunkCountsTheChunkAndItsNuvRecord) {
  std::vector<unsigned> expected = Words();
  Pool()->GetChunk(1000, NuvMempool::glyph);
  Shift(expected, 1, 20, NuvMempool::nuv, false);
  Shift(expected, 1, 1024, NuvMempool::glyph, true);
  for (const unsigned index :
       {Info::kBlocks, Info::kBlockBytes, Info::kChunks, Info::kChunkBytes}) {
    expected[index + 2] = expected[index];
  }
  expected[Info::kUserBlocksHigh + NuvMempool::nuv] += 1;
  expected[Info::kUserBlockBytesHigh + NuvMempool::nuv] += 20;
  expected[Info::kUserChunksHigh + NuvMempool::glyph] = 1;
  expected[Info::kUserChunkBytesHigh + NuvMempool::glyph] = 1024;
  expected[Info::kMallocCalls] += 1;
  EXPECT_EQ(Words(), expected);
}

TEST_F(Statistics, FreeChunkLowersTheChunkCountersAndFreesTheRecord) {
  void* chunk = Pool()->GetChunk(1000, NuvMempool::glyph);
  std::vector<unsigned> expected = Words();
  Pool()->ReturnChunk(chunk);
  Shift(expected, -1U, -20U, NuvMempool::nuv, false);
  Shift(expected, -1U, -1024U, NuvMempool::glyph, true);
  EXPECT_EQ(Words(), expected);
}

TEST_F(Statistics, ReusedChunkIsCountedForItsNewUserWithoutANewRecord) {
  void* older = Pool()->GetChunk(1000, NuvMempool::glyph);
  Pool()->GetChunk(512, NuvMempool::glyph);
  Pool()->ReturnChunk(older);
  std::vector<unsigned> expected = Words();
  Pool()->GetChunk(1024, NuvMempool::overlay);
  Shift(expected, 1, 1024, NuvMempool::overlay, true);
  expected[Info::kUserChunksHigh + NuvMempool::overlay] = 1;
  expected[Info::kUserChunkBytesHigh + NuvMempool::overlay] = 1024;
  EXPECT_EQ(Words(), expected);
}

TEST_F(Statistics, UnassignedBlockIsNotCounted) {
  std::vector<unsigned> expected = Words();
  Take(100, NuvMempool::unassigned);
  expected[Info::kMallocCalls] += 1;
  EXPECT_EQ(Words(), expected);
}

TEST_F(Statistics, FreeOfAnUnassignedBlockDrivesUserOneBelowZero) {
  void* p = Take(100, NuvMempool::unassigned);
  const unsigned blocks = Word(Info::kBlocks);
  const unsigned bytes = Word(Info::kBlockBytes);
  Pool()->Free(p);
  EXPECT_EQ(Word(Info::kUserBlocks + NuvMempool::unassigned), 0xFFFFFFFFU);
  EXPECT_EQ(Word(Info::kUserBlockBytes + NuvMempool::unassigned), 0U - 100U);
  EXPECT_EQ(Word(Info::kBlocks), blocks - 1);
  EXPECT_EQ(Word(Info::kBlockBytes), bytes - 100);
}

TEST_F(Statistics, AssignNuvCoreUserRetagsAndCountsOnce) {
  void* p = Take(100, NuvMempool::unassigned);
  std::vector<unsigned> expected = Words();
  Pool()->AssignNuvCoreUser(p, NuvMempool::overlay);
  Shift(expected, 1, 100, NuvMempool::overlay, false);
  expected[Info::kBlocksHigh] = expected[Info::kBlocks];
  expected[Info::kBlockBytesHigh] = expected[Info::kBlockBytes];
  expected[Info::kUserBlocksHigh + NuvMempool::overlay] = 1;
  expected[Info::kUserBlockBytesHigh + NuvMempool::overlay] = 100;
  EXPECT_EQ(Words(), expected);
  EXPECT_EQ(WordAt(BlockOf(p)) >> 24, unsigned{NuvMempool::overlay});
}

TEST_F(Statistics, TagsAboveThirteenShareTheLastRow) {
  Take(100, static_cast<NuvMempool::User>(13));
  Take(40, static_cast<NuvMempool::User>(200));
  EXPECT_EQ(Word(Info::kUserBlocks + 13), 2U);
  EXPECT_EQ(Word(Info::kUserBlockBytes + 13), 140U);
}

TEST_F(Statistics, HighWaterMarksKeepTheirPeak) {
  void* first = Take(100, NuvMempool::catalog);
  void* second = Take(200, NuvMempool::catalog);
  Pool()->Free(first);
  Pool()->Free(second);
  Take(52, NuvMempool::catalog);
  EXPECT_EQ(Word(Info::kBlocksHigh), kOwnBlocks + 2);
  EXPECT_EQ(Word(Info::kBlockBytesHigh), kOwnBytes + 300);
  EXPECT_EQ(Word(Info::kUserBlocksHigh + NuvMempool::catalog), 2U);
  EXPECT_EQ(Word(Info::kUserBlockBytesHigh + NuvMempool::catalog), 300U);
}

TEST_F(Statistics, UserHighWaterMarkRisesOnlyWhenExceeded) {
  Take(500, NuvMempool::catalog);
  Pool()->Free(Take(400, NuvMempool::glyph));
  Take(100, NuvMempool::glyph);
  EXPECT_EQ(Word(Info::kUserBlockBytesHigh + NuvMempool::glyph), 400U);
  EXPECT_EQ(Word(Info::kUserBlockBytesHigh + NuvMempool::catalog), 500U);
}

TEST_F(Statistics, ReallocInPlaceCountsTheGrownBlock) {
  void* p = Take(24, NuvMempool::catalog);
  void* above = Take(120, NuvMempool::unknown);
  Guard();
  Pool()->Free(above);
  Pool()->Realloc(p, 60);
  EXPECT_EQ(Word(Info::kUserBlocks + NuvMempool::catalog), 1U);
  EXPECT_EQ(Word(Info::kUserBlockBytes + NuvMempool::catalog), 60U);
}

TEST_F(Statistics, MallocCallsCountEveryBlockRequest) {
  const unsigned calls = Word(Info::kMallocCalls);
  Take(10, NuvMempool::catalog);
  Pool()->MallocMaybe(Pool()->GetSize(), NuvMempool::catalog);
  Pool()->GetChunk(1000, NuvMempool::glyph);
  EXPECT_EQ(Word(Info::kMallocCalls), calls + 3);
}

TEST_F(Statistics, BlocksSearchedCountsEveryFreeBlockLookedAt) {
  void* fits = Take(112, NuvMempool::catalog);
  Guard();
  void* tooSmall = Take(56, NuvMempool::catalog);
  Guard();
  Pool()->Free(fits);
  Pool()->Free(tooSmall);
  const unsigned searched = Word(Info::kBlocksSearched);
  Take(100, NuvMempool::catalog);
  EXPECT_EQ(Word(Info::kBlocksSearched), searched + 2);
}

TEST_F(Statistics, ResetEmptySnapshotsBlockBytesBlocksAndChunks) {
  Take(100, NuvMempool::catalog);
  Pool()->GetChunk(1000, NuvMempool::glyph);
  Pool()->ResetEmpty();
  EXPECT_EQ(Word(Info::kEmptyBlockBytes), kOwnBytes + 120);
  EXPECT_EQ(Word(Info::kEmptyBlocks), kOwnBlocks + 2);
  EXPECT_EQ(Word(Info::kEmptyChunks), 1U);
}

TEST(NuvMempoolInfo, ClearZeroesEveryWord) {
  NuvMempoolInfo info{};
  info.AllocBlock(100, NuvMempool::catalog);
  info.Clear();
  for (unsigned i = 0; i < Info::kWords; ++i) {
    EXPECT_EQ(info.Word(i), 0U) << i;
  }
}

TEST(NuvMempoolInfo, AllocBlockOfAnUnassignedBlockChangesNothing) {
  NuvMempoolInfo info{};
  info.Clear();
  info.AllocBlock(100, NuvMempool::unassigned);
  for (unsigned i = 0; i < Info::kWords; ++i) {
    EXPECT_EQ(info.Word(i), 0U) << i;
  }
}

TEST(NuvMempoolInfo, FreeBytesSubtractsBytesOnly) {
  NuvMempoolInfo info{};
  info.Clear();
  info.AllocBlock(100, NuvMempool::catalog);
  info.FreeBytes(40, NuvMempool::catalog);
  EXPECT_EQ(info.Word(Info::kBlocks), 1U);
  EXPECT_EQ(info.Word(Info::kBlockBytes), 60U);
  EXPECT_EQ(info.Word(Info::kUserBlocks + NuvMempool::catalog), 1U);
  EXPECT_EQ(info.Word(Info::kUserBlockBytes + NuvMempool::catalog), 60U);
  EXPECT_EQ(info.Word(Info::kBlockBytesHigh), 100U);
}

TEST(NuvMempoolInfo, ChunksOfUnassignedAreCounted) {
  NuvMempoolInfo info{};
  info.Clear();
  info.AllocChunk(512, NuvMempool::unassigned);
  EXPECT_EQ(info.Word(Info::kChunks), 1U);
  EXPECT_EQ(info.Word(Info::kUserChunkBytes + NuvMempool::unassigned), 512U);
  EXPECT_EQ(info.Word(Info::kUserChunkBytesHigh + NuvMempool::unassigned), 512U);
}

TEST(UserName, NamesEveryTag) {
  const std::vector<std::string> names = {"free",    "unassigned", "unknown", "nuv",    "stream",
                                          "catalog", "records",    "orb",     "script", "control",
                                          "glyph",   "overlay",    "remote"};
  for (unsigned user = 0; user < names.size(); ++user) {
    EXPECT_EQ(UserName(static_cast<NuvMempool::User>(user)), names[user]) << user;
  }
}

TEST(UserName, ThirteenIsXxx) { EXPECT_STREQ(UserName(static_cast<NuvMempool::User>(13)), "xxx"); }

TEST(UserName, TwoHundredIsXxx) {
  EXPECT_STREQ(UserName(static_cast<NuvMempool::User>(200)), "xxx");
}

// The records of the pool, logged by body in a child whose log goes to standard output.
std::vector<std::string> RecordsOf(const std::function<void()>& body) {
  const nuv::test::FatalReport report = nuv::test::RunToFatalReport(body);
  EXPECT_TRUE(report.outcome.Exited() && report.outcome.ExitCode() == 0) << report.outcome.err;
  return nuv::test::LogRecords(report.outcome.out, kInfoRecordValue, kPoolName, report.pid);
}

// The dump's heading, one row per user 2 to 13 (blank unless given), and the total.
std::vector<std::string> DumpRows(const std::string& heading,
                                  const std::vector<std::pair<unsigned, std::string>>& rows,
                                  const std::string& total) {
  std::vector<std::string> lines = {heading};
  for (unsigned user = 2; user < Info::kUsers; ++user) {
    char blank[80];
    snprintf(blank, sizeof blank, "%-12s       0/      0 bytes (   0 blocks/ 0 chunks)",
             UserName(static_cast<NuvMempool::User>(user)));
    lines.emplace_back(blank);
    for (const auto& row : rows) {
      if (row.first == user) {
        lines.back() = row.second;
      }
    }
  }
  lines.push_back(total);
  return lines;
}

TEST_F(DumpArena, LogsTheCurrentUsePerUserAndInTotal) {
  Take(100, NuvMempool::catalog);
  Pool()->GetChunk(1000, NuvMempool::glyph);
  Take(40, static_cast<NuvMempool::User>(13));
  const unsigned unused = Pool()->GetSize() - 1024 - (1360 + 8);
  const std::vector<std::string> expected =
      DumpRows("Current  (total pool size = " + std::to_string(Pool()->GetSize()) +
                   ", unused = " + std::to_string(unused) + "):",
               {{3, "nuv              472/      0 bytes (   4 blocks/ 0 chunks)"},
                {5, "catalog          100/      0 bytes (   1 blocks/ 0 chunks)"},
                {10, "glyph              0/   1024 bytes (   0 blocks/ 1 chunks)"},
                {13, "xxx               40/      0 bytes (   1 blocks/ 0 chunks)"}},
               "TOTAL            612/   1024 bytes (   6 blocks/ 1 chunks)");
  EXPECT_EQ(RecordsOf([this] { Pool()->DumpArena(false); }), expected);
}

TEST_F(DumpHighWater, LogsThePeakUsePerUserAndInTotal) {
  void* first = Take(100, NuvMempool::catalog);
  void* second = Take(200, NuvMempool::catalog);
  Pool()->Free(first);
  Pool()->Free(second);
  Take(52, NuvMempool::catalog);
  Pool()->ReturnChunk(Pool()->GetChunk(1000, NuvMempool::glyph));
  const std::vector<std::string> expected =
      DumpRows("High water mark:",
               {{3, "nuv              472/      0 bytes (   4 blocks/ 0 chunks)"},
                {5, "catalog          300/      0 bytes (   2 blocks/ 0 chunks)"},
                {10, "glyph              0/   1024 bytes (   0 blocks/ 1 chunks)"}},
               "TOTAL            752/   1024 bytes (   5 blocks/ 1 chunks)");
  EXPECT_EQ(RecordsOf([this] { Pool()->DumpHighWater(); }), expected);
}

// A randomised model: every operation of the allocator against a plain account of what is live.

constexpr unsigned kModelPoolSize = 2 * 1024 * 1024;
constexpr unsigned kDefaultModelSeed = 20240611;
constexpr const char* kModelSeedVariable = "NUV_POOL_MODEL_SEED";
// Every operation fills its block with the free pattern, up to 32 KiB: 10,000 of them take a
// second where the sanitizers run under emulation, and over three on a loaded machine.
// NUV_POOL_MODEL_OPERATIONS asks for more.
constexpr unsigned kModelOperations = 10000;
constexpr const char* kModelOperationsVariable = "NUV_POOL_MODEL_OPERATIONS";
constexpr unsigned kCheckInterval = 1000;
constexpr size_t kMostLiveBlocks = 250;
constexpr size_t kMostLiveChunks = 24;
constexpr unsigned kLargestChunkRequest = 16384;
// Malloc and Realloc end the process when they fail: they run only with this much room left.
constexpr unsigned kSafetyMargin = 1024;
constexpr std::chrono::seconds kModelDeadline{9};

unsigned ModelOperations() {
  const char* text = getenv(kModelOperationsVariable);
  return text != nullptr ? static_cast<unsigned>(strtoul(text, nullptr, 0)) : kModelOperations;
}

unsigned ModelSeed() {
  const char* text = getenv(kModelSeedVariable);
  return text != nullptr ? static_cast<unsigned>(strtoul(text, nullptr, 0)) : kDefaultModelSeed;
}

void Fill(void* memory, unsigned size, unsigned char first) {
  auto* bytes = static_cast<unsigned char*>(memory);
  for (unsigned i = 0; i < size; ++i) {
    bytes[i] = static_cast<unsigned char>(first + i);
  }
}

bool HoldsFill(const void* memory, unsigned size, unsigned char first) {
  const auto* bytes = static_cast<const unsigned char*>(memory);
  unsigned char differences = 0;
  for (unsigned i = 0; i < size; ++i) {
    differences |= static_cast<unsigned char>(bytes[i] ^ static_cast<unsigned char>(first + i));
  }
  return differences == 0;
}

bool HoldsDeadBeef(const char* from, const char* to) {
  for (; from + 4 <= to; from += 4) {
    if (WordAt(from) != kDeadBeef) {
      return false;
    }
  }
  return true;
}

// The statistics words as the model expects them; the search counter is not modelled.
class ExpectedInfo {
 public:
  explicit ExpectedInfo(const NuvMempool* pool) : wordsM(WordsOf(pool)) {}

  void AllocBlock(unsigned bytes, unsigned user) {
    Add(Info::kBlocks, Info::kBlocksHigh, 1);
    Add(Info::kBlockBytes, Info::kBlockBytesHigh, bytes);
    Add(Info::kUserBlocks + user, Info::kUserBlocksHigh + user, 1);
    Add(Info::kUserBlockBytes + user, Info::kUserBlockBytesHigh + user, bytes);
  }
  void FreeBlock(unsigned bytes, unsigned user) { Shift(wordsM, -1U, 0U - bytes, user, false); }
  void AllocChunk(unsigned bytes, unsigned user) {
    Add(Info::kChunks, Info::kChunksHigh, 1);
    Add(Info::kChunkBytes, Info::kChunkBytesHigh, bytes);
    Add(Info::kUserChunks + user, Info::kUserChunksHigh + user, 1);
    Add(Info::kUserChunkBytes + user, Info::kUserChunkBytesHigh + user, bytes);
  }
  void FreeChunk(unsigned bytes, unsigned user) { Shift(wordsM, -1U, 0U - bytes, user, true); }
  void CountCall() { wordsM[Info::kMallocCalls] += 1; }

  // A refused MallocMaybe may have taken and given back a block of a size the model does not
  // know: the high-water marks are taken over from the pool once they are seen to be no lower.
  ::testing::AssertionResult TakeOverHighWaterMarks(const NuvMempool* pool) {
    const std::vector<unsigned> actual = WordsOf(pool);
    for (const unsigned index : HighWaterIndexes()) {
      if (actual[index] < wordsM[index]) {
        return ::testing::AssertionFailure() << "high-water word " << index << " fell";
      }
      wordsM[index] = actual[index];
    }
    return ::testing::AssertionSuccess();
  }

  ::testing::AssertionResult Matches(const NuvMempool* pool) const {
    const std::vector<unsigned> actual = WordsOf(pool);
    for (unsigned i = 0; i < Info::kBlocksSearched; ++i) {
      if (actual[i] != wordsM[i]) {
        return ::testing::AssertionFailure()
               << "statistics word " << i << " is " << actual[i] << ", expected " << wordsM[i];
      }
    }
    return ::testing::AssertionSuccess();
  }

 private:
  static std::vector<unsigned> HighWaterIndexes() {
    std::vector<unsigned> indexes = {Info::kBlocksHigh, Info::kBlockBytesHigh};
    for (unsigned user = 0; user < Info::kUsers; ++user) {
      indexes.push_back(Info::kUserBlocksHigh + user);
      indexes.push_back(Info::kUserBlockBytesHigh + user);
    }
    return indexes;
  }
  void Add(unsigned count, unsigned high, unsigned amount) {
    wordsM[count] += amount;
    if (wordsM[count] > wordsM[high]) {
      wordsM[high] = wordsM[count];
    }
  }

  std::vector<unsigned> wordsM;
};

struct LiveBlock {
  char* payload;
  unsigned size;
  unsigned user;
  unsigned char fill;
};

// A chunk record as the model keeps it; the list is newest first, as the pool's.
struct ModelChunk {
  char* address;
  unsigned size;
  unsigned user;
  bool free;
  unsigned recordBytes;
  unsigned char fill;
};

class PoolModel {
 public:
  PoolModel(NuvMempool* pool, unsigned seed) : poolM(pool), randomM(seed), expectedM(pool) {}

  // One random operation; every failure is fatal to the run.
  void Step() {
    switch (PickOperation()) {
      case Operation::malloc:
        Allocate(false);
        break;
      case Operation::mallocMaybe:
        Allocate(true);
        break;
      case Operation::free:
        FreeOne();
        break;
      case Operation::realloc:
        ReallocOne();
        break;
      case Operation::getChunk:
        GetChunk();
        break;
      case Operation::returnChunk:
        ReturnChunk();
        break;
    }
  }

  void Check() {
    poolM->CheckPoolQuietly();
    ASSERT_TRUE(expectedM.Matches(poolM));
    ASSERT_EQ(Floor(), ExpectedFloor());
  }

  void Drain() {
    while (!blocksM.empty() && !::testing::Test::HasFatalFailure()) {
      FreeOne();
    }
    while (LiveChunks() != 0 && !::testing::Test::HasFatalFailure()) {
      ReturnChunk();
    }
  }

  unsigned Refusals() const { return refusalsM; }

 private:
  unsigned Random(unsigned low, unsigned high) {
    return std::uniform_int_distribution<unsigned>(low, high)(randomM);
  }

  // Half the requests small, and some up to 32 KiB, so that every size class and the
  // higher buckets are used.
  unsigned RandomSize() {
    const unsigned kind = Random(0, 99);
    return kind < 50   ? Random(0, 127)
           : kind < 80 ? Random(128, 1023)
           : kind < 95 ? Random(1024, 4095)
                       : Random(4096, 32767);
  }

  unsigned RandomUser() { return Random(NuvMempool::unknown, NuvMempool::remote); }

  enum class Operation { malloc, mallocMaybe, free, realloc, getChunk, returnChunk };

  // A quarter Malloc, 15 % MallocMaybe, 30 % Free, 20 % Realloc, 5 % each for chunks.
  Operation PickOperation() {
    if (blocksM.size() >= kMostLiveBlocks) {
      return Operation::free;
    }
    if (blocksM.empty()) {
      return Operation::malloc;
    }
    const unsigned pick = Random(0, 99);
    return pick < 25   ? Operation::malloc
           : pick < 40 ? Operation::mallocMaybe
           : pick < 70 ? Operation::free
           : pick < 90 ? Operation::realloc
           : pick < 95 ? Operation::getChunk
                       : Operation::returnChunk;
  }

  char* Top() const { return PointerOf(WordAt(reinterpret_cast<char*>(poolM) + kTopAt)); }
  char* Floor() const { return PointerOf(WordAt(reinterpret_cast<char*>(poolM) + kFloorAt)); }
  char* PoolEnd() const { return reinterpret_cast<char*>(poolM) + poolM->GetSize(); }
  unsigned Room() const { return static_cast<unsigned>(Floor() - Top()); }
  char* ExpectedFloor() const {
    char* floor = PoolEnd();
    for (const ModelChunk& chunk : chunksM) {
      floor -= chunk.size;
    }
    return floor;
  }
  size_t LiveChunks() const {
    size_t count = 0;
    for (const ModelChunk& chunk : chunksM) {
      count += chunk.free ? 0 : 1;
    }
    return count;
  }

  // A new block: its user, a size from need to 16 bytes more, and a payload of dead beef.
  static void CheckFreshBlock(void* p, unsigned size, unsigned user) {
    const unsigned need = NeedFor(size);
    const unsigned blockSize = BlockSizeOf(p);
    ASSERT_GE(blockSize, need);
    ASSERT_LE(blockSize, need + kLargestSpare);
    ASSERT_EQ(WordAt(BlockOf(p)) >> 24, user);
    ASSERT_TRUE(HoldsDeadBeef(static_cast<char*>(p), BlockOf(p) + blockSize));
  }

  static void CheckHeldBlock(const LiveBlock& block) {
    ASSERT_EQ(WordAt(block.payload - kBlockHeader) >> 24, block.user);
    ASSERT_TRUE(HoldsFill(block.payload, block.size, block.fill)) << "block of " << block.size;
  }

  void Allocate(bool maybe) {
    const unsigned size = RandomSize();
    const unsigned user = RandomUser();
    const auto tag = static_cast<NuvMempool::User>(user);
    const unsigned room = Room();
    const bool safe = room >= size + kSafetyMargin;
    void* p = maybe || !safe ? poolM->MallocMaybe(size, tag) : poolM->Malloc(size, tag);
    expectedM.CountCall();
    if (p == nullptr) {
      ASSERT_TRUE(Room() < kReserve || room <= NeedFor(size) + kBlockHeader);
      ++refusalsM;
      ASSERT_TRUE(expectedM.TakeOverHighWaterMarks(poolM));
      return;
    }
    CheckFreshBlock(p, size, user);
    expectedM.AllocBlock(BlockSizeOf(p) - kBlockHeader, user);
    const auto fill = static_cast<unsigned char>(Random(0, 255));
    Fill(p, size, fill);
    blocksM.push_back(LiveBlock{static_cast<char*>(p), size, user, fill});
  }

  LiveBlock TakeRandomBlock() {
    const size_t index = Random(0, static_cast<unsigned>(blocksM.size() - 1));
    const LiveBlock block = blocksM[index];
    blocksM[index] = blocksM.back();
    blocksM.pop_back();
    return block;
  }

  void FreeOne() {
    const LiveBlock block = TakeRandomBlock();
    CheckHeldBlock(block);
    const unsigned payload = BlockSizeOf(block.payload) - kBlockHeader;
    poolM->Free(block.payload);
    expectedM.FreeBlock(payload, block.user);
    // Words 0 and 1 of the payload are links, or dead beef when the block merged downwards.
    ASSERT_TRUE(HoldsDeadBeef(block.payload + kBlockHeader, block.payload + payload));
  }

  // Sizes stay multiples of 4: other sizes leave unaligned free blocks that fail the check.
  void ReallocOne() {
    LiveBlock block = TakeRandomBlock();
    CheckHeldBlock(block);
    const unsigned size = RoundUpTo4(RandomSize());
    const unsigned oldBytes = BlockSizeOf(block.payload) - kBlockHeader;
    const bool safe = Room() >= size + kSafetyMargin;
    void* moved =
        safe ? poolM->Realloc(block.payload, size) : poolM->ReallocMaybe(block.payload, size);
    if (moved == nullptr) {
      ++refusalsM;
      expectedM.CountCall();
      ASSERT_TRUE(expectedM.TakeOverHighWaterMarks(poolM));
      blocksM.push_back(block);
      return;
    }
    AccountRealloc(block, static_cast<char*>(moved), oldBytes, size);
    ASSERT_TRUE(HoldsFill(moved, std::min(block.size, size), block.fill));
    Fill(moved, size, block.fill);
    blocksM.push_back(LiveBlock{static_cast<char*>(moved), size, block.user, block.fill});
  }

  // A moved block is allocated before the old one is freed; a block grown in place is
  // counted out and in again; a block that was large enough is left alone.
  void AccountRealloc(const LiveBlock& old, char* moved, unsigned oldBytes, unsigned size) {
    const unsigned newBytes = BlockSizeOf(moved) - kBlockHeader;
    if (moved != old.payload) {
      expectedM.CountCall();
      expectedM.AllocBlock(newBytes, old.user);
      expectedM.FreeBlock(oldBytes, old.user);
    } else if (newBytes != oldBytes) {
      expectedM.FreeBlock(oldBytes, old.user);
      expectedM.AllocBlock(newBytes, old.user);
    }
    ASSERT_EQ(WordAt(moved - kBlockHeader) >> 24, old.user);
    ASSERT_GE(newBytes, NeedFor(size) - kBlockHeader);
    if (moved != old.payload || newBytes != oldBytes) {
      ASSERT_LE(newBytes, NeedFor(size) - kBlockHeader + kLargestSpare);
    }
  }

  void GetChunk() {
    if (LiveChunks() >= kMostLiveChunks) {
      ReturnChunk();
      return;
    }
    const unsigned size = Random(1, kLargestChunkRequest);
    const unsigned rounded = (size + kGranule - 1) / kGranule * kGranule;
    const unsigned user = RandomUser();
    const auto gap = static_cast<unsigned>(Floor() - (Top() + kBlockHeader));
    auto* chunk = static_cast<char*>(poolM->GetChunk(size, static_cast<NuvMempool::User>(user)));
    const auto fill = static_cast<unsigned char>(Random(0, 255));
    for (ModelChunk& record : chunksM) {
      if (record.free && record.size == rounded) {
        ASSERT_EQ(chunk, record.address);
        record = ModelChunk{chunk, rounded, user, false, record.recordBytes, fill};
        UseChunk(record);
        return;
      }
    }
    if (gap < rounded + kReserve) {
      ASSERT_EQ(chunk, nullptr);
      return;
    }
    ASSERT_EQ(chunk, ExpectedFloor() - rounded);
    char* record = PointerOf(WordAt(reinterpret_cast<char*>(poolM) + kChunksAt));
    expectedM.CountCall();
    expectedM.AllocBlock(BlockSizeOf(record) - kBlockHeader, NuvMempool::nuv);
    chunksM.push_front(
        ModelChunk{chunk, rounded, user, false, BlockSizeOf(record) - kBlockHeader, fill});
    UseChunk(chunksM.front());
  }

  void UseChunk(const ModelChunk& chunk) {
    expectedM.AllocChunk(chunk.size, chunk.user);
    Fill(chunk.address, chunk.size, chunk.fill);
  }

  void ReturnChunk() {
    const size_t live = LiveChunks();
    if (live == 0) {
      GetChunk();
      return;
    }
    size_t pick = Random(0, static_cast<unsigned>(live - 1));
    for (ModelChunk& chunk : chunksM) {
      if (!chunk.free && pick-- == 0) {
        ASSERT_TRUE(HoldsFill(chunk.address, chunk.size, chunk.fill));
        poolM->ReturnChunk(chunk.address);
        expectedM.FreeChunk(chunk.size, chunk.user);
        chunk.free = true;
        break;
      }
    }
    while (!chunksM.empty() && chunksM.front().free) {
      expectedM.FreeBlock(chunksM.front().recordBytes, NuvMempool::nuv);
      chunksM.pop_front();
    }
    ASSERT_EQ(Floor(), ExpectedFloor());
  }

  NuvMempool* poolM;
  std::mt19937 randomM;
  ExpectedInfo expectedM;
  std::vector<LiveBlock> blocksM;
  std::deque<ModelChunk> chunksM;
  unsigned refusalsM = 0;
};

void RunModel(NuvMempool* pool, unsigned seed) {
  PoolModel model(pool, seed);
  const unsigned operations = ModelOperations();
  for (unsigned done = 1; done <= operations; ++done) {
    model.Step();
    if (done % kCheckInterval == 0) {
      model.Check();
    }
    if (::testing::Test::HasFatalFailure()) {
      printf("stopped after %u operations\n", done);
      return;
    }
  }
  model.Drain();
  model.Check();
}

// The model runs in a child: a failed pool check ends the process it runs in.
TEST(PoolModel, RandomOperationsAgreeWithAPlainAccountOfWhatIsLive) {
  const unsigned seed = ModelSeed();
  SCOPED_TRACE("seed " + std::to_string(seed) + " (set " + kModelSeedVariable + " to repeat)");
  NuvMempool* pool = nullptr;
  ASSERT_EQ(NuvMempool::Allocate("model", kModelPoolSize, true, nullptr, false, pool), kNuvOk);
  const ChildOutcome outcome = nuv::test::RunInChild(
      [pool, seed] {
        RunModel(pool, seed);
        fflush(nullptr);
        _exit(::testing::Test::HasFailure() ? EXIT_FAILURE : 0);
      },
      kModelDeadline * std::max(1U, ModelOperations() / kModelOperations));
  EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.out << outcome.err;
  delete pool;
}

// Four processes allocating and freeing in one named pool at the same time.

constexpr unsigned kSharedPoolSize = 1024 * 1024;
constexpr unsigned kSharers = 4;
constexpr std::chrono::milliseconds kChurnTime{1200};
constexpr std::chrono::seconds kSharerDeadline{8};
constexpr size_t kMostHeldBySharer = 48;
constexpr unsigned kLargestSharedRequest = 2048;
constexpr useconds_t kStartPoll = 1000;

// What a sharer holds when it ends, as it reports it on standard output.
struct Kept {
  unsigned blocks = 0;
  unsigned bytes = 0;
};

NuvMempool::User SharerUser(unsigned index) {
  return static_cast<NuvMempool::User>(NuvMempool::catalog + index);
}

bool StillHolds(const LiveBlock& block) {
  return WordAt(block.payload - kBlockHeader) >> 24 == block.user &&
         HoldsFill(block.payload, block.size, block.fill);
}

// Random Malloc and Free under the sharer's own user until the time is up; then everything is
// freed and index + 1 blocks are taken as the remainder. Ends the child: 0 when every block
// kept its contents.
[[noreturn]] void Churn(NuvMempool* pool, unsigned index, const std::atomic<int>& go) {
  while (go.load() == 0) {
    usleep(kStartPoll);
  }
  std::mt19937 random(kDefaultModelSeed + index);
  const unsigned user = SharerUser(index);
  std::vector<LiveBlock> held;
  bool intact = true;
  const auto end = std::chrono::steady_clock::now() + kChurnTime;
  while (std::chrono::steady_clock::now() < end) {
    if (held.empty() || (held.size() < kMostHeldBySharer && random() % 2 == 0)) {
      const auto size = static_cast<unsigned>(random() % kLargestSharedRequest);
      auto* p = static_cast<char*>(pool->Malloc(size, SharerUser(index)));
      const auto fill = static_cast<unsigned char>(random());
      Fill(p, size, fill);
      held.push_back(LiveBlock{p, size, user, fill});
    } else {
      const size_t pick = random() % held.size();
      intact = StillHolds(held[pick]) && intact;
      pool->Free(held[pick].payload);
      held[pick] = held.back();
      held.pop_back();
    }
  }
  for (const LiveBlock& block : held) {
    intact = StillHolds(block) && intact;
    pool->Free(block.payload);
  }
  Kept kept;
  for (unsigned i = 0; i <= index; ++i) {
    kept.blocks += 1;
    kept.bytes += BlockSizeOf(pool->Malloc(24 * (i + 1), SharerUser(index))) - kBlockHeader;
  }
  printf("kept %u %u\n", kept.blocks, kept.bytes);
  fflush(nullptr);
  _exit(intact ? 0 : EXIT_FAILURE);
}

using Milliseconds = std::chrono::milliseconds;

// Starts the sharers together and collects what each kept, all within one deadline; a sharer
// that fails counts nothing.
std::vector<Kept> RunSharers(NuvMempool* pool) {
  const nuv::test::SharedObject<std::atomic<int>> go;
  std::vector<std::unique_ptr<ChildProcess>> sharers;
  for (unsigned index = 0; index < kSharers; ++index) {
    const std::atomic<int>& flag = *go;
    sharers.push_back(
        std::make_unique<ChildProcess>([pool, index, &flag] { Churn(pool, index, flag); }));
  }
  go->store(1);
  const auto giveUp = std::chrono::steady_clock::now() + kSharerDeadline;
  std::vector<Kept> kept(kSharers);
  for (unsigned index = 0; index < kSharers; ++index) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        giveUp - std::chrono::steady_clock::now());
    const ChildOutcome outcome = sharers[index]->Finish(std::max(left, Milliseconds{0}));
    EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0)
        << "sharer " << index << ": " << outcome.out << outcome.err;
    EXPECT_EQ(sscanf(outcome.out.c_str(), "kept %u %u", &kept[index].blocks, &kept[index].bytes), 2)
        << outcome.out;
  }
  return kept;
}

TEST(SharedPool, FourProcessesAllocatingAndFreeingAtOnceLeaveAConsistentPool) {
  const nuv::test::ScopedPoolPrefix prefix;
  NuvMempool* pool = nullptr;
  ASSERT_EQ(NuvMempool::Allocate("shared", kSharedPoolSize, true, nullptr, true, pool), kNuvOk);
  std::vector<unsigned> expected = WordsOf(pool);
  const std::vector<Kept> kept = RunSharers(pool);
  const ChildOutcome check = nuv::test::RunInChild([pool] { pool->CheckPoolQuietly(); });
  EXPECT_TRUE(check.Exited() && check.ExitCode() == 0) << check.err;
  for (unsigned index = 0; index < kSharers; ++index) {
    Shift(expected, kept[index].blocks, kept[index].bytes, SharerUser(index), false);
  }
  const std::vector<unsigned> actual = WordsOf(pool);
  for (const unsigned index :
       {Info::kBlocks, Info::kBlockBytes, Info::kChunks, Info::kChunkBytes}) {
    EXPECT_EQ(actual[index], expected[index]) << "word " << index;
  }
  for (unsigned user = 0; user < Info::kUsers; ++user) {
    EXPECT_EQ(actual[Info::kUserBlocks + user], expected[Info::kUserBlocks + user]) << user;
    EXPECT_EQ(actual[Info::kUserBlockBytes + user], expected[Info::kUserBlockBytes + user]) << user;
  }
  delete pool;
}

}  // namespace
