/// \file Bad input to the pool entry points: each gets a documented result or a documented
/// assertion (docs/robustness.md).
#include <nuv/mempool.h>
#include <nuv/os_mempool.h>
#include <nuv/registry.h>
#include <nuv/seed.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/fatal_report.h"
#include "support/log_lines.h"
#include "support/pool_prefix.h"
#include "support/pool_usage.h"
#include "support/raw_words.h"

namespace {

using nuv::test::ChildOutcome;
using nuv::test::ExpectLibraryAssertion;
using nuv::test::FatalReport;
using nuv::test::InfoWord;
using nuv::test::InUse;
using nuv::test::RunInChild;
using nuv::test::RunToFatalReport;
using nuv::test::ScopedPoolPrefix;
using nuv::test::WordAt;

constexpr const char* kPoolName = "robust";
constexpr const char* kOtherPoolName = "other";
constexpr unsigned kPoolSize = 64 * 1024;
constexpr unsigned kBlockHeader = 8;
constexpr unsigned kFileHeaderSize = 8;
constexpr unsigned kDeadBeef = 0xdeadbeef;
constexpr unsigned kSizeMask = 0x00ffffff;
// A size that no pool can give: its rounding runs past 32 bits.
constexpr unsigned kNearlyFourGibibytes = 0xfffffff0;
// Offsets in the pool header.
constexpr unsigned kTopAt = 16;
constexpr unsigned kFloorAt = 24;
// Records of the pool's reports: facility "facnuv" (local0), priority "priinfo".
constexpr int kInfoRecordValue = 134;
// The arena dump: its heading, users 2 to 13 and the total.
constexpr size_t kDumpLines = 14;
// Where a named pool of these tests is made: nothing else occupies it in the test programs, on
// the device or the host.
constexpr uintptr_t kAgreedAddress = 0x68000000;

char* At(uintptr_t address) { return reinterpret_cast<char*>(address); }

char* PointerOf(unsigned word) { return reinterpret_cast<char*>(static_cast<uintptr_t>(word)); }

char* BlockOf(void* payload) { return static_cast<char*>(payload) - kBlockHeader; }

unsigned SizeOf(void* payload) { return WordAt(BlockOf(payload)) & kSizeMask; }

unsigned Page() { return static_cast<unsigned>(NuvOsMempool::SPage()); }

// The size of the pool that Allocate makes for size bytes: the mapping is whole pages.
unsigned PoolSizeFor(unsigned size) {
  return (size + kFileHeaderSize + Page() - 1) / Page() * Page() - kFileHeaderSize;
}

// Outside every pool.
char foreignBytes[64];

// The texts of the child's records under the pool's name.
std::vector<std::string> PoolRecords(const FatalReport& report,
                                     const std::string& name = kPoolName) {
  return nuv::test::LogRecords(report.outcome.out, kInfoRecordValue, name, report.pid);
}

// The child ended normally, having printed nothing on standard error.
::testing::AssertionResult ReturnedQuietly(const ChildOutcome& outcome) {
  if (!outcome.Exited() || outcome.ExitCode() != 0 || !outcome.err.empty()) {
    return ::testing::AssertionFailure() << "status " << outcome.status << "\n" << outcome.err;
  }
  return ::testing::AssertionSuccess();
}

// The same pointer, with what the compiler knows of it forgotten: storage handed to operator
// delete a second time, or never handed out by a pool, is the point of a test.
void* Opaque(void* p) {
  __asm__("" : "+r"(p));
  return p;
}

bool DiedOf(const ChildOutcome& outcome, int signal) {
  return outcome.Signalled() && outcome.Signal() == signal;
}

// An anonymous pool of the test and a second one beside it: a forked child works on copies.
class BadInput : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NuvMempool::Allocate(kPoolName, kPoolSize, true, nullptr, false, poolM), kNuvOk);
    ASSERT_EQ(NuvMempool::Allocate(kOtherPoolName, kPoolSize, true, nullptr, false, otherM),
              kNuvOk);
  }
  void TearDown() override {
    delete otherM;
    delete poolM;
  }

  NuvMempool* Pool() const { return poolM; }
  NuvMempool* Other() const { return otherM; }
  char* Base() const { return reinterpret_cast<char*>(poolM); }
  char* Top() const { return PointerOf(WordAt(Base() + kTopAt)); }
  char* Floor() const { return PointerOf(WordAt(Base() + kFloorAt)); }

  void* Take(unsigned size) const { return poolM->Malloc(size, NuvMempool::unknown); }
  // A block in use that keeps the blocks below it from merging with anything above.
  void* Guard() const { return Take(0); }
  // A 100-byte block with a freed 60-byte neighbour above it, and a guard above that: room for
  // Realloc to grow the block in place, to 176 bytes with its header.
  void* TakeWithRoomAbove() const {
    void* block = Take(100);
    void* neighbour = Take(60);
    Guard();
    poolM->Free(neighbour);
    return block;
  }

 private:
  NuvMempool* poolM = nullptr;
  NuvMempool* otherM = nullptr;
};

using MallocBadInput = BadInput;
using CallocBadInput = BadInput;
using ReallocBadInput = BadInput;
using FreeBadInput = BadInput;
using ChunkBadInput = BadInput;
using AssignBadInput = BadInput;

