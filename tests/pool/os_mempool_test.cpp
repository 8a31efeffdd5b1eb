/// \file NuvOsMempool: pool paths, creation, attaching across processes, the active flag, freeing.
#include <nuv/os_mempool.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/child_process.h"
#include "support/pool_prefix.h"

namespace {

using nuv::test::ChildOutcome;
using nuv::test::RunInChild;
using nuv::test::ScopedPoolPrefix;

constexpr unsigned kHeaderSize = 8;
// Fixed addresses that nothing else occupies in the test programs, on the device or the host:
// an agreed pool address, a second one, and one with the top bit set.
constexpr uintptr_t kAgreedAddress = 0x68000000;
constexpr uintptr_t kOtherAddress = 0x6c000000;
constexpr uintptr_t kHighAddress = 0x90000000;
constexpr unsigned kCreatorWord = 0x1234abcd;
constexpr std::chrono::seconds kChildDeadline{4};
constexpr int kPollMilliseconds = 4000;

char* At(uintptr_t address) { return reinterpret_cast<char*>(address); }

unsigned Page() { return static_cast<unsigned>(NuvOsMempool::SPage()); }

// NOLINTNEXTLINE(readability-non-const-parameter): callers write through the reference.
unsigned& WordAt(char* address) { return *reinterpret_cast<unsigned*>(address); }

// Word 0 (the mapping address) or word 1 (the mapping length) of the header before a pool.
unsigned& HeaderWord(char* base, unsigned index) {
  return WordAt(base - kHeaderSize + index * sizeof(unsigned));
}

unsigned AddressWord(const char* address) {
  return static_cast<unsigned>(reinterpret_cast<uintptr_t>(address));
}

// One mapping of a test, freed when the test ends however it ends.
class Mapping {
 public:
  explicit Mapping(uintptr_t wanted = 0) : base(At(wanted)) {}
  ~Mapping() { Free(); }
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;
  Mapping(Mapping&&) = delete;
  Mapping& operator=(Mapping&&) = delete;

  unsigned Allocate(const char* name, unsigned size, bool replace = false, bool named = true) {
    return Keep(NuvOsMempool::Allocate(name, size, replace, base, length, fd, named));
  }
  unsigned Attach(const char* name) { return Keep(NuvOsMempool::Attach(name, base, length, fd)); }
  unsigned AutoAttach(const char* name, unsigned size, bool& attached) {
    return Keep(NuvOsMempool::AutoAttach(name, size, base, length, attached, fd));
  }
  void Free() {
    if (mapped) {
      NuvOsMempool::Free(base, length, fd);
      mapped = false;
    }
  }

  unsigned Keep(unsigned result) {
    mapped = result == kNuvOk;
    return result;
  }

  char* base;
  unsigned length = 0;
  int fd = -1;
  bool mapped = false;
};

std::string PoolName(const char* name) {
  char* path = MakePoolName(name);
  std::string text = path != nullptr ? path : "";
  free(path);
  return text;
}

bool FileExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

std::string ReadFile(const std::string& path, size_t count) {
  std::string bytes(count, '\0');
  const int fd = open(path.c_str(), O_RDONLY);
  const ssize_t got = fd < 0 ? -1 : read(fd, bytes.data(), count);
  if (fd >= 0) {
    close(fd);
  }
  bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
  return bytes;
}

void WriteFile(const std::string& path, const std::string& bytes) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  close(fd);
}

std::string NativeBytes(unsigned word) {
  std::string bytes(sizeof word, '\0');
  memcpy(bytes.data(), &word, sizeof word);
  return bytes;
}

std::string BytesInOrder(unsigned word, bool bigEndian) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) {
    bytes += static_cast<char>((word >> shift) & 0xff);
  }
  return bigEndian ? bytes : std::string(bytes.rbegin(), bytes.rend());
}

bool NativeIsBigEndian() { return NativeBytes(1)[0] == 0; }

std::string Format(const char* format, unsigned first, unsigned second, unsigned third) {
  char text[128];
  snprintf(text, sizeof text, format, first, second, third);
  return text;
}

