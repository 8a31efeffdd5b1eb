/// \file Pool checks and reports: allocator assertions, out-of-space reports, CheckPool, leaks.
#include <nuv/mempool.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "support/fatal_report.h"
#include "support/log_lines.h"
#include "support/raw_words.h"

namespace {

using nuv::test::FatalReport;
using nuv::test::RunToFatalReport;

constexpr const char* kPoolName = "checked";
constexpr unsigned kPoolSize = 64 * 1024;
constexpr unsigned kBlockHeader = 8;
constexpr unsigned kTopAt = 16;
constexpr unsigned kFloorAt = 24;
// Records of the pool's reports: facility "facnuv" (local0), priority "priinfo".
constexpr int kInfoRecordValue = 134;
// The arena dump: its heading, users 2 to 13 and the total.
constexpr size_t kDumpLines = 14;

using nuv::test::SetWordAt;
using nuv::test::WordAt;

char* PointerOf(unsigned word) { return reinterpret_cast<char*>(static_cast<uintptr_t>(word)); }

char* BlockOf(void* payload) { return static_cast<char*>(payload) - kBlockHeader; }

std::string PointerText(const void* p) {
  char text[32];
  snprintf(text, sizeof text, "%p", p);
  return text;
}

std::string AssertionReport(const std::string& function, int line) {
  return "Nuv Assertion Failure: \n    " + function + ", line " + std::to_string(line) + " ()\n";
}

// The child printed the report of assertion line of function and ended as every failed
// assertion of the library does.
::testing::AssertionResult StoppedAt(const FatalReport& report, const std::string& function,
                                     int line) {
  const nuv::test::ChildOutcome& outcome = report.outcome;
  const std::string where = function + ", line " + std::to_string(line) + " ()";
  if (!outcome.Exited() || outcome.ExitCode() != EXIT_FAILURE) {
    return ::testing::AssertionFailure() << "status " << outcome.status << "\n" << outcome.err;
  }
  if (outcome.err.find(AssertionReport(function, line)) == std::string::npos ||
      outcome.err.find("died due to signal -2") == std::string::npos) {
    return ::testing::AssertionFailure() << "standard error:\n" << outcome.err;
  }
  if (report.assertionRecords.empty() || report.assertionRecords[0] != " (" + where + ")") {
    return ::testing::AssertionFailure() << "records:\n" << outcome.out;
  }
  return ::testing::AssertionSuccess();
}

// The child ended normally, having printed nothing on standard error.
::testing::AssertionResult ReturnedQuietly(const FatalReport& report) {
  if (!report.outcome.Exited() || report.outcome.ExitCode() != 0 || !report.outcome.err.empty()) {
    return ::testing::AssertionFailure() << "status " << report.outcome.status << "\n"
                                         << report.outcome.err;
  }
  return ::testing::AssertionSuccess();
}

// The texts of the child's pool records under tag.
std::vector<std::string> PoolRecords(const FatalReport& report,
                                     const std::string& tag = kPoolName) {
  return nuv::test::LogRecords(report.outcome.out, kInfoRecordValue, tag, report.pid);
}

// A fresh anonymous pool: a forked child works on its own copy.
class CheckedPool : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NuvMempool::Allocate(kPoolName, kPoolSize, true, nullptr, false, poolM), kNuvOk);
  }
  void TearDown() override { delete poolM; }

  NuvMempool* Pool() const { return poolM; }
  char* Base() const { return reinterpret_cast<char*>(poolM); }
  char* Top() const { return PointerOf(WordAt(Base() + kTopAt)); }
  char* Floor() const { return PointerOf(WordAt(Base() + kFloorAt)); }

  void* Take(unsigned size, NuvMempool::User user = NuvMempool::unknown) const {
    return poolM->Malloc(size, user);
  }
  // A block in use that keeps the blocks below it from merging with anything above.
  void* Guard() const { return Take(0); }

  // A free block of blockSize bytes (a multiple of 4) between two blocks in use.
  char* FreeBlockBetweenGuards(unsigned blockSize) const {
    void* p = Take(blockSize - kBlockHeader);
    Guard();
    poolM->Free(p);
    return BlockOf(p);
  }

 private:
  NuvMempool* poolM = nullptr;
};