// Named pool files: each test has a prefix of its own, and its files go when it ends.
class PoolFileBadInput : public ::testing::Test {
 protected:
  void SetUp() override { listHeadM = pAllMempoolsG; }

  // True while this process's list of attached pools is as the test found it.
  bool ListUnchanged() const { return pAllMempoolsG == listHeadM; }
  // Attach by name, with and without the agreed address: neither opens the file or lists a pool.
  void ExpectAttachFailsToOpen() const {
    NuvMempool* pool = nullptr;
    EXPECT_EQ(NuvMempool::Attach(kPoolName, pool), kNuvPoolOpenFailed);
    EXPECT_EQ(NuvMempool::Attach(kPoolName, At(kAgreedAddress), pool), kNuvPoolOpenFailed);
    EXPECT_EQ(pool, nullptr);
    EXPECT_TRUE(ListUnchanged());
  }
  std::string Path(const char* name) const { return prefixM.PathOf(name); }

  void WriteFile(const char* name, const std::string& bytes) const {
    const int fd = open(Path(name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(fd);
  }
  // -1 when there is no file.
  long FileSize(const char* name) const {
    struct stat status {};
    return stat(Path(name).c_str(), &status) == 0 ? static_cast<long>(status.st_size) : -1;
  }
  // A pool made at the agreed address and detached again: a file that no process holds.
  static void LeaveStalePool(const char* name) {
    NuvMempool* pool = nullptr;
    ASSERT_EQ(NuvMempool::Allocate(name, kPoolSize, false, At(kAgreedAddress), true, pool), kNuvOk);
    delete pool;
  }
  // The two header words of a pool file (mapping address and length), then one page of bytes.
  static std::string HeaderThenPage(unsigned address, unsigned length) {
    std::string bytes(kFileHeaderSize + Page(), '\x5a');
    memcpy(bytes.data(), &address, sizeof address);
    memcpy(bytes.data() + sizeof address, &length, sizeof length);
    return bytes;
  }

 private:
  ScopedPoolPrefix prefixM;
  NuvMempoolLocal* listHeadM = nullptr;
};

// Bytes that no process wrote as a pool header: the address word is off a page boundary in
// either byte order, and the length word is beyond what a 32-bit process can map.
std::string RandomHeader() { return "\x13\x57\x9b\xdf\xe4\x68\xac\xf1"; }

}  // namespace

// ---------------------------------------------------------------------------------------------
// NuvMempool::Allocate, Attach, AutoAttach, Clean

TEST_F(PoolFileBadInput, AllocateOfZeroBytesMakesAOnePagePool) {
  NuvMempool* pool = nullptr;
  ASSERT_EQ(NuvMempool::Allocate(kPoolName, 0, false, nullptr, true, pool), kNuvOk);
  EXPECT_EQ(pool->GetSize(), Page() - kFileHeaderSize);
  EXPECT_EQ(FileSize(kPoolName), static_cast<long>(Page()));
  void* p = pool->MallocMaybe(100, NuvMempool::unknown);
  EXPECT_NE(p, nullptr);
  pool->Free(p);
  delete pool;
}

// The mapping length, size + 8 rounded up to a page, runs past 32 bits and comes out 0: mmap
// refuses it. The file is made before the mapping and stays behind, empty.
TEST_F(PoolFileBadInput, AllocateOfNearlyFourGibibytesFailsAndLeavesAnEmptyFile) {
  const ChildOutcome outcome = RunInChild([] {
    NuvMempool* pool = nullptr;
    const unsigned result =
        NuvMempool::Allocate(kPoolName, kNearlyFourGibibytes, false, nullptr, true, pool);
    printf("0x%x %d\n", result, pool == nullptr ? 1 : 0);
  });
  EXPECT_EQ(outcome.out, "0x50002 1\n") << outcome.err;
  EXPECT_EQ(outcome.err, "mmap: Invalid argument\n");
  EXPECT_EQ(FileSize(kPoolName), 0);
  NuvMempool* pool = nullptr;
  EXPECT_EQ(NuvMempool::Allocate(kPoolName, kPoolSize, false, nullptr, true, pool), kNuvPoolExists);
}

TEST_F(PoolFileBadInput, AllocateOfAnAnonymousPoolOfNearlyFourGibibytesFails) {
  const ChildOutcome outcome = RunInChild([] {
    NuvMempool* pool = nullptr;
    const unsigned result =
        NuvMempool::Allocate(kPoolName, kNearlyFourGibibytes, false, nullptr, false, pool);
    printf("0x%x\n", result);
  });
  EXPECT_EQ(outcome.out, "0x50002\n") << outcome.err;
  EXPECT_EQ(outcome.err, "mmap: Invalid argument\n");
  EXPECT_EQ(FileSize(kPoolName), -1);
}

TEST_F(PoolFileBadInput, AllocateAttachAutoAttachAndCleanOfANullNameReturnAddressFailed) {
  NuvMempool* pool = nullptr;
  char* base = nullptr;
  bool attached = true;
  EXPECT_EQ(NuvMempool::Allocate(nullptr, kPoolSize, false, nullptr, true, pool),
            kNuvPoolAddressFailed);
  EXPECT_EQ(NuvMempool::Attach(nullptr, pool), kNuvPoolAddressFailed);
  EXPECT_EQ(NuvMempool::Attach(nullptr, At(kAgreedAddress), pool), kNuvPoolAddressFailed);
  EXPECT_EQ(NuvMempool::AutoAttach(nullptr, kPoolSize, base, pool, attached),
            kNuvPoolAddressFailed);
  EXPECT_EQ(NuvMempool::Clean(nullptr), kNuvOk);
  EXPECT_EQ(pool, nullptr);
  EXPECT_TRUE(ListUnchanged());
}

TEST_F(PoolFileBadInput, AttachOfAnEmptyFileReturnsOpenFailed) {
  WriteFile(kPoolName, "");
  ExpectAttachFailsToOpen();
}

TEST_F(PoolFileBadInput, AttachOfAFileShorterThanTheHeaderReturnsOpenFailed) {
  WriteFile(kPoolName, "1234567");
  ExpectAttachFailsToOpen();
}

// The length word is taken as it stands: the pages past the end of the file are mapped, and the
// first touch of one raises SIGBUS.
TEST_F(PoolFileBadInput, AttachOfATruncatedPoolFileSucceedsAndItsMissingPagesRaiseSigbus) {
  LeaveStalePool(kPoolName);
  ASSERT_EQ(truncate(Path(kPoolName).c_str(), Page()), 0);
  NuvMempool* pool = nullptr;
  ASSERT_EQ(NuvMempool::Attach(kPoolName, pool), kNuvOk);
  EXPECT_EQ(reinterpret_cast<char*>(pool), At(kAgreedAddress + kFileHeaderSize));
  EXPECT_EQ(pool->GetSize(), PoolSizeFor(kPoolSize));
  EXPECT_STREQ(pool->GetName(), kPoolName);
  char* last = reinterpret_cast<char*>(pool) + pool->GetSize() - 1;
  const ChildOutcome outcome = RunInChild([last] {
    signal(SIGBUS, SIG_DFL);
    *static_cast<volatile char*>(last) = 1;
  });
  EXPECT_TRUE(DiedOf(outcome, SIGBUS)) << outcome.status << "\n" << outcome.err;
  delete pool;
}

TEST_F(PoolFileBadInput, AttachOfAZeroLengthWordReturnsAddressFailed) {
  WriteFile(kPoolName, HeaderThenPage(static_cast<unsigned>(kAgreedAddress), 0));
  NuvMempool* pool = nullptr;
  EXPECT_EQ(NuvMempool::Attach(kPoolName, pool), kNuvPoolAddressFailed);
  EXPECT_TRUE(ListUnchanged());
}

TEST_F(PoolFileBadInput, AttachOfAnAddressWordOffAPageBoundaryReturnsAddressFailed) {
  WriteFile(kPoolName, HeaderThenPage(static_cast<unsigned>(kAgreedAddress) + 4, Page()));
  NuvMempool* pool = nullptr;
  EXPECT_EQ(NuvMempool::Attach(kPoolName, pool), kNuvPoolAddressFailed);
  EXPECT_TRUE(ListUnchanged());
}

TEST_F(PoolFileBadInput, AttachOfAZeroAddressWordReturnsAddressFailed) {
  WriteFile(kPoolName, HeaderThenPage(0, Page()));
  NuvMempool* pool = nullptr;
  EXPECT_EQ(NuvMempool::Attach(kPoolName, pool), kNuvPoolAddressFailed);
  EXPECT_TRUE(ListUnchanged());
}

TEST_F(PoolFileBadInput, AttachOfAHeaderOfRandomBytesReturnsAddressFailed) {
  WriteFile(kPoolName, RandomHeader() + std::string(Page(), '\x5a'));
  NuvMempool* pool = nullptr;
  EXPECT_EQ(NuvMempool::Attach(kPoolName, pool), kNuvPoolAddressFailed);
  EXPECT_TRUE(ListUnchanged());
}

// Attach takes the pool header as it finds it: a wrong magic word is not looked at.
TEST_F(PoolFileBadInput, AttachOfAPoolWithABadMagicWordSucceeds) {
  LeaveStalePool(kPoolName);
  const int fd = open(Path(kPoolName).c_str(), O_WRONLY);
  ASSERT_GE(fd, 0);
  const unsigned badMagic = 0x12345678;
  ASSERT_EQ(pwrite(fd, &badMagic, sizeof badMagic, kFileHeaderSize),
            static_cast<ssize_t>(sizeof badMagic));
  close(fd);
  NuvMempool* pool = nullptr;
  ASSERT_EQ(NuvMempool::Attach(kPoolName, pool), kNuvOk);
  EXPECT_EQ(WordAt(pool), badMagic);
  EXPECT_STREQ(pool->GetName(), kPoolName);
  delete pool;
}

// Attach does not ask for a holder: a pool that every process left is mapped as it was left.
TEST_F(PoolFileBadInput, AttachOfAStalePoolMapsItAsItWasLeft) {
  NuvMempool* creator = nullptr;
  ASSERT_EQ(NuvMempool::Allocate(kPoolName, kPoolSize, false, At(kAgreedAddress), true, creator),
            kNuvOk);
  auto* p = static_cast<unsigned*>(creator->Malloc(4, NuvMempool::catalog));
  *p = 0x600dcafe;
  delete creator;
  NuvMempool* pool = nullptr;
  ASSERT_EQ(NuvMempool::Attach(kPoolName, pool), kNuvOk);
  EXPECT_EQ(*p, 0x600dcafeU);
  EXPECT_EQ(InfoWord(pool, NuvMempoolInfo::kUserBlocks + NuvMempool::catalog), 1U);
  delete pool;
}

TEST_F(PoolFileBadInput, AutoAttachOfZeroBytesWithoutAFileMakesAOnePagePool) {
  char* base = nullptr;
  NuvMempool* pool = nullptr;
  bool attached = true;
  ASSERT_EQ(NuvMempool::AutoAttach(kPoolName, 0, base, pool, attached), kNuvOk);
  EXPECT_FALSE(attached);
  EXPECT_EQ(pool->GetSize(), Page() - kFileHeaderSize);
  delete pool;
}

// The empty file that the failed creation leaves is found by the next AutoAttach, which cannot
// read its header and does not replace it.
TEST_F(PoolFileBadInput, AutoAttachOfNearlyFourGibibytesFailsAndItsEmptyFileStopsTheNextOne) {
  const ChildOutcome outcome = RunInChild([] {
    char* base = nullptr;
    NuvMempool* pool = nullptr;
    bool attached = true;
    const unsigned result =
        NuvMempool::AutoAttach(kPoolName, kNearlyFourGibibytes, base, pool, attached);
    printf("0x%x %d\n", result, attached ? 1 : 0);
  });
  EXPECT_EQ(outcome.out, "0x50002 0\n") << outcome.err;
  EXPECT_EQ(outcome.err, "mmap: Invalid argument\n");
  EXPECT_EQ(FileSize(kPoolName), 0);
  char* base = nullptr;
  NuvMempool* pool = nullptr;
  bool attached = false;
  EXPECT_EQ(NuvMempool::AutoAttach(kPoolName, kPoolSize, base, pool, attached), kNuvPoolOpenFailed);
  EXPECT_TRUE(attached);
  EXPECT_TRUE(ListUnchanged());
}

TEST_F(PoolFileBadInput, AutoAttachOfAnEmptyFileReturnsOpenFailedAndKeepsTheFile) {
  WriteFile(kPoolName, "");
  char* base = nullptr;
  NuvMempool* pool = nullptr;
  bool attached = false;
  EXPECT_EQ(NuvMempool::AutoAttach(kPoolName, kPoolSize, base, pool, attached), kNuvPoolOpenFailed);
  EXPECT_TRUE(attached);
  EXPECT_EQ(FileSize(kPoolName), 0);
  EXPECT_TRUE(ListUnchanged());
}

TEST_F(PoolFileBadInput, AutoAttachOfAFileShorterThanTheHeaderReturnsOpenFailed) {
  WriteFile(kPoolName, "1234567");
  char* base = nullptr;
  NuvMempool* pool = nullptr;
  bool attached = false;
  EXPECT_EQ(NuvMempool::AutoAttach(kPoolName, kPoolSize, base, pool, attached), kNuvPoolOpenFailed);
  EXPECT_EQ(FileSize(kPoolName), 7);
  EXPECT_TRUE(ListUnchanged());
}

TEST_F(PoolFileBadInput, AutoAttachOfATruncatedPoolThatNoProcessHoldsMakesItAnew) {
  LeaveStalePool(kPoolName);
  ASSERT_EQ(truncate(Path(kPoolName).c_str(), Page()), 0);
  char* base = nullptr;
  NuvMempool* pool = nullptr;
  bool attached = true;
  ASSERT_EQ(NuvMempool::AutoAttach(kPoolName, 2 * kPoolSize, base, pool, attached), kNuvOk);
  EXPECT_FALSE(attached);
  EXPECT_EQ(pool->GetSize(), PoolSizeFor(2 * kPoolSize));
  EXPECT_EQ(FileSize(kPoolName), static_cast<long>(PoolSizeFor(2 * kPoolSize) + kFileHeaderSize));
  EXPECT_EQ(WordAt(pool), NuvMempool::kMagic);
  delete pool;
}

TEST_F(PoolFileBadInput, AutoAttachOfARandomHeaderThatNoProcessHoldsMakesThePoolAnew) {
  WriteFile(kPoolName, RandomHeader() + std::string(Page(), '\x5a'));
  char* base = nullptr;
  NuvMempool* pool = nullptr;
  bool attached = true;
  ASSERT_EQ(NuvMempool::AutoAttach(kPoolName, kPoolSize, base, pool, attached), kNuvOk);
  EXPECT_FALSE(attached);
  EXPECT_EQ(WordAt(pool), NuvMempool::kMagic);
  EXPECT_STREQ(pool->GetName(), kPoolName);
  delete pool;
}

TEST_F(PoolFileBadInput, AutoAttachOfAZeroLengthWordThatNoProcessHoldsMakesThePoolAnew) {
  WriteFile(kPoolName, HeaderThenPage(static_cast<unsigned>(kAgreedAddress), 0));
  char* base = nullptr;
  NuvMempool* pool = nullptr;
  bool attached = true;
  ASSERT_EQ(NuvMempool::AutoAttach(kPoolName, kPoolSize, base, pool, attached), kNuvOk);
  EXPECT_FALSE(attached);
  EXPECT_EQ(WordAt(pool), NuvMempool::kMagic);
  delete pool;
}

// ---------------------------------------------------------------------------------------------
// NuvOsMempool::MapFd

TEST_F(PoolFileBadInput, MapFdOfADescriptorThatIsNotOpenReturnsOpenFailed) {
  char* base = nullptr;
  unsigned length = 0;
  EXPECT_EQ(NuvOsMempool::MapFd(-1, base, length, false), kNuvPoolOpenFailed);
  EXPECT_EQ(base, nullptr);
}

TEST_F(PoolFileBadInput, MapFdAskingForAHolderOfAPoolThatNoProcessHoldsReturnsNotActive) {
  LeaveStalePool(kPoolName);
  const int fd = open(Path(kPoolName).c_str(), O_RDWR);
  ASSERT_GE(fd, 0);
  char* base = nullptr;
  unsigned length = 0;
  EXPECT_EQ(NuvOsMempool::MapFd(fd, base, length, true), kNuvNotActive);
  EXPECT_EQ(base, nullptr);
  close(fd);
}

// ---------------------------------------------------------------------------------------------
// Malloc, MallocMaybe, Calloc, CallocMaybe

TEST_F(MallocBadInput, MallocOfNearlyFourGibibytesStopsAt1216) {
  const FatalReport report = RunToFatalReport([this] { Take(kNearlyFourGibibytes); });
  ExpectLibraryAssertion(report, "BlockFailure", 1216);
  const std::vector<std::string> records = PoolRecords(report);
  ASSERT_GE(records.size(), 2U) << report.outcome.out;
  EXPECT_EQ(records[0], "pool is out of space, requesting -16 bytes");
  EXPECT_EQ(records[1], "total pool size: " + std::to_string(Pool()->GetSize()) + " bytes");
}

TEST_F(MallocBadInput, MallocMaybeOfZeroBytesGivesASixteenByteBlock) {
  void* p = Pool()->MallocMaybe(0, NuvMempool::unknown);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(SizeOf(p), 16U);
  EXPECT_EQ(WordAt(p), kDeadBeef);
  Pool()->Free(p);
}

TEST_F(MallocBadInput, MallocMaybeOfNearlyFourGibibytesReturnsNullAndLogs) {
  const std::vector<unsigned> before = InUse(Pool());
  const FatalReport report = RunToFatalReport([this, before] {
    const bool refused = Pool()->MallocMaybe(kNearlyFourGibibytes, NuvMempool::unknown) == nullptr;
    _exit(refused && InUse(Pool()) == before ? 0 : 1);
  });
  EXPECT_TRUE(report.outcome.Exited() && report.outcome.ExitCode() == 0) << report.outcome.err;
  EXPECT_EQ(PoolRecords(report),
            std::vector<std::string>{"pool is out of space, requesting -16-byte sBlock"});
}

TEST_F(CallocBadInput, CallocOfZeroBytesGivesASixteenByteBlockAndClearsNothing) {
  void* p = Pool()->Calloc(0, NuvMempool::unknown);
  EXPECT_EQ(SizeOf(p), 16U);
  EXPECT_EQ(WordAt(p), kDeadBeef);
  Pool()->Free(p);
}

TEST_F(CallocBadInput, CallocMaybeOfZeroBytesGivesASixteenByteBlockAndClearsNothing) {
  void* p = Pool()->CallocMaybe(0, NuvMempool::unknown);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(SizeOf(p), 16U);
  EXPECT_EQ(WordAt(p), kDeadBeef);
  Pool()->Free(p);
}

TEST_F(CallocBadInput, CallocOfNearlyFourGibibytesStopsAt1216) {
  const FatalReport report =
      RunToFatalReport([this] { Pool()->Calloc(kNearlyFourGibibytes, NuvMempool::unknown); });
  ExpectLibraryAssertion(report, "BlockFailure", 1216);
}

TEST_F(CallocBadInput, CallocMaybeOfNearlyFourGibibytesReturnsNull) {
  const std::vector<unsigned> before = InUse(Pool());
  EXPECT_EQ(Pool()->CallocMaybe(kNearlyFourGibibytes, NuvMempool::unknown), nullptr);
  EXPECT_EQ(InUse(Pool()), before);
}

// ---------------------------------------------------------------------------------------------
// Realloc, ReallocMaybe

TEST_F(ReallocBadInput, ReallocToZeroBytesKeepsThePointerAndTheBlock) {
  void* p = Take(100);
  EXPECT_EQ(Pool()->Realloc(p, 0), p);
  EXPECT_EQ(SizeOf(p), 108U);
  EXPECT_EQ(Pool()->ReallocMaybe(p, 0), p);
  EXPECT_EQ(SizeOf(p), 108U);
}

TEST_F(ReallocBadInput, ReallocToNearlyFourGibibytesStopsAt1319) {
  void* p = Take(100);
  const FatalReport report =
      RunToFatalReport([this, p] { Pool()->Realloc(p, kNearlyFourGibibytes); });
  ExpectLibraryAssertion(report, "Realloc", 1319);
  const std::vector<std::string> expected = {
      "pool is out of space, requesting -16-byte sBlock",
      "pool is out of space, reallocing -16 bytes",
      "total pool size: " + std::to_string(Pool()->GetSize()) + " bytes"};
  EXPECT_EQ(PoolRecords(report), expected) << report.outcome.out;
}

TEST_F(ReallocBadInput, ReallocMaybeToNearlyFourGibibytesReturnsNullAndKeepsTheBlock) {
  auto* p = static_cast<unsigned*>(Take(100));
  *p = 0x600dcafe;
  Guard();
  const unsigned header = WordAt(BlockOf(p));
  EXPECT_EQ(Pool()->ReallocMaybe(p, kNearlyFourGibibytes), nullptr);
  EXPECT_EQ(WordAt(BlockOf(p)), header);
  EXPECT_EQ(*p, 0x600dcafeU);
}

TEST_F(ReallocBadInput, ReallocOfNullStopsAt1436) {
  const FatalReport report = RunToFatalReport([this] { Pool()->Realloc(nullptr, 100); });
  ExpectLibraryAssertion(report, "AssertValidPointer", 1436);
}

TEST_F(ReallocBadInput, ReallocMaybeOfNullStopsAt1436) {
  const FatalReport report = RunToFatalReport([this] { Pool()->ReallocMaybe(nullptr, 100); });
  ExpectLibraryAssertion(report, "AssertValidPointer", 1436);
}

// The block could grow in place in its own pool, into the free block above it: the pointer is
// refused before anything of either pool is touched.
TEST_F(ReallocBadInput, ReallocOfAPointerFromAnotherPoolStopsAt1436) {
  void* p = Other()->Malloc(100, NuvMempool::unknown);
  void* above = Other()->Malloc(60, NuvMempool::unknown);
  Other()->Malloc(0, NuvMempool::unknown);
  Other()->Free(above);
  const FatalReport report = RunToFatalReport([this, p] { Pool()->Realloc(p, 120); });
  ExpectLibraryAssertion(report, "AssertValidPointer", 1436);
}

// The payload's fill, read as a block header, gives a size that runs past the top.
TEST_F(ReallocBadInput, ReallocOfAnInteriorPointerStopsAt1439) {
  auto* p = static_cast<char*>(Take(100));
  const FatalReport report = RunToFatalReport([this, p] { Pool()->Realloc(p + 16, 200); });
  ExpectLibraryAssertion(report, "AssertValidPointer", 1439);
}

TEST_F(ReallocBadInput, ReallocOfAFreedPointerStopsAt1441) {
  void* p = Take(100);
  Guard();
  Pool()->Free(p);
  const FatalReport report = RunToFatalReport([this, p] { Pool()->Realloc(p, 50); });
  ExpectLibraryAssertion(report, "AssertValidPointer", 1441);
}

// Growing in place keeps the size unrounded: the free rest split off above the block starts
// between words, so its fill reads shifted and the next check of the pool stops. Callers keep
// Realloc sizes multiples of 4.
TEST_F(ReallocBadInput, ReallocToASizeNotAMultipleOfFourLeavesARestThatStopsTheNextCheckAt764) {
  void* p = TakeWithRoomAbove();
  EXPECT_EQ(Pool()->Realloc(p, 101), p);
  EXPECT_EQ(SizeOf(p), 109U);
  char* rest = BlockOf(p) + 109;
  EXPECT_NE(reinterpret_cast<uintptr_t>(rest) % 4, 0U);
  EXPECT_EQ(WordAt(rest), 67U);  // free, 176 - 109 bytes
  const FatalReport report = RunToFatalReport([this] { Pool()->CheckPool(); });
  ExpectLibraryAssertion(report, "AssertDeadBeef", 764);
}

TEST_F(ReallocBadInput, ReallocToASizeNotAMultipleOfFourStopsTheNextAllocationAt764WithChecking) {
  void* p = TakeWithRoomAbove();
  Pool()->Realloc(p, 101);
  Pool()->CheckOn();
  const FatalReport report = RunToFatalReport([this] { Take(0); });
  ExpectLibraryAssertion(report, "AssertDeadBeef", 764);
}

TEST_F(ReallocBadInput, ReallocToAMultipleOfFourLeavesAPoolThatPassesItsCheck) {
  void* p = TakeWithRoomAbove();
  EXPECT_EQ(Pool()->Realloc(p, 104), p);
  EXPECT_EQ(SizeOf(p), 112U);
  const FatalReport report = RunToFatalReport([this] { Pool()->CheckPoolQuietly(); });
  EXPECT_TRUE(ReturnedQuietly(report.outcome));
}

// ---------------------------------------------------------------------------------------------
// Free

TEST_F(FreeBadInput, FreeOfAPointerFromAnotherPoolStopsAt1436) {
  void* p = Other()->Malloc(100, NuvMempool::unknown);
  const FatalReport report = RunToFatalReport([this, p] { Pool()->Free(p); });
  ExpectLibraryAssertion(report, "AssertValidPointer", 1436);
}

TEST_F(FreeBadInput, FreeOfAnInteriorPointerStopsAt1439) {
  auto* p = static_cast<char*>(Take(100));
  const FatalReport report = RunToFatalReport([this, p] { Pool()->Free(p + 16); });
  ExpectLibraryAssertion(report, "AssertValidPointer", 1439);
}

// ---------------------------------------------------------------------------------------------
// GetChunk, ReturnChunk

// Rounded up to the granule, the size runs past 32 bits: it is no chunk the gap can hold.
TEST_F(ChunkBadInput, GetChunkOfNearlyFourGibibytesReturnsNullAndLogs) {
  const char* floor = Floor();
  const FatalReport report = RunToFatalReport([this, floor] {
    const bool refused = Pool()->GetChunk(kNearlyFourGibibytes, NuvMempool::catalog) == nullptr;
    _exit(refused && Floor() == floor && InfoWord(Pool(), NuvMempoolInfo::kChunks) == 0 ? 0 : 1);
  });
  EXPECT_TRUE(report.outcome.Exited() && report.outcome.ExitCode() == 0) << report.outcome.err;
  const std::vector<std::string> records = PoolRecords(report);
  ASSERT_FALSE(records.empty()) << report.outcome.out;
  EXPECT_EQ(records[0], "pool is out of space, requesting -16-byte chunk");
  // Then the arena dump: its heading, users 2 to 13 and the total.
  EXPECT_EQ(records.size(), 1U + kDumpLines);
}

TEST_F(ChunkBadInput, GetChunkOfNearlyFourGibibytesForStreamsReturnsNullSilently) {
  const FatalReport report = RunToFatalReport([this] {
    _exit(Pool()->GetChunk(kNearlyFourGibibytes, NuvMempool::stream) == nullptr ? 0 : 1);
  });
  EXPECT_TRUE(report.outcome.Exited() && report.outcome.ExitCode() == 0) << report.outcome.err;
  EXPECT_TRUE(PoolRecords(report).empty()) << report.outcome.out;
}

TEST_F(ChunkBadInput, ReturnChunkOfNullStopsAt2091) {
  Pool()->GetChunk(512, NuvMempool::catalog);
  const FatalReport report = RunToFatalReport([this] { Pool()->ReturnChunk(nullptr); });
  ExpectLibraryAssertion(report, "ReturnChunk", 2091);
}

TEST_F(ChunkBadInput, ReturnChunkOfAChunkOfAnotherPoolStopsAt2091) {
  void* chunk = Other()->GetChunk(512, NuvMempool::catalog);
  const FatalReport report = RunToFatalReport([this, chunk] { Pool()->ReturnChunk(chunk); });
  ExpectLibraryAssertion(report, "ReturnChunk", 2091);
}

// A returned chunk above one still in use keeps its record, and a second return finds it
// again: it is counted back twice, and the chunk counters wrap below zero.
TEST_F(ChunkBadInput, ReturnChunkTwiceOfAChunkStillListedCountsItBackTwice) {
  void* older = Pool()->GetChunk(512, NuvMempool::catalog);
  void* newer = Pool()->GetChunk(512, NuvMempool::catalog);
  Pool()->ReturnChunk(older);
  Pool()->ReturnChunk(older);
  EXPECT_EQ(InfoWord(Pool(), NuvMempoolInfo::kChunks), 0U);
  EXPECT_EQ(InfoWord(Pool(), NuvMempoolInfo::kUserChunks + NuvMempool::userFree), ~0U);
  EXPECT_EQ(InfoWord(Pool(), NuvMempoolInfo::kUserChunkBytes + NuvMempool::userFree), 0U - 512);
  Pool()->ReturnChunk(newer);
  EXPECT_EQ(Floor(), Base() + Pool()->GetSize());
}

// ---------------------------------------------------------------------------------------------
// AssignNuvCoreUser

TEST_F(AssignBadInput, AssignNuvCoreUserOfNullStopsAt1436) {
  const FatalReport report =
      RunToFatalReport([this] { Pool()->AssignNuvCoreUser(nullptr, NuvMempool::catalog); });
  ExpectLibraryAssertion(report, "AssertValidPointer", 1436);
}

TEST_F(AssignBadInput, AssignNuvCoreUserOfAPointerFromAnotherPoolStopsAt1436) {
  void* p = Other()->Malloc(100, NuvMempool::unassigned);
  const FatalReport report =
      RunToFatalReport([this, p] { Pool()->AssignNuvCoreUser(p, NuvMempool::catalog); });
  ExpectLibraryAssertion(report, "AssertValidPointer", 1436);
}

TEST_F(AssignBadInput, AssignNuvCoreUserOfAFreedBlockStopsAt1441) {
  void* p = Take(100);
  Guard();
  Pool()->Free(p);
  const FatalReport report =
      RunToFatalReport([this, p] { Pool()->AssignNuvCoreUser(p, NuvMempool::catalog); });
  ExpectLibraryAssertion(report, "AssertValidPointer", 1441);
}

// ---------------------------------------------------------------------------------------------
// NuvSeed, NuvCore, ref<T>

namespace {

// A plain pool object.
class Item : public NuvSeed {
 public:
  Item() : NuvSeed(NuvMempool::catalog) {}
};

// A counted pool object that tells when it is destroyed.
class Tracked : public NuvCore {
 public:
  explicit Tracked(int* destroyed) : NuvCore(NuvMempool::catalog), destroyedM(destroyed) {}
  ~Tracked() override { ++*destroyedM; }
  Tracked(const Tracked&) = delete;
  Tracked& operator=(const Tracked&) = delete;
  Tracked(Tracked&&) = delete;
  Tracked& operator=(Tracked&&) = delete;