bool DiedOf(const ChildOutcome& outcome, int signal) {
  return outcome.Signalled() && outcome.Signal() == signal;
}

// A write that the default action of SIGSEGV ends if the page refuses it (sanitizers and test
// frameworks install handlers of their own).
void WriteWithDefaultSegvAction(char* address) {
  signal(SIGSEGV, SIG_DFL);
  WordAt(address) = kCreatorWord;
}

bool FailedAssertion(const ChildOutcome& outcome, const std::string& report) {
  return outcome.Exited() && outcome.ExitCode() == EXIT_FAILURE &&
         outcome.err.find(report) != std::string::npos &&
         outcome.err.find("died due to signal -2") != std::string::npos;
}

// A forked child that creates a named pool at the agreed address, writes kCreatorWord in it and
// holds it until released (or until the test ends).
class HoldingChild {
 public:
  explicit HoldingChild(const char* name) {
    if (pipe(readyM) != 0 || pipe(releaseM) != 0) {
      return;
    }
    fflush(nullptr);
    pidM = fork();
    if (pidM == 0) {
      HoldPool(name);
    }
    close(readyM[1]);
    close(releaseM[0]);
  }
  ~HoldingChild() {
    close(releaseM[1]);
    close(readyM[0]);
    if (pidM > 0) {
      nuv::test::WaitWithDeadline(pidM, kChildDeadline);
    }
  }
  HoldingChild(const HoldingChild&) = delete;
  HoldingChild& operator=(const HoldingChild&) = delete;
  HoldingChild(HoldingChild&&) = delete;
  HoldingChild& operator=(HoldingChild&&) = delete;

  // True once the child reports that it holds the pool.
  bool Holding() {
    pollfd ready{readyM[0], POLLIN, 0};
    char answer = 0;
    return pidM > 0 && poll(&ready, 1, kPollMilliseconds) == 1 &&
           read(readyM[0], &answer, 1) == 1 && answer == 'y';
  }

 private:
  [[noreturn]] void HoldPool(const char* name) {
    close(readyM[0]);
    close(releaseM[1]);
    char* base = At(kAgreedAddress);
    unsigned length = 0;
    int fd = -1;
    const bool held = NuvOsMempool::Allocate(name, 1, false, base, length, fd, true) == kNuvOk;
    if (held) {
      WordAt(base) = kCreatorWord;
    }
    const char answer = held ? 'y' : 'n';
    write(readyM[1], &answer, 1);
    char ignored = 0;
    read(releaseM[0], &ignored, 1);
    _exit(0);
  }

  int readyM[2] = {-1, -1};
  int releaseM[2] = {-1, -1};
  int pidM = -1;
};

TEST(OsMempool, MakePoolNameJoinsDirectoryPrefixAndName) {
  ScopedPoolPrefix prefix;
  setenv("NUV_POOL_PREFIX", "x_", 1);
  EXPECT_EQ(PoolName("pool"), "/var/tmp/x_pool");
}

TEST(OsMempool, MakePoolNameWithoutPrefixUsesTheNameAlone) {
  ScopedPoolPrefix prefix;
  unsetenv("NUV_POOL_PREFIX");
  EXPECT_EQ(PoolName("pool"), "/var/tmp/pool");
}

TEST(OsMempool, AllocateOfOneByteMapsOnePage) {
  ScopedPoolPrefix prefix;
  Mapping pool;
  ASSERT_EQ(pool.Allocate("pool", 1), kNuvOk);
  EXPECT_EQ(pool.length, Page() - kHeaderSize);
  EXPECT_EQ(HeaderWord(pool.base, 1), Page());
}

TEST(OsMempool, AllocateOfAPageLessTheHeaderMapsOnePage) {
  ScopedPoolPrefix prefix;
  Mapping pool;
  ASSERT_EQ(pool.Allocate("pool", Page() - kHeaderSize), kNuvOk);
  EXPECT_EQ(pool.length, Page() - kHeaderSize);
}

