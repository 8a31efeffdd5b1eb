/// \file Page-fault tracing: reading a process's major page faults, the process table, and the
/// faults that an edge records.
#include <nuv/tracing.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "diag/tracing_fixture.h"
#include "support/child_process.h"
#include "support/fatal_report.h"

namespace {

using nuv::test::Id;

constexpr int kStart = Id("STRT");
constexpr int kDone = Id("DONE");
// Above the largest pid_max a kernel allows (2^22).
constexpr int kNoSuchProcess = 0x7fffffff;
constexpr int kMinorFaultsField = 10;
constexpr int kMajorFaultsField = 12;

// Field number field (counted from 1) of "/proc/<pid>/stat", read after the command name, which
// may hold blanks.
unsigned long StatField(int pid, int field) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  std::istringstream rest(text.substr(text.rfind(')') + 1));
  std::string value;
  for (int at = 3; at <= field; ++at) {
    rest >> value;
  }
  return std::stoul(value);
}

// A process that has run has taken minor faults. User-mode emulation answers a process's reads
// of its own stat file itself, with every count 0, so there the process cannot see its faults.
bool OwnFaultCountsHidden() { return StatField(getpid(), kMinorFaultsField) == 0; }

// A file of fresh pages, written, synced and dropped from the page cache before it is mapped:
// reading its pages has to fetch them from the disk, which the kernel counts as major faults.
class DroppedFile {
 public:
  static constexpr int kPages = 32;

  explicit DroppedFile(const std::string& name)
      : pathM(std::string("/var/tmp/") + getenv("NUV_POOL_PREFIX") + name),
        sizeM(static_cast<size_t>(kPages) * static_cast<size_t>(getpagesize())),
        fdM(open(pathM.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600)) {
    const std::vector<char> data(sizeM, 'p');
    EXPECT_EQ(write(fdM, data.data(), sizeM), static_cast<ssize_t>(sizeM));
    EXPECT_EQ(fsync(fdM), 0);
    EXPECT_EQ(posix_fadvise(fdM, 0, 0, POSIX_FADV_DONTNEED), 0);
    void* mapping = mmap(nullptr, sizeM, PROT_READ, MAP_SHARED, fdM, 0);
    EXPECT_NE(mapping, MAP_FAILED);
    mappingM = mapping != MAP_FAILED ? mapping : nullptr;
  }
  ~DroppedFile() {
    if (mappingM != nullptr) {
      munmap(mappingM, sizeM);
    }
    close(fdM);
    unlink(pathM.c_str());
  }
  DroppedFile(const DroppedFile&) = delete;
  DroppedFile& operator=(const DroppedFile&) = delete;
  DroppedFile(DroppedFile&&) = delete;
  DroppedFile& operator=(DroppedFile&&) = delete;

  /// Reads one byte of every page; the count of those that hold the written data (0 when the
  /// file could not be mapped).
  int ReadEveryPage() const {
    int written = 0;
    for (size_t at = 0; mappingM != nullptr && at < sizeM;
         at += static_cast<size_t>(getpagesize())) {
      written += static_cast<const volatile char*>(mappingM)[at] == 'p' ? 1 : 0;
    }
    return written;
  }

 private:
  std::string pathM;
  size_t sizeM;
  int fdM;
  void* mappingM = nullptr;
};

class TracingPageFaults : public nuv::test::TracingTest {
 protected:
  // Two passages of the edge (kStart, kDone) around reading a dropped file; the first passage of
  // an edge counts no faults, so the second one's are those the edge holds.
  static const TracingGlobals::TraceEdge* EdgeAroundReadingDroppedFiles(TracingGlobals* tracer) {
    TracingGlobals::TraceStart(true);
    for (int pass = 0; pass < 2; ++pass) {
      const DroppedFile file("dropped" + std::to_string(pass));
      TracingGlobals::CheckPoint(kStart, false);
      EXPECT_EQ(file.ReadEveryPage(), DroppedFile::kPages);
      TracingGlobals::CheckPoint(kDone, false);
    }
    return tracer->FindEdge(kStart, kDone);
  }
};

TEST_F(TracingPageFaults, NPageFaultsOfAProcessThatDoesNotExistStopsAtAssertion337) {
  const nuv::test::FatalReport report =
      nuv::test::RunToFatalReport([] { NPageFaults(kNoSuchProcess); });
  nuv::test::ExpectLibraryAssertion(report, "NPageFaults", 337);
}