 private:
  int* destroyedM;
};

}  // namespace

using SeedBadInput = BadInput;
using RegistryBadInput = BadInput;

TEST_F(SeedBadInput, NewOnANullPoolStopsAt2464) {
  const FatalReport report = RunToFatalReport([] { NuvSeed::operator new(sizeof(Item), nullptr); });
  ExpectLibraryAssertion(report, "__nw", 2464);
}

TEST_F(SeedBadInput, DeleteOfNullDoesNothing) {
  const std::vector<unsigned> before = InUse(Pool());
  NuvSeed::operator delete(nullptr);
  EXPECT_EQ(InUse(Pool()), before);
}

TEST_F(SeedBadInput, DeleteOfStorageAlreadyGivenBackStopsAt2475) {
  void* storage = NuvSeed::operator new(sizeof(Item), Pool());
  NuvSeed::operator delete(Opaque(storage));
  const FatalReport report =
      RunToFatalReport([storage] { NuvSeed::operator delete(Opaque(storage)); });
  ExpectLibraryAssertion(report, "__dl", 2475);
}

TEST_F(SeedBadInput, DeleteOfStorageOutsideEveryPoolStopsAt2475) {
  const FatalReport report =
      RunToFatalReport([] { NuvSeed::operator delete(Opaque(foreignBytes)); });
  ExpectLibraryAssertion(report, "__dl", 2475);
}

// A count taken below zero wraps: the object stays, and no later DownRef brings it to 1 soon.
TEST_F(SeedBadInput, CoreDownRefAtCountZeroWrapsTheCountAndKeepsTheObject) {
  int destroyed = 0;
  auto* tracked = new (Pool()) Tracked(&destroyed);
  tracked->DownRef();
  EXPECT_EQ(tracked->GetRefCount(), ~0U);
  EXPECT_EQ(destroyed, 0);
  tracked->UpRef();
  tracked->DeleteThis();
  EXPECT_EQ(destroyed, 1);
}

TEST_F(SeedBadInput, SeedDownRefAtCountZeroWrapsTheCount) {
  auto* item = new (Pool()) Item();
  item->DownRef();
  EXPECT_EQ(item->GetRefCount(), ~0U);
  item->UpRef();
  delete item;
}

// ---------------------------------------------------------------------------------------------
// NuvMempoolRegistry

// A null object is registered like any other: the id is taken, and finding it gives null, as
// for an absent id.
TEST_F(RegistryBadInput, AddItemOfANullObjectTakesTheIdWithNothingToFind) {
  NuvMempoolRegistry* registry = Pool()->GetRegistry();
  const unsigned nuvBlocks = InfoWord(Pool(), NuvMempoolInfo::kUserBlocks + NuvMempool::nuv);
  EXPECT_TRUE(registry->AddItem(5, nullptr));
  EXPECT_EQ(InfoWord(Pool(), NuvMempoolInfo::kUserBlocks + NuvMempool::nuv), nuvBlocks + 1);
  EXPECT_EQ(registry->FindItem(5), nullptr);
  auto* item = new (Pool()) Item();
  EXPECT_FALSE(registry->AddItem(5, item));
  EXPECT_EQ(item->GetRefCount(), 0U);
  EXPECT_EQ(registry->RemoveItem(5), nullptr);
  EXPECT_EQ(InfoWord(Pool(), NuvMempoolInfo::kUserBlocks + NuvMempool::nuv), nuvBlocks);
  EXPECT_TRUE(registry->AddItem(5, item));
  EXPECT_EQ(registry->RemoveItem(5), item);
  delete item;
}

TEST_F(RegistryBadInput, AddItemOnAnExhaustedPoolStopsAt1216) {
  auto* item = new (Pool()) Item();
  // Leaves 4 bytes between the top sentinel's end and the chunk floor: no room for an item.
  const auto room = static_cast<unsigned>(Floor() - Top()) - kBlockHeader;
  Take(room - 4 - kBlockHeader);
  const FatalReport report =
      RunToFatalReport([this, item] { Pool()->GetRegistry()->AddItem(1, item); });
  ExpectLibraryAssertion(report, "BlockFailure", 1216);
  const std::vector<std::string> records = PoolRecords(report);
  ASSERT_FALSE(records.empty()) << report.outcome.out;
  EXPECT_EQ(records[0], "pool is out of space, requesting 12 bytes");
}
