/// \file NuvFdSet::Select: the three sets, time-outs, readiness, and each way select can fail.
#include <nuv/fd_set.h>
#include <nuv/logger.h>
#include <nuv/status.h>
#include <nuv/time.h>

#include <gtest/gtest.h>

#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

#include "core/kernel.h"
#include "support/child_process.h"
#include "support/durations.h"
#include "support/fatal_report.h"
#include "support/log_lines.h"
#include "support/polling.h"
#include "support/process_state.h"

namespace {

using nuv::test::ChildOutcome;
using nuv::test::ChildProcess;
using nuv::test::Milliseconds;
using Clock = std::chrono::steady_clock;

// Priority values of Select's records: facility "facnuv" (local0), "prierr" and "pridebug".
constexpr int kErrRecordValue = 131;
constexpr int kDebugRecordValue = 135;
constexpr const char* kTag = "NuvFdSet::Select";

// Two connected pairs of local stream sockets: a.first and b.first are the test's ends.
class Select : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, aM), 0);
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, bM), 0);
  }
  void TearDown() override {
    nuv::kernel::FailNextForTesting(nullptr, 0);
    for (const int fd : {aM[0], aM[1], bM[0], bM[1]}) {
      close(fd);
    }
  }
  int A() const { return aM[0]; }
  int B() const { return bM[0]; }
  // Makes A readable: its peer writes a byte.
  void MakeAReadable() const {
    const char byte = 'r';
    ASSERT_EQ(write(aM[1], &byte, 1), 1);
  }
  // Fills B's way out until another byte would not fit: B is no longer writable.
  void FillB() const {
    std::vector<char> block(4096, 'f');
    while (send(bM[0], block.data(), block.size(), MSG_DONTWAIT) > 0) {
    }
  }

 private:
  int aM[2] = {-1, -1};
  int bM[2] = {-1, -1};
};

NuvFdSet SetOf(std::initializer_list<int> fds) {
  NuvFdSet set;
  for (const int fd : fds) {
    set.Set(fd);
  }
  return set;
}

TEST_F(Select, DescriptorSetIsTheCLibrarysSet) {
  const NuvFdSet ours = SetOf({0, 5, 31, 32, 63, 700, 1023});
  fd_set theirs;
  FD_ZERO(&theirs);
  for (const int fd : {0, 5, 31, 32, 63, 700, 1023}) {
    FD_SET(fd, &theirs);
  }
  std::vector<unsigned> words(NuvFdSet::kWords);
  for (int i = 0; i < NuvFdSet::kWords; ++i) {
    words[i] = ours.Word(i);
  }
  EXPECT_EQ(memcmp(words.data(), &theirs, sizeof theirs), 0);
}

TEST_F(Select, ThreeSetsKeepOnlyTheirReadyDescriptors) {
  ASSERT_NO_FATAL_FAILURE(MakeAReadable());
  ASSERT_NO_FATAL_FAILURE(FillB());
  NuvFdSet readable = SetOf({A(), B()});
  NuvFdSet writable = SetOf({A(), B()});
  NuvFdSet exceptional = SetOf({A(), B()});
  const int readMax = readable.GetFdMax();
  NuvTime noWait(0);
  EXPECT_EQ(NuvFdSet::Select(&readable, &writable, &exceptional, &noWait), 2);
  EXPECT_TRUE(readable.FIsSet(A()));
  EXPECT_FALSE(readable.FIsSet(B()));
  EXPECT_TRUE(writable.FIsSet(A()));
  EXPECT_FALSE(writable.FIsSet(B()));
  EXPECT_FALSE(exceptional.FIsSet(A()));
  EXPECT_FALSE(exceptional.FIsSet(B()));
  EXPECT_EQ(readable.GetFdMax(), readMax);
  EXPECT_EQ(exceptional.GetFdMax(), readMax);
}

TEST_F(Select, ZeroTimeOutReturnsAtOnceWithNothingReady) {
  NuvFdSet readable = SetOf({A(), B()});
  NuvTime noWait(0);
  EXPECT_EQ(NuvFdSet::Select(&readable, nullptr, nullptr, &noWait), 0);
  EXPECT_FALSE(readable.FIsSet(A()));
  EXPECT_FALSE(readable.FIsSet(B()));
}

TEST_F(Select, TimeOutEndsTheWaitWhenNothingComes) {
  NuvFdSet readable = SetOf({A()});
  NuvTime limit = Milliseconds(50);
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(NuvFdSet::Select(&readable, nullptr, nullptr, &limit), 0);
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(50));
  EXPECT_FALSE(readable.FIsSet(A()));
}