using AssertValidPointer = CheckedPool;
using GetChunkCheck = CheckedPool;
using ReturnChunkCheck = CheckedPool;
using InternalCheckPool = CheckedPool;
using AssertDeadBeef = CheckedPool;
using BlockFailure = CheckedPool;
using ReallocFailure = CheckedPool;
using OutOfSpace = CheckedPool;
using CheckPool = CheckedPool;
using ShouldBeEmpty = CheckedPool;

// Outside every pool.
char foreignBytes[64];

TEST_F(AssertValidPointer, ForeignPointerStopsAt1436) {
  const FatalReport report =
      RunToFatalReport([this] { Pool()->Free(foreignBytes + kBlockHeader); });
  EXPECT_TRUE(StoppedAt(report, "AssertValidPointer", 1436));
}

TEST_F(AssertValidPointer, NullPointerStopsAt1436) {
  const FatalReport report = RunToFatalReport([this] { Pool()->Free(nullptr); });
  EXPECT_TRUE(StoppedAt(report, "AssertValidPointer", 1436));
}

TEST_F(AssertValidPointer, SizeRunningPastTheTopStopsAt1439) {
  void* p = Take(100);
  SetWordAt(BlockOf(p), 0x02ffff00);
  const FatalReport report = RunToFatalReport([this, p] { Pool()->Free(p); });
  EXPECT_TRUE(StoppedAt(report, "AssertValidPointer", 1439));
}

TEST_F(AssertValidPointer, CorruptPreviousSizeStopsAt1440) {
  void* p = Take(100);
  SetWordAt(BlockOf(p) + 4, 0x00fffff0);
  const FatalReport report = RunToFatalReport([this, p] { Pool()->Free(p); });
  EXPECT_TRUE(StoppedAt(report, "AssertValidPointer", 1440));
}

TEST_F(AssertValidPointer, PointerFreedTwiceStopsAt1441) {
  void* p = Take(100);
  Guard();
  Pool()->Free(p);
  const FatalReport report = RunToFatalReport([this, p] { Pool()->Free(p); });
  EXPECT_TRUE(StoppedAt(report, "AssertValidPointer", 1441));
}

TEST_F(AssertValidPointer, ValidPointerPasses) {
  void* p = Take(100);
  const FatalReport report = RunToFatalReport([this, p] { Pool()->AssertValidPointer(p); });
  EXPECT_TRUE(ReturnedQuietly(report));
}

TEST_F(GetChunkCheck, ZeroSizeStopsAt1975) {
  const FatalReport report = RunToFatalReport([this] { Pool()->GetChunk(0, NuvMempool::catalog); });
  EXPECT_TRUE(StoppedAt(report, "GetChunk", 1975));
}

TEST_F(GetChunkCheck, ChunkFloorAtTheHeapsEndStopsAt2021) {
  SetWordAt(Base() + kFloorAt, static_cast<unsigned>(reinterpret_cast<uintptr_t>(Top() + 8)));
  const FatalReport report =
      RunToFatalReport([this] { Pool()->GetChunk(512, NuvMempool::catalog); });
  EXPECT_TRUE(StoppedAt(report, "GetChunk", 2021));
}

TEST_F(ReturnChunkCheck, UnknownPointerStopsAt2091) {
  auto* chunk = static_cast<char*>(Pool()->GetChunk(1024, NuvMempool::catalog));
  const FatalReport report = RunToFatalReport([this, chunk] { Pool()->ReturnChunk(chunk + 512); });
  EXPECT_TRUE(StoppedAt(report, "ReturnChunk", 2091));
}

TEST_F(ReturnChunkCheck, ChunkReturnedTwiceStopsAt2091) {
  void* chunk = Pool()->GetChunk(1024, NuvMempool::catalog);
  Pool()->ReturnChunk(chunk);
  const FatalReport report = RunToFatalReport([this, chunk] { Pool()->ReturnChunk(chunk); });
  EXPECT_TRUE(StoppedAt(report, "ReturnChunk", 2091));
}

