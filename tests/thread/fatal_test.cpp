/// \file The fatal path: report, register dump, backtrace, recursion guard and restart policy.
#include <nuv/assert.h>
#include <nuv/fatal.h>
#include <nuv/logger.h>
#include <nuv/mempool.h>
#include <nuv/status.h>
#include <nuv/thread.h>

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/time.h>
#include <unistd.h>
#include <csignal>
#include <cstdlib>
#include <regex>

#include "support/fatal_report.h"
#include "support/pool_prefix.h"
#include "support/shared_memory.h"
#include "thread/restart.h"

namespace {

using nuv::test::FatalReport;
using nuv::test::RouteSignalToFatalHandler;
using nuv::test::RunToFatalReport;

std::string FatalLine(const std::string& name, int pid, int signal) {
  return "Nuv Fatal Error: Thread " + name + " <" + std::to_string(pid) + "> died due to signal " +
         std::to_string(signal);
}

bool IsBacktraceText(const std::string& text) {
  return std::regex_match(text, std::regex("([0-9a-f]+ )+"));
}

// The printed walk ends without a line end, so whatever the process writes next (an emulator's
// note of the signal, say) may follow on the same line.
bool StartsWithBacktraceText(const std::string& line) {
  return std::regex_search(line, std::regex("^([0-9a-f]+ )+"));
}

// Writes through a pointer the compiler cannot see, so the fault is a real one.
__attribute__((noipa)) void WriteToUnmappedPage(volatile int* where) { *where = 1; }

__attribute__((noinline)) void RecurseThenAssert(int depth) {
  if (depth == 0) {
    NuvAssertFail("deep", "fatal_test.cpp", 1, "RecurseThenAssert");
  } else {
    RecurseThenAssert(depth - 1);
  }
  __asm__ __volatile__("" : : : "memory");  // keeps the call from becoming a jump
}

void ExpectClosingRecords(const FatalReport& report, size_t at, int signal) {
  ASSERT_GE(report.records.size(), at + 2);
  EXPECT_EQ(report.records[at],
            "Nuv Fatal Error: Thread died due to signal " + std::to_string(signal));
  EXPECT_EQ(report.records[at + 1], "Invoking rule 834: rebooting system");
}

TEST(FatalPath, NullContextGivesNoRegisterLinesButLogsTheBacktrace) {
  const FatalReport report = RunToFatalReport([] { _stray_(0, nullptr); });
  const std::string name = std::to_string(report.pid);
  ASSERT_EQ(report.records.size(), 4U) << report.outcome.out;
  EXPECT_EQ(report.records[0], FatalLine(name, report.pid, 0));
  EXPECT_EQ(report.records[1].rfind("Nuv Thread Backtrace: ", 0), 0U);
  EXPECT_TRUE(IsBacktraceText(report.records[1].substr(22))) << report.records[1];
  ExpectClosingRecords(report, 2, 0);
  ASSERT_GE(report.errLines.size(), 2U);
  EXPECT_EQ(report.errLines[0], FatalLine(name, report.pid, 0));
  EXPECT_TRUE(StartsWithBacktraceText(report.errLines[1])) << report.errLines[1];
  EXPECT_EQ(report.outcome.err.find("NIP"), std::string::npos);
}

TEST(FatalPath, PseudoSignalEndsTheProcessWithAnAbnormalExit) {
  const FatalReport report = RunToFatalReport([] { _stray_(-1, nullptr); });
  ASSERT_TRUE(report.outcome.Exited());
  EXPECT_EQ(report.outcome.ExitCode(), EXIT_FAILURE);
}

TEST(FatalPath, SegmentationFaultDumpsRegistersAndBacktrace) {
  const FatalReport report = RunToFatalReport([] {
    RouteSignalToFatalHandler(SIGSEGV);
    WriteToUnmappedPage(reinterpret_cast<volatile int*>(16));
  });
  ASSERT_TRUE(report.outcome.Signalled()) << report.outcome.err;
  EXPECT_EQ(report.outcome.Signal(), SIGSEGV);
  ASSERT_EQ(report.records.size(), 13U) << report.outcome.out;
  EXPECT_EQ(report.records[0], FatalLine(std::to_string(report.pid), report.pid, SIGSEGV));
  const std::regex nip("NIP (0x)?[0-9a-f]+ link (0x)?[0-9a-f]+ ctr -?[0-9]+");
  EXPECT_TRUE(std::regex_match(report.records[1], nip)) << report.records[1];
  for (int line = 0; line < 8; ++line) {
    std::string expected;
    for (int column = 0; column < 4; ++column) {
      char number[3];
      snprintf(number, sizeof number, "%02d", line * 4 + column);
      expected += std::string("R") + number + " 0x[0-9a-f]{8}  ";
    }
    EXPECT_TRUE(std::regex_match(report.records[2 + line], std::regex(expected)))
        << report.records[2 + line];
    EXPECT_EQ(report.errLines[2 + line], report.records[2 + line]);
  }
  EXPECT_TRUE(std::regex_match(report.errLines[1], nip)) << report.errLines[1];
  EXPECT_TRUE(IsBacktraceText(report.records[10].substr(22))) << report.records[10];
  EXPECT_TRUE(StartsWithBacktraceText(report.errLines[10])) << report.errLines[10];
  ExpectClosingRecords(report, 11, SIGSEGV);
}

TEST(FatalPath, SignalDuringTheReportsWaitLogsTheRecursiveRecord) {
  const FatalReport report = RunToFatalReport([] {
    nuv::SetRestartDelayForTesting(600);
    RouteSignalToFatalHandler(SIGALRM);
    const itimerval soon{{0, 0}, {0, 100000}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    _stray_(0, nullptr);
  });
  ASSERT_TRUE(report.outcome.Signalled()) << report.outcome.out;
  EXPECT_EQ(report.outcome.Signal(), SIGALRM);
  ASSERT_EQ(report.records.size(), 7U) << report.outcome.out;
  EXPECT_EQ(report.records[0], FatalLine(std::to_string(report.pid), report.pid, 0));
  ExpectClosingRecords(report, 2, 0);
  EXPECT_EQ(report.records[4], "Nuv recursive _stray_ call, signal 14");
  ExpectClosingRecords(report, 5, SIGALRM);
}

TEST(FatalPath, ReportNamesTheCurrentThread) {
  const FatalReport report = RunToFatalReport(
      [] {
        NuvMempool* pool = nullptr;
        NuvMempool::Allocate("fatal", 64 * 1024, false, nullptr, false, pool);
        pCurrentThreadG = new (pool) NuvThread("worker");
        pCurrentThreadG->abort();
      },
      "worker");
  ASSERT_FALSE(report.records.empty()) << report.outcome.out;
  EXPECT_EQ(report.records[0], FatalLine("worker", report.pid, 0));
  EXPECT_EQ(report.errLines[0], FatalLine("worker", report.pid, 0));
}

TEST(FatalPath, BacktraceLongerThan500CharactersIsCutWithAnOverflowNote) {
  const FatalReport report = RunToFatalReport([] { RecurseThenAssert(200); });
  ASSERT_GE(report.errLines.size(), 4U) << report.outcome.err;
  const std::string& printed = report.errLines[3];
  const std::string note = "bt overflow.";
  ASSERT_GT(printed.size(), note.size());
  ASSERT_EQ(printed.substr(printed.size() - note.size()), note) << printed;
  const std::string text = printed.substr(0, printed.size() - note.size());
  EXPECT_TRUE(IsBacktraceText(text)) << text;
  EXPECT_GT(text.size(), 500U);
  EXPECT_LE(text.size(), 509U);
  // The logged record carries the same text, as far as the logger's line holds it.
  ASSERT_GE(report.records.size(), 2U) << report.outcome.out;
  const std::string logged = report.records[1].substr(22);
  EXPECT_EQ(text.rfind(logged, 0), 0U) << logged;
}

TEST(FatalPath, SignalWhoseDefaultOnlyStopsEndsWithAnAbnormalExit) {
  const FatalReport report = RunToFatalReport([] {
    RouteSignalToFatalHandler(SIGTSTP);
    raise(SIGTSTP);
  });
  ASSERT_TRUE(report.outcome.Exited());
  EXPECT_EQ(report.outcome.ExitCode(), EXIT_FAILURE);
  EXPECT_EQ(report.records[0], FatalLine(std::to_string(report.pid), report.pid, SIGTSTP));
}

struct Victim {
  NuvThread* thread;
};

TEST(FatalPath, KillthreadMakesTheTargetThreadReportSignalThree) {
  const nuv::test::ScopedPoolPrefix prefix;
  NuvMempool* pool = nullptr;
  ASSERT_EQ(NuvMempool::Allocate("victim", 64 * 1024, true, nullptr, true, pool), kNuvOk);
  nuv::test::SharedObject<Victim> victim;
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  nuv::test::ChildProcess child([&victim, &ready, pool] {
    NuvLogger::LogTty(true);
    pCurrentThreadG = new (pool) NuvThread("victim");
    victim->thread = pCurrentThreadG;
    RouteSignalToFatalHandler(SIGQUIT);
    write(ready[1], "r", 1);
    for (;;) {
      pause();
    }
  });
  pollfd waitReady{ready[0], POLLIN, 0};
  ASSERT_EQ(poll(&waitReady, 1, 5000), 1) << "victim never got ready";
  _killthread_(victim->thread);
  const auto outcome = child.Finish();
  const int victimPid = victim->thread->GetId();
  delete pool;
  close(ready[0]);
  close(ready[1]);
  ASSERT_TRUE(outcome.Signalled());
  EXPECT_EQ(outcome.Signal(), SIGQUIT);
  EXPECT_EQ(outcome.err.rfind(FatalLine("victim", victimPid, SIGQUIT) + "\n", 0), 0U)
      << outcome.err;
}

}  // namespace