TEST(OsMempool, AllocateOfOneByteMoreMapsTwoPages) {
  ScopedPoolPrefix prefix;
  Mapping pool;
  ASSERT_EQ(pool.Allocate("pool", Page() - kHeaderSize + 1), kNuvOk);
  EXPECT_EQ(pool.length, 2 * Page() - kHeaderSize);
}

TEST(OsMempool, AllocateGrowsTheFileToTheMappingLength) {
  ScopedPoolPrefix prefix;
  Mapping pool;
  ASSERT_EQ(pool.Allocate("pool", 3 * Page()), kNuvOk);
  struct stat status {};
  ASSERT_EQ(stat(prefix.PathOf("pool").c_str(), &status), 0);
  EXPECT_EQ(status.st_size, static_cast<off_t>(4 * Page()));
  EXPECT_EQ(pool.length, 4 * Page() - kHeaderSize);
}

TEST(OsMempool, AllocateWritesTheHeaderWordsInNativeByteOrder) {
  ScopedPoolPrefix prefix;
  Mapping pool;
  ASSERT_EQ(pool.Allocate("pool", 1), kNuvOk);
  const unsigned address = AddressWord(pool.base - kHeaderSize);
  const std::string header = ReadFile(prefix.PathOf("pool"), kHeaderSize);
  EXPECT_EQ(header, NativeBytes(address) + NativeBytes(Page()));
  const bool bigEndian = NativeIsBigEndian();
  EXPECT_EQ(header, BytesInOrder(address, bigEndian) + BytesInOrder(Page(), bigEndian));
#ifdef __powerpc__
  EXPECT_TRUE(bigEndian) << "the device's words are big-endian";
#endif
}

TEST(OsMempool, AllocateAtAWantedAddressLandsThere) {
  ScopedPoolPrefix prefix;
  Mapping pool(kAgreedAddress);
  ASSERT_EQ(pool.Allocate("pool", 1), kNuvOk);
  EXPECT_EQ(pool.base, At(kAgreedAddress + kHeaderSize));
  EXPECT_EQ(HeaderWord(pool.base, 0), kAgreedAddress);
}

TEST(OsMempool, AllocateAtTheAlternateAddressLandsThere) {
  ScopedPoolPrefix prefix;
  Mapping pool(reinterpret_cast<uintptr_t>(NuvOsMempool::GetAlternatePoolAddress()));
  ASSERT_EQ(pool.Allocate("pool", 1), kNuvOk);
  EXPECT_EQ(pool.base, At(0x60000000 + kHeaderSize));
}

TEST(OsMempool, AllocateWhereTheAddressIsTakenFailsAndReportsMmap) {
  ScopedPoolPrefix prefix;
  const ChildOutcome outcome = RunInChild([] {
    Mapping first(kAgreedAddress);
    Mapping second(kAgreedAddress);
    first.Allocate("first", 1);
    printf("0x%x %d\n", second.Allocate("second", 1), second.fd);
  });
  ASSERT_TRUE(outcome.Exited()) << outcome.err;
  EXPECT_EQ(outcome.out, "0x50002 -1\n");
  EXPECT_EQ(outcome.err.rfind("mmap: ", 0), 0U) << outcome.err;
}

TEST(OsMempool, AllocateOverAnExistingFileWithoutReplaceLeavesItUntouched) {
  ScopedPoolPrefix prefix;
  WriteFile(prefix.PathOf("pool"), "keep me");
  Mapping pool;
  EXPECT_EQ(pool.Allocate("pool", 1), kNuvPoolExists);
  EXPECT_EQ(pool.fd, -1);
  EXPECT_EQ(ReadFile(prefix.PathOf("pool"), 64), "keep me");
}

TEST(OsMempool, AllocateWithReplaceMakesTheFileAnew) {
  ScopedPoolPrefix prefix;
  WriteFile(prefix.PathOf("pool"), "replace me");
  Mapping pool;
  ASSERT_EQ(pool.Allocate("pool", 1, true), kNuvOk);
  const std::string header = ReadFile(prefix.PathOf("pool"), kHeaderSize);
  EXPECT_EQ(header, NativeBytes(AddressWord(pool.base - kHeaderSize)) + NativeBytes(Page()));
}