TEST_F(InternalCheckPool, IntactPoolPasses) {
  FreeBlockBetweenGuards(100);
  Pool()->GetChunk(1000, NuvMempool::catalog);
  const FatalReport report = RunToFatalReport([this] { Pool()->CheckPoolQuietly(); });
  EXPECT_TRUE(ReturnedQuietly(report));
}

#ifndef NDEBUG
// Debug builds hold the heap functions to their contract: the caller holds the pool's word.
TEST_F(InternalCheckPool, StopsInADebugBuildWhenThePoolsWordIsNotHeld) {
  const FatalReport report = RunToFatalReport([this] { Pool()->InternalCheckPool(nullptr); });
  ASSERT_FALSE(report.errLines.empty()) << report.outcome.err;
  EXPECT_EQ(report.errLines[0],
            "Nuv Assertion Failure: (lockM != 0 || poolInSoleUseM == this) && \"the pool's word is "
            "held\"");
  EXPECT_TRUE(report.outcome.Exited() && report.outcome.ExitCode() == EXIT_FAILURE)
      << report.outcome.err;
}
#endif

TEST_F(InternalCheckPool, CorruptFreeListBackLinkStopsAt2213) {
  void* older = Take(100);
  Guard();
  void* newer = Take(100);
  Guard();
  Pool()->Free(older);
  Pool()->Free(newer);
  SetWordAt(BlockOf(older) + 8, 0);
  const FatalReport report = RunToFatalReport([this] { Pool()->CheckPoolQuietly(); });
  EXPECT_TRUE(StoppedAt(report, "InternalCheckPool", 2213));
}

TEST_F(InternalCheckPool, CorruptPreviousSizeStopsAt2234) {
  Take(100);
  void* p = Take(100);
  SetWordAt(BlockOf(p) + 4, 100);
  const FatalReport report = RunToFatalReport([this] { Pool()->CheckPoolQuietly(); });
  EXPECT_TRUE(StoppedAt(report, "InternalCheckPool", 2234));
}

TEST_F(InternalCheckPool, StrayUserByteOnAFreeBlockStopsAt2236WithCheckingOn) {
  char* free = FreeBlockBetweenGuards(100);
  Pool()->CheckOn();
  SetWordAt(free, (NuvMempool::catalog << 24) | 100);
  const FatalReport report = RunToFatalReport([this] { Take(0); });
  EXPECT_TRUE(StoppedAt(report, "InternalCheckPool", 2236));
}

TEST_F(InternalCheckPool, ClearedUserByteOfABlockInUseStopsAt2236) {
  void* p = Take(100);
  SetWordAt(BlockOf(p), 108);
  const FatalReport report = RunToFatalReport([this] { Pool()->CheckPoolQuietly(); });
  EXPECT_TRUE(StoppedAt(report, "InternalCheckPool", 2236));
}

TEST_F(InternalCheckPool, TopSentinelLeadingBackElsewhereStopsAt2260) {
  Take(100);
  SetWordAt(Top() + 4, 16);
  const FatalReport report = RunToFatalReport([this] { Pool()->CheckPoolQuietly(); });
  EXPECT_TRUE(StoppedAt(report, "InternalCheckPool", 2260));
}

// A block header forged inside another block's payload passes the pointer check, but the walk
// of the heap never meets it.
TEST_F(InternalCheckPool, FreeOfABlockTheHeapWalkNeverMeetsStopsAt2261WithCheckingOn) {
  auto* host = static_cast<char*>(Take(256));
  char* forged = host + 64;
  SetWordAt(forged, 0x02000010);
  SetWordAt(forged + 4, 16);
  Pool()->CheckOn();
  const FatalReport report =
      RunToFatalReport([this, forged] { Pool()->Free(forged + kBlockHeader); });
  EXPECT_TRUE(StoppedAt(report, "InternalCheckPool", 2261));
}

TEST_F(InternalCheckPool, FreedUnassignedBlockStopsAt2262) {
  Pool()->Free(Take(100, NuvMempool::unassigned));
  const FatalReport report = RunToFatalReport([this] { Pool()->CheckPoolQuietly(); });
  EXPECT_TRUE(StoppedAt(report, "InternalCheckPool", 2262));
}