TEST_F(Select, TimeOutBeyondThirtyTwoBitsOfMicrosecondsWraps) {
  // 2^32 microseconds and 20 milliseconds: only the 20 milliseconds count.
  NuvTime limit((static_cast<int64_t>(1) << 32) * 1000 + Milliseconds(20).Nanoseconds());
  NuvFdSet readable = SetOf({A()});
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(NuvFdSet::Select(&readable, nullptr, nullptr, &limit), 0);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
}

TEST_F(Select, NullTimeOutWaitsUntilADescriptorIsReady) {
  NuvFdSet readable = SetOf({A()});
  ChildProcess writer([this] {
    const timespec pause{0, 20000000};
    nanosleep(&pause, nullptr);
    MakeAReadable();
    _exit(0);
  });
  EXPECT_EQ(NuvFdSet::Select(&readable, nullptr, nullptr, nullptr), 1);
  EXPECT_TRUE(readable.FIsSet(A()));
  EXPECT_EQ(writer.Finish().ExitCode(), 0);
}

TEST_F(Select, NullSetsAreLeftOut) {
  NuvFdSet writable = SetOf({B()});
  NuvTime noWait(0);
  EXPECT_EQ(NuvFdSet::Select(nullptr, &writable, nullptr, &noWait), 1);
  EXPECT_TRUE(writable.FIsSet(B()));
  EXPECT_EQ(NuvFdSet::Select(nullptr, nullptr, nullptr, &noWait), 0);
}

TEST_F(Select, EmptySetsSelectNothing) {
  NuvFdSet readable;
  NuvTime noWait(0);
  EXPECT_EQ(NuvFdSet::Select(&readable, nullptr, nullptr, &noWait), 0);
}

TEST_F(Select, ErrnoIsClearedFirst) {
  NuvFdSet readable = SetOf({A()});
  NuvTime noWait(0);
  errno = EIO;
  NuvFdSet::Select(&readable, nullptr, nullptr, &noWait);
  EXPECT_EQ(errno, 0);
}

// A Select run in a child with every record on its standard output, debug ones included.
struct ChildSelect {
  ChildOutcome outcome;

  std::vector<std::string> Records(int value) const {
    return nuv::test::LogRecords(outcome.out, value, kTag, outcome.pid);
  }
};

ChildSelect SelectInChild(const std::function<void()>& body) {
  return {nuv::test::RunInChild([&body] {
    NuvLogger::LogTty(true);
    NuvLogger::MinLog(NuvLogger::pridebug);
    body();
  })};
}

TEST_F(Select, NoMemoryIsLoggedAndTriedAgain) {
  ASSERT_NO_FATAL_FAILURE(MakeAReadable());
  const ChildSelect run = SelectInChild([this] {
    nuv::kernel::FailNextForTesting("select", ENOMEM, 2);
    NuvFdSet readable = SetOf({A()});
    NuvTime noWait(0);
    const int ready = NuvFdSet::Select(&readable, nullptr, nullptr, &noWait);
    _exit(ready == 1 && readable.FIsSet(A()) ? 0 : 1);
  });
  EXPECT_TRUE(run.outcome.Exited() && run.outcome.ExitCode() == 0) << run.outcome.out;
  const std::string retry = "Select() returned ENOMEM -- sleeping and trying again!";
  EXPECT_EQ(run.Records(kErrRecordValue), (std::vector<std::string>{retry, retry}));
}

TEST_F(Select, FifthNoMemoryStopsAtAssertion743) {
  const nuv::test::FatalReport report = nuv::test::RunToFatalReport([this] {
    nuv::kernel::FailNextForTesting("select", ENOMEM, 5);
    NuvFdSet readable = SetOf({A()});
    NuvTime noWait(0);
    NuvFdSet::Select(&readable, nullptr, nullptr, &noWait);
  });
  nuv::test::ExpectLibraryAssertion(report, "Select", 743);
  const std::vector<std::string> records =
      nuv::test::LogRecords(report.outcome.out, kErrRecordValue, kTag, report.pid);
  const std::string retry = "Select() returned ENOMEM -- sleeping and trying again!";
  const std::vector<std::string> expected = {
      retry,
      retry,
      retry,
      retry,
      retry,
      "select() call failed with errno 12, fdMax " + std::to_string(A() + 1),
      "readFds->fdMaxM " + std::to_string(A() + 1)};
  EXPECT_EQ(records, expected) << report.outcome.out;
}