TEST(OsMempool, AnonymousPoolLeavesNoFile) {
  ScopedPoolPrefix prefix;
  Mapping pool;
  ASSERT_EQ(pool.Allocate("anonymous", 1, false, false), kNuvOk);
  EXPECT_GE(pool.fd, 0);
  EXPECT_EQ(pool.length, Page() - kHeaderSize);
  EXPECT_FALSE(FileExists(prefix.PathOf("anonymous")));
}

TEST(OsMempool, AnonymousPoolIsPrivateToAForkedChild) {
  ScopedPoolPrefix prefix;
  Mapping pool;
  ASSERT_EQ(pool.Allocate("anonymous", 1, false, false), kNuvOk);
  WordAt(pool.base) = 1;
  const ChildOutcome outcome = RunInChild([&pool] {
    printf("child read %u\n", WordAt(pool.base));
    WordAt(pool.base) = 2;
  });
  EXPECT_EQ(outcome.out, "child read 1\n");
  EXPECT_EQ(WordAt(pool.base), 1U);
}

TEST(OsMempool, AttachMapsAtTheAddressInTheHeader) {
  ScopedPoolPrefix prefix;
  Mapping creator(kAgreedAddress);
  ASSERT_EQ(creator.Allocate("pool", 1), kNuvOk);
  WordAt(creator.base) = kCreatorWord;
  creator.Free();
  Mapping attacher;
  ASSERT_EQ(attacher.Attach("pool"), kNuvOk);
  EXPECT_EQ(attacher.base, At(kAgreedAddress + kHeaderSize));
  EXPECT_EQ(attacher.length, Page() - kHeaderSize);
  EXPECT_EQ(WordAt(attacher.base), kCreatorWord);
}

// Free checks the header's address against the mapping, which a view elsewhere never matches:
// the view is unmapped directly.
TEST(OsMempool, AttachAtAWantedAddressSharesTheCreatorsBytes) {
  ScopedPoolPrefix prefix;
  Mapping creator(kAgreedAddress);
  ASSERT_EQ(creator.Allocate("pool", 1), kNuvOk);
  char* view = At(kOtherAddress);
  unsigned length = 0;
  int fd = -1;
  ASSERT_EQ(NuvOsMempool::Attach("pool", view, length, fd), kNuvOk);
  EXPECT_EQ(view, At(kOtherAddress + kHeaderSize));
  WordAt(creator.base) = kCreatorWord;
  EXPECT_EQ(WordAt(view), kCreatorWord);
  munmap(view - kHeaderSize, length + kHeaderSize);
  close(fd);
}

TEST(OsMempool, AttachWhereTheAddressIsTakenFails) {
  ScopedPoolPrefix prefix;
  Mapping creator(kAgreedAddress);
  ASSERT_EQ(creator.Allocate("pool", 1), kNuvOk);
  Mapping attacher;
  EXPECT_EQ(attacher.Attach("pool"), kNuvPoolAddressFailed);
  EXPECT_EQ(attacher.fd, -1);
}

TEST(OsMempool, AttachOfAMissingFileFails) {
  ScopedPoolPrefix prefix;
  Mapping pool;
  EXPECT_EQ(pool.Attach("missing"), kNuvPoolOpenFailed);
  EXPECT_EQ(pool.fd, -1);
}

TEST(OsMempool, AttachOfAFileShorterThanTheHeaderFails) {
  ScopedPoolPrefix prefix;
  WriteFile(prefix.PathOf("short"), "1234567");
  Mapping pool;
  EXPECT_EQ(pool.Attach("short"), kNuvPoolOpenFailed);
  EXPECT_EQ(pool.fd, -1);
}

TEST(OsMempool, SecondProgramAttachesAtTheCreatorsAddress) {
  ScopedPoolPrefix prefix;
  Mapping creator(kAgreedAddress);
  ASSERT_EQ(creator.Allocate("shared", 1), kNuvOk);
  WordAt(creator.base) = kCreatorWord;
  const ChildOutcome outcome =
      nuv::test::RunProgram(nuv::test::HelperPath("pool_attach_helper"), {"shared"});
  ASSERT_TRUE(outcome.Exited()) << outcome.err;
  EXPECT_EQ(outcome.ExitCode(), 0) << outcome.out << outcome.err;
  EXPECT_EQ(outcome.out, Format("base 0x%08x length %u word 0x%08x\n", AddressWord(creator.base),
                                creator.length, kCreatorWord));
  EXPECT_EQ(WordAt(creator.base + 4), ~kCreatorWord);
}