TEST_F(InternalCheckPool, CheckingOnChecksBeforeEveryFree) {
  void* p = Take(100);
  Take(100);
  SetWordAt(Top() + 4, 16);
  Pool()->CheckOn();
  const FatalReport report = RunToFatalReport([this, p] { Pool()->Free(p); });
  EXPECT_TRUE(StoppedAt(report, "InternalCheckPool", 2260));
}

TEST_F(InternalCheckPool, CheckingOffSkipsTheCheck) {
  void* p = Take(100);
  Take(100);
  SetWordAt(Top() + 4, 16);
  Pool()->CheckOn();
  Pool()->CheckOff();
  const FatalReport report = RunToFatalReport([this, p] { Pool()->Free(p); });
  EXPECT_TRUE(ReturnedQuietly(report));
}

TEST_F(AssertDeadBeef, FreeBlockUnderSixteenBytesStopsAt751WithCheckingOn) {
  char* free = FreeBlockBetweenGuards(100);
  SetWordAt(free, 8);
  Pool()->CheckOn();
  const FatalReport report = RunToFatalReport([this] { Take(0); });
  EXPECT_TRUE(StoppedAt(report, "AssertDeadBeef", 751));
}

TEST_F(AssertDeadBeef, WriteIntoAFreedPayloadStopsAt764WithCheckingOn) {
  char* free = FreeBlockBetweenGuards(100);
  free[40] = 0;
  Pool()->CheckOn();
  const FatalReport report = RunToFatalReport([this] { Take(0); });
  EXPECT_TRUE(StoppedAt(report, "AssertDeadBeef", 764));
}

// The free block that an in-place Realloc to a size that is not a multiple of 4 splits off
// starts between words: its fill reads shifted.
TEST_F(AssertDeadBeef, FreeBlockLeftUnalignedByReallocStopsAt764) {
  void* p = Take(8);
  FreeBlockBetweenGuards(64);
  Pool()->Realloc(p, 21);
  const FatalReport report = RunToFatalReport([this] { Pool()->CheckPoolQuietly(); });
  EXPECT_TRUE(StoppedAt(report, "AssertDeadBeef", 764));
}

TEST(NuvMempoolConstructor, StopsAt978) {
  const FatalReport report = RunToFatalReport([] {
    alignas(NuvMempool) unsigned char storage[sizeof(NuvMempool)];
    new (storage) NuvMempool();
  });
  EXPECT_TRUE(StoppedAt(report, "NuvMempool", 978));
}

TEST_F(BlockFailure, MallocBeyondThePoolStopsAt1216) {
  const FatalReport report = RunToFatalReport([this] { Take(Pool()->GetSize()); });
  EXPECT_TRUE(StoppedAt(report, "BlockFailure", 1216));
}

TEST_F(BlockFailure, LogsTheRequestAndThePoolSizeThenDumpsTheArena) {
  const unsigned size = Pool()->GetSize();
  const FatalReport report = RunToFatalReport([this, size] { Take(size); });
  const std::vector<std::string> records = PoolRecords(report);
  ASSERT_EQ(records.size(), 2 + kDumpLines) << report.outcome.out;
  EXPECT_EQ(records[0], "pool is out of space, requesting " + std::to_string(size) + " bytes");
  EXPECT_EQ(records[1], "total pool size: " + std::to_string(size) + " bytes");
  EXPECT_EQ(records[2].rfind("Current  (total pool size = ", 0), 0U) << records[2];
  EXPECT_EQ(records.back().rfind("TOTAL ", 0), 0U) << records.back();
}

bool RefusingHandler(NuvMempool* /*pool*/) {
  fprintf(stderr, "handler asked\n");
  return false;
}

TEST_F(BlockFailure, RefusingOutOfMemoryHandlerLeadsToIt) {
  Pool()->OutOfMemory(RefusingHandler);
  const FatalReport report = RunToFatalReport([this] { Take(Pool()->GetSize()); });
  EXPECT_TRUE(StoppedAt(report, "BlockFailure", 1216));
  EXPECT_EQ(report.outcome.err.rfind("handler asked\n" + AssertionReport("BlockFailure", 1216), 0),
            0U)
      << report.outcome.err;
}