TEST_F(Select, MissingSystemCallClearsEveryGivenSet) {
  ASSERT_NO_FATAL_FAILURE(MakeAReadable());
  const ChildSelect run = SelectInChild([this] {
    nuv::kernel::FailNextForTesting("select", ENOSYS);
    NuvFdSet readable = SetOf({A(), B()});
    NuvFdSet writable = SetOf({B()});
    NuvTime noWait(0);
    const int result = NuvFdSet::Select(&readable, &writable, nullptr, &noWait);
    const bool cleared = !readable.FIsSet(A()) && !readable.FIsSet(B()) && !writable.FIsSet(B());
    const bool maxKept = readable.GetFdMax() == std::max(A(), B()) + 1;
    _exit(result == -1 && cleared && maxKept ? 0 : 1);
  });
  EXPECT_TRUE(run.outcome.Exited() && run.outcome.ExitCode() == 0) << run.outcome.out;
  EXPECT_NE(run.outcome.out.find("select() call failed with ENOSYS ... not pausing\n\n"),
            std::string::npos)
      << run.outcome.out;
  EXPECT_EQ(run.Records(kDebugRecordValue),
            std::vector<std::string>{"select() call failed with ENOSYS ... not pausing"});
}

TEST_F(Select, FailureLogsEveryGivenSetAndStopsAtAssertion743) {
  // A closed descriptor that select looks at: the kernel ignores numbers past its table, which
  // the child first stretches that far.
  const int closed = 1000;
  const nuv::test::FatalReport report = nuv::test::RunToFatalReport([=] {
    dup2(B(), closed);
    close(closed);
    NuvFdSet readable = SetOf({closed});
    NuvFdSet exceptional = SetOf({B()});
    NuvTime noWait(0);
    NuvFdSet::Select(&readable, nullptr, &exceptional, &noWait);
  });
  nuv::test::ExpectLibraryAssertion(report, "Select", 743);
  const int nfds = std::max(closed, B()) + 1;
  // Each text ends in a line feed of its own, before the one that ends the record.
  const std::vector<std::string> expected = {"select() call failed with errno " +
                                                 std::to_string(EBADF) + ", fdMax " +
                                                 std::to_string(nfds),
                                             "readFds->fdMaxM " + std::to_string(closed + 1),
                                             "exceptFds->fdMaxM " + std::to_string(B() + 1)};
  EXPECT_EQ(nuv::test::LogRecords(report.outcome.out, kErrRecordValue, kTag, report.pid), expected)
      << report.outcome.out;
  EXPECT_NE(report.outcome.out.find(expected.back() + "\n\n"), std::string::npos);
}

TEST_F(Select, NegativeTimeOutIsRefusedAndStopsAtAssertion743) {
  const nuv::test::FatalReport report = nuv::test::RunToFatalReport([this] {
    NuvFdSet readable = SetOf({A()});
    NuvTime backwards = Milliseconds(-5);
    NuvFdSet::Select(&readable, nullptr, nullptr, &backwards);
  });
  nuv::test::ExpectLibraryAssertion(report, "Select", 743);
}

volatile sig_atomic_t interrupted = 0;
void NoteInterruption(int /*signal*/) { interrupted = 1; }

// A handled signal cuts select short with EINTR, which is not tried again: it ends as any
// other failure does.
TEST_F(Select, InterruptingSignalStopsAtAssertion743) {
  ChildProcess child([this] {
    NuvLogger::LogTty(true);
    struct sigaction noting {};
    noting.sa_handler = NoteInterruption;
    sigemptyset(&noting.sa_mask);
    sigaction(SIGUSR2, &noting, nullptr);
    NuvFdSet readable = SetOf({A()});
    NuvFdSet::Select(&readable, nullptr, nullptr, nullptr);
  });
  const int pid = child.Pid();
  ASSERT_TRUE(nuv::test::WaitUntil([pid] { return nuv::test::ProcessState(pid) == 'S'; }));
  kill(pid, SIGUSR2);
  const nuv::test::FatalReport report = nuv::test::ReadFatalReport(child.Finish());
  nuv::test::ExpectLibraryAssertion(report, "Select", 743);
  const std::vector<std::string> records =
      nuv::test::LogRecords(report.outcome.out, kErrRecordValue, kTag, pid);
  ASSERT_FALSE(records.empty());
  EXPECT_EQ(records[0].rfind("select() call failed with errno " + std::to_string(EINTR), 0), 0U);
}

}  // namespace