TEST(OsMempool, AutoAttachWithoutAFileCreatesThePool) {
  ScopedPoolPrefix prefix;
  Mapping pool;
  bool attached = true;
  ASSERT_EQ(pool.AutoAttach("fresh", 1, attached), kNuvOk);
  EXPECT_FALSE(attached);
  EXPECT_EQ(pool.length, Page() - kHeaderSize);
  EXPECT_TRUE(FileExists(prefix.PathOf("fresh")));
}

TEST(OsMempool, AutoAttachOfAStalePoolCreatesItAnew) {
  ScopedPoolPrefix prefix;
  const ChildOutcome creator = RunInChild([] {
    char* base = nullptr;
    unsigned length = 0;
    int fd = -1;
    _exit(NuvOsMempool::Allocate("stale", 1, false, base, length, fd, true) == kNuvOk ? 0 : 1);
  });
  ASSERT_TRUE(creator.Exited() && creator.ExitCode() == 0) << creator.err;
  Mapping pool;
  bool attached = true;
  ASSERT_EQ(pool.AutoAttach("stale", 3 * Page() - kHeaderSize, attached), kNuvOk);
  EXPECT_FALSE(attached);
  EXPECT_EQ(pool.length, 3 * Page() - kHeaderSize);
}

TEST(OsMempool, AutoAttachOfALivePoolAttachesItAtTheCreatorsAddress) {
  ScopedPoolPrefix prefix;
  HoldingChild creator("live");
  ASSERT_TRUE(creator.Holding());
  Mapping pool;
  bool attached = false;
  ASSERT_EQ(pool.AutoAttach("live", 3 * Page() - kHeaderSize, attached), kNuvOk);
  EXPECT_TRUE(attached);
  EXPECT_EQ(pool.base, At(kAgreedAddress + kHeaderSize));
  EXPECT_EQ(pool.length, Page() - kHeaderSize);
  EXPECT_EQ(WordAt(pool.base), kCreatorWord);
}

// A pool file that no process holds, open twice: once to check, once to look on.
class UnheldPoolFile {
 public:
  explicit UnheldPoolFile(const ScopedPoolPrefix& prefix) {
    Mapping creator;
    EXPECT_EQ(creator.Allocate("pool", 1), kNuvOk);
    creator.Free();
    checker = open(prefix.PathOf("pool").c_str(), O_RDWR);
    other = open(prefix.PathOf("pool").c_str(), O_RDWR);
  }
  ~UnheldPoolFile() {
    close(other);
    close(checker);
  }
  UnheldPoolFile(const UnheldPoolFile&) = delete;
  UnheldPoolFile& operator=(const UnheldPoolFile&) = delete;
  UnheldPoolFile(UnheldPoolFile&&) = delete;
  UnheldPoolFile& operator=(UnheldPoolFile&&) = delete;

  int checker = -1;
  int other = -1;
};

TEST(OsMempool, CheckActiveFlagOfAnUnheldPoolKeepsTheExclusiveLock) {
  ScopedPoolPrefix prefix;
  const UnheldPoolFile file(prefix);
  EXPECT_EQ(NuvOsMempool::CheckActiveFlag(file.checker), 0);
  EXPECT_EQ(flock(file.other, LOCK_SH | LOCK_NB), -1);
}

TEST(OsMempool, CheckActiveFlagOfAHeldPoolReportsActive) {
  ScopedPoolPrefix prefix;
  Mapping creator;
  ASSERT_EQ(creator.Allocate("pool", 1), kNuvOk);
  const int checker = open(prefix.PathOf("pool").c_str(), O_RDWR);
  EXPECT_EQ(NuvOsMempool::CheckActiveFlag(checker), 1);
  close(checker);
}