TEST_F(ReallocFailure, GrowingBeyondThePoolStopsAt1319) {
  void* p = Take(100);
  const FatalReport report = RunToFatalReport([this, p] { Pool()->Realloc(p, Pool()->GetSize()); });
  EXPECT_TRUE(StoppedAt(report, "Realloc", 1319));
}

TEST_F(ReallocFailure, LogsTheFailedMoveThenTheRequestAndThePoolSize) {
  void* p = Take(100);
  const std::string size = std::to_string(Pool()->GetSize());
  const FatalReport report = RunToFatalReport([this, p] { Pool()->Realloc(p, Pool()->GetSize()); });
  const std::vector<std::string> expected = {
      "pool is out of space, requesting " + size + "-byte sBlock",
      "pool is out of space, reallocing " + size + " bytes", "total pool size: " + size + " bytes"};
  EXPECT_EQ(PoolRecords(report), expected) << report.outcome.out;
}

TEST_F(OutOfSpace, MallocMaybeThatFindsNoRoomLogsTheRequest) {
  const FatalReport report =
      RunToFatalReport([this] { Pool()->MallocMaybe(Pool()->GetSize(), NuvMempool::catalog); });
  const std::vector<std::string> expected = {"pool is out of space, requesting " +
                                             std::to_string(Pool()->GetSize()) + "-byte sBlock"};
  EXPECT_EQ(PoolRecords(report), expected) << report.outcome.out;
}

TEST_F(OutOfSpace, MallocMaybeThatWouldSpendTheReserveLogsTheRequest) {
  // The block would leave 508 bytes between the top and the chunk floor.
  const auto size = static_cast<unsigned>(Floor() - Top()) - 516;
  const FatalReport report =
      RunToFatalReport([this, size] { Pool()->MallocMaybe(size, NuvMempool::glyph); });
  const std::vector<std::string> expected = {"pool is out of space, requesting " +
                                             std::to_string(size) + "-byte sBlock"};
  EXPECT_EQ(PoolRecords(report), expected) << report.outcome.out;
}

TEST_F(OutOfSpace, MallocMaybeThatSucceedsLogsNothing) {
  const FatalReport report =
      RunToFatalReport([this] { Pool()->MallocMaybe(100, NuvMempool::glyph); });
  EXPECT_TRUE(PoolRecords(report).empty()) << report.outcome.out;
}

TEST_F(OutOfSpace, GetChunkThatFindsNoRoomLogsTheRequestAndDumpsTheArena) {
  const unsigned size = Pool()->GetSize();
  const FatalReport report =
      RunToFatalReport([this, size] { Pool()->GetChunk(size, NuvMempool::catalog); });
  const std::vector<std::string> records = PoolRecords(report);
  ASSERT_EQ(records.size(), 1 + kDumpLines) << report.outcome.out;
  EXPECT_EQ(records[0], "pool is out of space, requesting " + std::to_string(size) + "-byte chunk");
  EXPECT_EQ(records[1].rfind("Current  (total pool size = ", 0), 0U) << records[1];
}

TEST_F(OutOfSpace, GetChunkForStreamsFailsSilently) {
  const FatalReport report = RunToFatalReport([this] {
    printf("%s\n",
           Pool()->GetChunk(Pool()->GetSize(), NuvMempool::stream) == nullptr ? "null" : "chunk");
  });
  EXPECT_EQ(report.outcome.out, "null\n");
}

TEST_F(OutOfSpace, GetChunkForRecordsFailsSilently) {
  const FatalReport report = RunToFatalReport([this] {
    printf("%s\n",
           Pool()->GetChunk(Pool()->GetSize(), NuvMempool::records) == nullptr ? "null" : "chunk");
  });
  EXPECT_EQ(report.outcome.out, "null\n");
}