TEST_F(TracingPageFaults, NPageFaultsGivesFieldTwelveOfAnotherProcessesStatFile) {
  int ready[2];
  int release[2];
  ASSERT_EQ(pipe(ready), 0);
  ASSERT_EQ(pipe(release), 0);
  nuv::test::ChildProcess child([&ready, &release] {
    char byte = 'r';
    write(ready[1], &byte, 1);
    read(release[0], &byte, 1);
  });
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  EXPECT_EQ(NPageFaults(child.Pid()), StatField(child.Pid(), kMajorFaultsField));
  write(release[1], &byte, 1);
  EXPECT_TRUE(child.Finish().Exited());
  for (const int fd : {ready[0], ready[1], release[0], release[1]}) {
    close(fd);
  }
}

TEST_F(TracingPageFaults, FindOrCreateClaimsOneEntryForEachOfTwentyProcesses) {
  TracingGlobals* tracer = MadeTracer();
  for (int pid = 1; pid <= TracingGlobals::kProcesses; ++pid) {
    TracingGlobals::ProcessFaults* entry = tracer->FindOrCreate(pid);
    ASSERT_EQ(entry, &tracer->ProcessAt(pid - 1));
    EXPECT_EQ(entry->pid, pid);
  }
  EXPECT_EQ(tracer->FindOrCreate(TracingGlobals::kProcesses + 1), nullptr);
  EXPECT_EQ(tracer->FindOrCreate(7), &tracer->ProcessAt(6));
}

TEST_F(TracingPageFaults, SumFaultsAddsTheCountsOfEveryProcess) {
  TracingGlobals* tracer = MadeTracer();
  tracer->FindOrCreate(100)->faults = 3;
  tracer->FindOrCreate(200)->faults = 40;
  tracer->FindOrCreate(300)->faults = 500;
  EXPECT_EQ(tracer->SumFaults(), 543U);
}

// Another process of the group raises its entry at its own checkpoints; here the test does it.
TEST_F(TracingPageFaults, EdgeCountsTheGrowthOfTheGroupsFaultTotalSinceTheLastCheckPoint) {
  constexpr int kOtherProcess = 4242;
  constexpr unsigned kOtherFaults = 5;
  TracingGlobals* tracer = MadeTracer();
  TracingGlobals::SetPageFaults(true);
  TracingGlobals::TraceStart(true);
  TracingGlobals::CheckPoint(kStart, false);
  TracingGlobals::CheckPoint(kDone, false);
  TracingGlobals::CheckPoint(kStart, false);
  tracer->FindOrCreate(kOtherProcess)->faults += kOtherFaults;
  TracingGlobals::CheckPoint(kDone, false);
  const TracingGlobals::TraceEdge* edge = tracer->FindEdge(kStart, kDone);
  ASSERT_NE(edge, nullptr);
  EXPECT_EQ(edge->count, 2);
  EXPECT_GE(edge->faults, kOtherFaults);
  EXPECT_EQ(tracer->ProcessAt(0).pid, getpid());
}

TEST_F(TracingPageFaults, EdgeAroundReadingPagesOfADroppedFileCountsMajorFaults) {
  if (OwnFaultCountsHidden()) {
    GTEST_SKIP() << "under user-mode emulation a process's own /proc/<pid>/stat shows no faults";
  }
  TracingGlobals* tracer = MadeTracer();
  TracingGlobals::SetPageFaults(true);
  const TracingGlobals::TraceEdge* edge = EdgeAroundReadingDroppedFiles(tracer);
  ASSERT_NE(edge, nullptr);
  EXPECT_EQ(edge->count, 2);
  EXPECT_GT(edge->faults, 0U);
}

TEST_F(TracingPageFaults, WithoutThePageFaultFlagAnEdgeCountsNoFaults) {
  TracingGlobals* tracer = MadeTracer();
  const TracingGlobals::TraceEdge* edge = EdgeAroundReadingDroppedFiles(tracer);
  ASSERT_NE(edge, nullptr);
  EXPECT_EQ(edge->count, 2);
  EXPECT_EQ(edge->faults, 0U);
  EXPECT_EQ(tracer->SumFaults(), 0U);
}

}  // namespace