TEST(OsMempool, SetMempoolActiveFlagTurnsTheExclusiveLockShared) {
  ScopedPoolPrefix prefix;
  const UnheldPoolFile file(prefix);
  ASSERT_EQ(NuvOsMempool::CheckActiveFlag(file.checker), 0);
  EXPECT_EQ(NuvOsMempool::SetMempoolActiveFlag(file.checker), 0);
  EXPECT_EQ(flock(file.other, LOCK_SH | LOCK_NB), 0);
  EXPECT_EQ(flock(file.other, LOCK_EX | LOCK_NB), -1);
}

TEST(OsMempool, ClearActiveFlagLeavesThePoolHeld) {
  ScopedPoolPrefix prefix;
  Mapping creator;
  ASSERT_EQ(creator.Allocate("pool", 1), kNuvOk);
  EXPECT_EQ(NuvOsMempool::ClearActiveFlag(creator.fd), 0);
  const int checker = open(prefix.PathOf("pool").c_str(), O_RDWR);
  EXPECT_EQ(flock(checker, LOCK_EX | LOCK_NB), -1);
  close(checker);
}

TEST(OsMempool, FreeUnmapsThePool) {
  ScopedPoolPrefix prefix;
  Mapping first(kAgreedAddress);
  ASSERT_EQ(first.Allocate("first", 1), kNuvOk);
  first.Free();
  Mapping second(kAgreedAddress);
  EXPECT_EQ(second.Allocate("second", 1), kNuvOk);
}