// Calls: 3 for the pool's objects, 16 for the blocks below, 12 that each look at the 8 free
// blocks of bucket 1, and 1 for the chunk record, which takes the first of them.
TEST_F(CheckPool, LogsItsFiguresUnderMempool) {
  std::vector<void*> small;
  for (int i = 0; i < 8; ++i) {
    small.push_back(Take(56));
    Guard();
  }
  for (void* p : small) {
    Pool()->Free(p);
  }
  for (int i = 0; i < 12; ++i) {
    Take(100, NuvMempool::catalog);
  }
  Pool()->GetChunk(3000, NuvMempool::glyph);
  const unsigned unused = (Pool()->GetSize() - 3072 - 3120) / 1024;
  const FatalReport report = RunToFatalReport([this] { Pool()->CheckPool(); });
  const std::vector<std::string> expected = {"checked block: 1kB/2kB  chunk: 3kB/3kB  unused: " +
                                             std::to_string(unused) + "kB  search: 3"};
  EXPECT_EQ(PoolRecords(report, "mempool"), expected) << report.outcome.out;
  EXPECT_TRUE(ReturnedQuietly(report));
}

TEST_F(CheckPool, StopsWhereTheQuietCheckStops) {
  Pool()->Free(Take(100, NuvMempool::unassigned));
  const FatalReport report = RunToFatalReport([this] { Pool()->CheckPool(); });
  EXPECT_EQ(PoolRecords(report, "mempool").size(), 1U) << report.outcome.out;
  EXPECT_TRUE(StoppedAt(report, "InternalCheckPool", 2262));
}

TEST_F(ShouldBeEmpty, SilentWhenEverythingSinceResetEmptyWasFreed) {
  Pool()->Free(Take(100, NuvMempool::catalog));
  Pool()->ReturnChunk(Pool()->GetChunk(1000, NuvMempool::glyph));
  const FatalReport report = RunToFatalReport([this] { Pool()->ShouldBeEmpty(); });
  EXPECT_TRUE(ReturnedQuietly(report));
}

TEST_F(ShouldBeEmpty, ChunkStillHeldIsReportedAndStopsAt2357) {
  void* chunk = Pool()->GetChunk(1000, NuvMempool::glyph);
  const FatalReport report = RunToFatalReport([this] { Pool()->ShouldBeEmpty(); });
  const std::string expected = "Chunk at " + PointerText(chunk) +
                               " not freed.  Size = 1024 (0x400)\n"
                               "Turn on DEBUG_LEAK in mempool to get backtraces\n"
                               "for all leaked chunks and blocks.\n" +
                               AssertionReport("ShouldBeEmpty", 2357);
  EXPECT_EQ(report.outcome.err.rfind(expected, 0), 0U) << report.outcome.err;
  EXPECT_TRUE(StoppedAt(report, "ShouldBeEmpty", 2357));
}

TEST_F(ShouldBeEmpty, BlockStillHeldIsReportedAsALeakAndStopsAt2357) {
  void* p = Take(100, NuvMempool::catalog);
  const FatalReport report = RunToFatalReport([this] { Pool()->ShouldBeEmpty(); });
  const std::string expected = "leak:  100 bytes at " + PointerText(p) +
                               ", user catalog, pool checked\n"
                               "Turn on DEBUG_LEAK in mempool to get backtraces\n"
                               "for all leaked chunks and blocks.\n" +
                               AssertionReport("ShouldBeEmpty", 2357);
  EXPECT_EQ(report.outcome.err.rfind(expected, 0), 0U) << report.outcome.err;
  EXPECT_TRUE(StoppedAt(report, "ShouldBeEmpty", 2357));
}

// The leak lines are for information: the verdict compares the counts with ResetEmpty's.
TEST_F(ShouldBeEmpty, BlockHeldSinceBeforeResetEmptyIsListedButPasses) {
  void* p = Take(100, NuvMempool::catalog);
  Pool()->ResetEmpty();
  const FatalReport report = RunToFatalReport([this] { Pool()->ShouldBeEmpty(); });
  EXPECT_EQ(report.outcome.err,
            "leak:  100 bytes at " + PointerText(p) + ", user catalog, pool checked\n");
  EXPECT_TRUE(report.outcome.Exited() && report.outcome.ExitCode() == 0) << report.outcome.err;
}

}  // namespace
