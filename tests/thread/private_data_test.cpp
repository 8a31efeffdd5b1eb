/// \file Locking a process's private memory: the list of private mappings and LockPrivateData,
/// whose locks are taken in child processes.
#include <nuv/mempool.h>
#include <nuv/os_thread.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/kernel.h"
#include "support/child_process.h"
#include "support/fields.h"
#include "support/log_lines.h"
#include "support/private_pool.h"

namespace {

using nuv::test::ChildOutcome;
using nuv::test::FieldOf;
using nuv::test::Fields;

// "<134>" records: facility facnuv (local0 on the wire), priority priinfo.
constexpr int kInfo = 134;
constexpr size_t kMapsSize = 1 << 20;

struct Range {
  unsigned start;
  unsigned end;
  bool operator==(const Range& other) const { return start == other.start && end == other.end; }
};

// Reads "/proc/self/maps" whole into a buffer made beforehand, so that the reading itself maps
// nothing new.
void ReadMapsInto(std::string& buffer) {
  const int fd = open("/proc/self/maps", O_RDONLY);
  size_t used = 0;
  ssize_t count = 0;
  while (fd >= 0 && (count = read(fd, &buffer[used], buffer.size() - used)) > 0) {
    used += static_cast<size_t>(count);
  }
  close(fd);
  buffer.resize(used);
}

std::vector<Range> PrivateRangesIn(const std::string& maps) {
  std::vector<Range> ranges;
  for (const std::string& line : nuv::test::Lines(maps)) {
    unsigned long start = 0;
    unsigned long end = 0;
    char permissions[5] = {};
    if (sscanf(line.c_str(), "%lx-%lx %4s", &start, &end, permissions) == 3 &&
        permissions[3] == 'p') {
      ranges.push_back({static_cast<unsigned>(start), static_cast<unsigned>(end)});
    }
  }
  return ranges;
}

std::vector<Range> RangesOf(const NuvPrivateMapping* mapping) {
  std::vector<Range> ranges;
  for (; mapping != nullptr; mapping = mapping->next) {
    ranges.push_back({mapping->start, mapping->end});
  }
  return ranges;
}

void FreeList(NuvMempool* pool, NuvPrivateMapping* mapping) {
  while (mapping != nullptr) {
    NuvPrivateMapping* next = mapping->next;
    pool->Free(mapping);
    mapping = next;
  }
}

// From "/proc/self/status": kilobytes of memory locked by the process (the emulator's process
// under emulation).
long LockedKilobytes() {
  FILE* status = fopen("/proc/self/status", "r");
  char line[256];
  long locked = -1;
  while (status != nullptr && fgets(line, sizeof line, status) != nullptr) {
    if (strncmp(line, "VmLck:", 6) == 0) {
      locked = strtol(line + 6, nullptr, 10);
    }
  }
  if (status != nullptr) {
    fclose(status);
  }
  return locked;
}

// Whether every page of a mapping made now is in memory before anything touches it.
bool NewMappingIsResidentAtOnce() {
  const auto page = static_cast<size_t>(getpagesize());
  const size_t length = 4 * page;
  void* fresh = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (fresh == MAP_FAILED) {
    return false;
  }
  unsigned char residence[4] = {};
  const bool resident = mincore(fresh, length, residence) == 0 &&
                        (residence[0] & residence[1] & residence[2] & residence[3] & 1) != 0;
  munmap(fresh, length);
  return resident;
}

class BuildMap : public nuv::test::PrivatePoolTest {
 protected:
  void TearDown() override {
    nuv::kernel::FailNextForTesting(nullptr, 0, 0);
    PrivatePoolTest::TearDown();
  }
};

// Each test locks memory in a child process, which prints what the test checks.
class LockPrivateData : public nuv::test::PrivatePoolTest {
 protected:
  struct Run {
    int pid;
    ChildOutcome outcome;
    Fields fields;
  };

  // Runs body(pool) in a child that prints the number of private mappings just before body and
  // the library's blocks in the pool before and after it.
  Run RunInChildCountingBlocks(void (*body)(NuvMempool*)) {
    NuvMempool* pool = Pool();
    nuv::test::ChildProcess child([this, pool, body] {
      // Whatever may map memory comes first: the stream's buffer, the buffer for the maps
      // file and the first reading of it by the library (the sanitizer's allocator maps its
      // regions as it goes).
      printf("blocks_before=%u\n", NuvBlocks());
      std::string maps(kMapsSize, '\0');
      FreeList(pool, buildmap(pool));
      ReadMapsInto(maps);
      body(pool);
      printf("mappings=%zu\nblocks_after=%u\n", PrivateRangesIn(maps).size(), NuvBlocks());
    });
    const int pid = child.Pid();
    ChildOutcome outcome = child.Finish();
    EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.out << outcome.err;
    const Fields fields = nuv::test::FieldsOf(outcome.out);
    return {pid, outcome, fields};
  }