TEST(OsMempool, FreeClosesTheDescriptor) {
  ScopedPoolPrefix prefix;
  Mapping pool;
  ASSERT_EQ(pool.Allocate("pool", 1), kNuvOk);
  const int fd = pool.fd;
  pool.Free();
  errno = 0;
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(OsMempool, FreeLeavesDescriptorZeroOpen) {
  ScopedPoolPrefix prefix;
  const ChildOutcome outcome = RunInChild([] {
    dup2(open("/dev/null", O_RDONLY), 0);
    char* base = nullptr;
    unsigned length = 0;
    int fd = -1;
    NuvOsMempool::Allocate("anonymous", 1, false, base, length, fd, false);
    close(fd);
    NuvOsMempool::Free(base, length, 0);
    printf("%s\n", fcntl(0, F_GETFD) == -1 ? "closed" : "open");
  });
  EXPECT_EQ(outcome.out, "open\n") << outcome.err;
}

TEST(OsMempool, FreeWithAMismatchedLengthFailsAnAssertion) {
  ScopedPoolPrefix prefix;
  const ChildOutcome outcome = RunInChild([] {
    Mapping pool;
    if (pool.Allocate("pool", 1) == kNuvOk) {
      NuvOsMempool::Free(pool.base, pool.length + Page(), pool.fd);
    }
  });
  EXPECT_TRUE(FailedAssertion(outcome, "Nuv Assertion Failure: \n    Free, line 587 ()\n"))
      << outcome.err;
}

TEST(OsMempool, FreeWithACorruptAddressWordFailsAnAssertion) {
  ScopedPoolPrefix prefix;
  const ChildOutcome outcome = RunInChild([] {
    Mapping pool;
    if (pool.Allocate("pool", 1) == kNuvOk) {
      HeaderWord(pool.base, 0) += Page();
      NuvOsMempool::Free(pool.base, pool.length, pool.fd);
    }
  });
  EXPECT_TRUE(FailedAssertion(outcome, "Nuv Assertion Failure: \n    Free, line 586 ()\n"))
      << outcome.err;
}

TEST(OsMempool, CleanRemovesThePoolFile) {
  ScopedPoolPrefix prefix;
  Mapping pool;
  ASSERT_EQ(pool.Allocate("pool", 1), kNuvOk);
  pool.Free();
  ASSERT_TRUE(FileExists(prefix.PathOf("pool")));
  NuvOsMempool::Clean("pool");
  EXPECT_FALSE(FileExists(prefix.PathOf("pool")));
}

TEST(OsMempool, SPageIsTheSystemPageSize) {
  ScopedPoolPrefix prefix;
  EXPECT_EQ(NuvOsMempool::SPage(), getpagesize());
}

TEST(OsMempool, GetAlternatePoolAddressIs0x60000000) {
  ScopedPoolPrefix prefix;
  EXPECT_EQ(NuvOsMempool::GetAlternatePoolAddress(), At(0x60000000));
}

TEST(OsMempool, ProtectMakesThePoolReadOnly) {
  ScopedPoolPrefix prefix;
  Mapping pool(kAgreedAddress);
  ASSERT_EQ(pool.Allocate("pool", 1), kNuvOk);
  ASSERT_EQ(NuvOsMempool::Protect(pool.base, pool.length), 0);
  const ChildOutcome outcome = RunInChild([&pool] { WriteWithDefaultSegvAction(pool.base); });
  EXPECT_TRUE(DiedOf(outcome, SIGSEGV)) << outcome.err;
  EXPECT_EQ(NuvOsMempool::Unprotect(pool.base, pool.length), 0);
}

TEST(OsMempool, UnprotectMakesThePoolWritableAgain) {
  ScopedPoolPrefix prefix;
  Mapping pool(kAgreedAddress);
  ASSERT_EQ(pool.Allocate("pool", 1), kNuvOk);
  ASSERT_EQ(NuvOsMempool::Protect(pool.base, pool.length), 0);
  ASSERT_EQ(NuvOsMempool::Unprotect(pool.base, pool.length), 0);
  const ChildOutcome outcome = RunInChild([&pool] { WriteWithDefaultSegvAction(pool.base); });
  EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.err;
  EXPECT_EQ(WordAt(pool.base), kCreatorWord);
}

// The start is rounded towards zero as a signed 32-bit number: above 2 GiB that is upward, so
// the pool's first page stays writable and the protection begins at the next one.
TEST(OsMempool, ProtectAboveTwoGigabytesStartsAtTheNextPage) {
  ScopedPoolPrefix prefix;
  Mapping pool(kHighAddress);
  ASSERT_EQ(pool.Allocate("pool", 2 * Page() - kHeaderSize), kNuvOk);
  ASSERT_EQ(NuvOsMempool::Protect(pool.base, pool.length), 0);
  const ChildOutcome first = RunInChild([&pool] { WriteWithDefaultSegvAction(pool.base); });
  const ChildOutcome second =
      RunInChild([&pool] { WriteWithDefaultSegvAction(pool.base - kHeaderSize + Page()); });
  EXPECT_TRUE(first.Exited() && first.ExitCode() == 0) << first.err;
  EXPECT_TRUE(DiedOf(second, SIGSEGV)) << second.err;
  EXPECT_EQ(NuvOsMempool::Unprotect(pool.base, pool.length), 0);
}

// A range running past the end of the 32-bit address space fails on every target.
TEST(OsMempool, ProtectFailureIsReportedOnStandardErrorAndReturned) {
  ScopedPoolPrefix prefix;
  void* const base = At(kAgreedAddress + kHeaderSize);
  constexpr unsigned kPastTheEnd = 0xf0000000;
  const ChildOutcome outcome =
      RunInChild([base] { printf("%d\n", NuvOsMempool::Protect(base, kPastTheEnd)); });
  char baseLine[64];
  snprintf(baseLine, sizeof baseLine, "  Base 0x%p, size %d\n", base,
           static_cast<int>(kPastTheEnd));
  EXPECT_EQ(outcome.out, "-1\n");
  EXPECT_EQ(outcome.err.rfind("mprotect set read-only: ", 0), 0U) << outcome.err;
  EXPECT_NE(outcome.err.find(baseLine), std::string::npos) << outcome.err;
}

TEST(OsMempool, MLockAndMUnlockReturnZero) {
  ScopedPoolPrefix prefix;
  Mapping pool;
  ASSERT_EQ(pool.Allocate("pool", 1), kNuvOk);
  EXPECT_EQ(NuvOsMempool::MLock(pool.base, pool.length), 0);
  EXPECT_EQ(NuvOsMempool::MUnlock(pool.base, pool.length), 0);
}

}  // namespace