  static int BlocksLeft(const Fields& fields) {
    return std::stoi(FieldOf(fields, "blocks_after")) - std::stoi(FieldOf(fields, "blocks_before"));
  }
};

TEST_F(BuildMap, ListsEveryPrivateMappingInFileOrder) {
  FreeList(Pool(), buildmap(Pool()));  // the first read sets up the stream's buffers
  std::string maps(kMapsSize, '\0');
  NuvPrivateMapping* list = buildmap(Pool());
  ReadMapsInto(maps);
  const std::vector<Range> expected = PrivateRangesIn(maps);
  EXPECT_FALSE(expected.empty());
  EXPECT_EQ(RangesOf(list), expected);
  FreeList(Pool(), list);
}

TEST_F(BuildMap, RecordsAreBlocksOfTheLibraryInThePool) {
  NuvPrivateMapping* list = buildmap(Pool());
  const size_t count = RangesOf(list).size();
  EXPECT_EQ(NuvBlocks(), Start()[2 + 2 * NuvMempool::nuv] + count);
  EXPECT_EQ(NuvBytes(), Start()[3 + 2 * NuvMempool::nuv] +
                            count * nuv::test::BlockPayload(sizeof(NuvPrivateMapping)));
  FreeList(Pool(), list);
  EXPECT_EQ(nuv::test::InUse(Pool()), Start());
}

TEST_F(BuildMap, MapsFileThatCannotBeOpenedGivesNull) {
  nuv::kernel::FailNextForTesting("fopen", EACCES);
  EXPECT_EQ(buildmap(Pool()), nullptr);
  EXPECT_EQ(nuv::test::InUse(Pool()), Start());
}

TEST_F(LockPrivateData, MapThatCannotBeBuiltIsLoggedAndLeavesThePoolAsItWas) {
  const Run run = RunInChildCountingBlocks([](NuvMempool* pool) {
    nuv::kernel::FailNextForTesting("fopen", EACCES);
    NuvOsThread::LockPrivateData(pool);
  });
  EXPECT_EQ(nuv::test::LogRecords(run.outcome.out, kInfo, "NuvOsThread::LockPrivateData", run.pid),
            std::vector<std::string>{"Can't build map for locking private data"});
  EXPECT_EQ(BlocksLeft(run.fields), 0);
}

TEST_F(LockPrivateData, LockedMappingsListIsGivenBackToThePool) {
  const Run run =
      RunInChildCountingBlocks([](NuvMempool* pool) { NuvOsThread::LockPrivateData(pool); });
  EXPECT_GT(std::stoi(FieldOf(run.fields, "mappings")), 0);
  EXPECT_EQ(BlocksLeft(run.fields), 0);
  EXPECT_EQ(run.outcome.out.find("Can't build map"), std::string::npos);
}

TEST_F(LockPrivateData, RefusedLockLeavesTheListInThePool) {
  const Run run = RunInChildCountingBlocks([](NuvMempool* pool) {
    nuv::kernel::FailNextForTesting("mlockall", EPERM);
    NuvOsThread::LockPrivateData(pool);
  });
  EXPECT_EQ(BlocksLeft(run.fields), std::stoi(FieldOf(run.fields, "mappings")));
}

TEST_F(LockPrivateData, RefusedFallbackLeavesTheListInThePool) {
  const Run run = RunInChildCountingBlocks([](NuvMempool* pool) {
    nuv::kernel::FailNextForTesting("mlockall", EINVAL, 2);
    NuvOsThread::LockPrivateData(pool);
  });
  EXPECT_EQ(BlocksLeft(run.fields), std::stoi(FieldOf(run.fields, "mappings")));
}

// The kernel's refusal of the device's flag word is made by the seam, so that the fallback is
// taken whatever kernel runs the test.
TEST_F(LockPrivateData, KernelRefusingTheDeviceFlagGetsCurrentAndFutureMappingsLocked) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "AddressSanitizer replaces mlockall and mlock with calls that lock nothing";
#endif
  const Run run = RunInChildCountingBlocks([](NuvMempool* pool) {
    printf("resident_before=%d\n", NewMappingIsResidentAtOnce() ? 1 : 0);
    nuv::kernel::FailNextForTesting("mlockall", EINVAL);
    NuvOsThread::LockPrivateData(pool);
    printf("locked_kb=%ld\nresident_after=%d\n", LockedKilobytes(),
           NewMappingIsResidentAtOnce() ? 1 : 0);
  });
  EXPECT_EQ(BlocksLeft(run.fields), 0);
  EXPECT_GT(std::stol(FieldOf(run.fields, "locked_kb")), 0);
  EXPECT_EQ(FieldOf(run.fields, "resident_before"), "0");
  EXPECT_EQ(FieldOf(run.fields, "resident_after"), "1");
}

}  // namespace
