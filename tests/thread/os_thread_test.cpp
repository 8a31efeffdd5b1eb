/// \file NuvOsThread: the launch, signal dispositions, reaping with a time-out, and the plain
/// process operations.
#include <nuv/os_thread.h>
#include <nuv/status.h>
#include <nuv/thread.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <chrono>
#include <csignal>
#include <string>

#include "core/kernel.h"
#include "support/child_process.h"
#include "support/descriptors.h"
#include "support/fatal_report.h"
#include "support/polling.h"
#include "support/shared_memory.h"
#include "thread/thread_pool.h"

namespace {

using nuv::test::IsOpen;
using nuv::test::RunInChild;
using nuv::test::ThreadPoolTest;

constexpr int64_t kTwoAndAHalfSeconds = 2500000000LL;

int PauseForever(long /*arg*/) {
  for (;;) {
    pause();
  }
}

int ExitAfterAMoment(long /*arg*/) {
  usleep(50000);
  return 3;
}

// How the descriptors of a child looked: bit n set when descriptor n was open.
struct OpenFds {
  volatile unsigned low;
  volatile int thirtyOneOpen;
  volatile int done;
};

int RecordOpenFds(long arg) {
  auto* seen = reinterpret_cast<OpenFds*>(arg);
  unsigned low = 0;
  for (int fd = 0; fd < 32; ++fd) {
    low |= IsOpen(fd) ? 1U << static_cast<unsigned>(fd) : 0U;
  }
  seen->low = low;
  seen->thirtyOneOpen = IsOpen(31) ? 1 : 0;
  seen->done = 1;
  return 0;
}

void KeptHandler(int /*signal*/) {}

class OsThread : public ThreadPoolTest {};

// Descriptor 5 where it is free; the pool file and the test runner may hold low ones.
TEST_F(OsThread, UnsharedLaunchKeepsAPreservedDescriptorAndThirtyOneOpen) {
  nuv::test::SharedObject<OpenFds> seen;
  const int preserved = fcntl(STDERR_FILENO, F_DUPFD, 5);
  const int unpreserved = fcntl(STDERR_FILENO, F_DUPFD, 5);
  ASSERT_LT(unpreserved, 30);
  ASSERT_EQ(dup2(STDERR_FILENO, 31), 31);
  NuvFdSet preserve;
  preserve.Zero();
  preserve.Set(preserved);
  NuvThread* thread = MakeThread(RecordOpenFds, "fds");
  thread->SetPreserveFds(preserve);
  ASSERT_EQ(thread->StartUnshared(reinterpret_cast<long>(&*seen), "fds", 0), 0U);
  const int status = NuvOsThread::Wait(thread->GetId(), nullptr);
  close(preserved);
  close(unpreserved);
  close(31);
  thread->DownRef();
  ASSERT_TRUE(WIFEXITED(status));
  ASSERT_EQ(seen->done, 1);
  EXPECT_NE(seen->low & (1U << static_cast<unsigned>(preserved)), 0U) << std::hex << seen->low;
  EXPECT_EQ(seen->low & (1U << static_cast<unsigned>(unpreserved)), 0U) << std::hex << seen->low;
  EXPECT_EQ(seen->thirtyOneOpen, 1);
  EXPECT_EQ(seen->low & 7U, 7U) << "0, 1 and 2 are not in the set given, but only 3 to 29 close";
}

TEST_F(OsThread, WaitWithoutATimeOutReapsTheChild) {
  const int pid = fork();
  if (pid == 0) {
    _exit(ExitAfterAMoment(0));
  }
  const int status = NuvOsThread::Wait(pid, nullptr);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST_F(OsThread, WaitWithATimeOutBelowOneMillisecondWaitsWithoutLimit) {
  const int pid = fork();
  if (pid == 0) {
    _exit(ExitAfterAMoment(0));
  }
  NuvTime below{999999};
  const int status = NuvOsThread::Wait(pid, &below);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST_F(OsThread, WaitOfTwoAndAHalfSecondsOnAChildThatNeverExitsReturnsMinusTwo) {
  const int pid = fork();
  if (pid == 0) {
    PauseForever(0);
  }
  NuvTime timeout{kTwoAndAHalfSeconds};
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(NuvOsThread::Wait(pid, &timeout), NuvOsThread::kWaitTimedOut);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2500));
  EXPECT_EQ(NuvOsThread::Alive(pid), kNuvOk) << "a time-out leaves the child as it is";
  NuvOsThread::Kill(pid);
  EXPECT_TRUE(WIFSIGNALED(NuvOsThread::Wait(pid, nullptr)));
}

TEST_F(OsThread, WaitForAProcessThatIsNotAChildReturnsMinusOne) {
  EXPECT_EQ(NuvOsThread::Wait(getpid(), nullptr), NuvOsThread::kWaitFailed);
}

TEST_F(OsThread, AliveOfZeroAndMinusThreeIsNoSuchProcessWithoutCallingKill) {
  nuv::kernel::FailNextForTesting("kill", EPERM);
  EXPECT_EQ(NuvOsThread::Alive(0), kNuvNotActive);
  EXPECT_EQ(NuvOsThread::Alive(-3), kNuvNotActive);
  // The failure set up above is still pending: neither call reached kill.
  EXPECT_EQ(NuvOsThread::Alive(getpid()), kNuvNotActive);
  EXPECT_EQ(NuvOsThread::Alive(getpid()), kNuvOk);
}

TEST_F(OsThread, FreezeStopsAndUnFreezeContinuesAndKillEnds) {
  const int pid = fork();
  if (pid == 0) {
    PauseForever(0);
  }
  int status = 0;
  EXPECT_EQ(NuvOsThread::Freeze(pid), 0);
  ASSERT_EQ(waitpid(pid, &status, WUNTRACED), pid);
  EXPECT_TRUE(WIFSTOPPED(status));
  EXPECT_EQ(NuvOsThread::UnFreeze(pid), 0);
  ASSERT_EQ(waitpid(pid, &status, WCONTINUED), pid);
  EXPECT_TRUE(WIFCONTINUED(status));
  EXPECT_EQ(NuvOsThread::Kill(pid), 0);
  status = NuvOsThread::Wait(pid, nullptr);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGKILL);
}

TEST_F(OsThread, ForkFailureGivesProcessFailedAndLeavesNothingOpen) {
  NuvThread* thread = MakeThread(ExitAfterAMoment, "unborn");
  thread->OpenCommandChannel();
  const nuv::test::ChildOutcome outcome = RunInChild([thread] {
    const int before = dup(0);
    close(before);
    nuv::kernel::FailNextForTesting("fork", EAGAIN);
    int pid = 0;
    const int result =
        NuvOsThread::Launch(ExitAfterAMoment, 0, true, false, "unborn", thread, nullptr, pid);
    const int after = dup(0);
    close(after);
    printf("%x %d\n", result, after - before);
  });
  EXPECT_EQ(outcome.out, "50008 0\n");
  EXPECT_EQ(outcome.err.rfind("fork: ", 0), 0U) << outcome.err;
  thread->DownRef();
}

TEST_F(OsThread, LaunchStoresTheChildsIdInBothProcesses) {
  nuv::test::SharedObject<OpenFds> seen;
  int pid = 0;
  ASSERT_EQ(NuvOsThread::Launch(RecordOpenFds, reinterpret_cast<long>(&*seen), true, false,
                                "launched", nullptr, nullptr, pid),
            0);
  ASSERT_GT(pid, 0);
  const int status = NuvOsThread::Wait(pid, nullptr);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(seen->done, 1);
}

TEST_F(OsThread, ThreadProcessesIgnoreTheWakeUpSignalsAndRouteTheRestToTheFatalHandler) {
  const nuv::test::ChildOutcome outcome = RunInChild([] {
    for (const int kept : {SIGINT, SIGTERM, SIGCHLD, SIGABRT}) {
      signal(kept, KeptHandler);
    }
    NuvOsThread::SetupInterrupts();
    std::string dispositions;
    for (int signal = 1; signal <= 31; ++signal) {
      struct sigaction action {};
      sigaction(signal, nullptr, &action);
      const bool fatal = (action.sa_flags & (SA_SIGINFO | SA_NODEFER)) == (SA_SIGINFO | SA_NODEFER);
      dispositions += action.sa_handler == SIG_IGN       ? 'i'
                      : action.sa_handler == KeptHandler ? 'k'
                      : fatal                            ? 'f'
                                                         : 'd';
    }
    printf("%s\n", dispositions.c_str());
  });
  // 1 HUP .. 31 SYS; k: kept as it was, d: default (uncatchable), i: ignored, f: fatal handler.
  std::string expected;
  for (int signal = 1; signal <= 31; ++signal) {
    if (signal == SIGINT || signal == SIGTERM || signal == SIGCHLD || signal == SIGABRT) {
      expected += 'k';
    } else if (signal == SIGKILL || signal == SIGSTOP) {
      expected += 'd';
    } else if (signal == SIGUSR1 || signal == SIGALRM || signal == SIGWINCH || signal == SIGIO ||
               signal == SIGURG) {
      expected += 'i';
    } else {
      expected += 'f';
    }
  }
  EXPECT_EQ(outcome.out, expected + "\n");
}

TEST_F(OsThread, ParentSetupIgnoresTheWakeUpSignalsAndChildExits) {
  const nuv::test::ChildOutcome outcome = RunInChild([] {
    NuvOsThread::ParentSetup();
    for (const int signal : {SIGUSR1, SIGALRM, SIGCHLD, SIGWINCH, SIGHUP}) {
      struct sigaction action {};
      sigaction(signal, nullptr, &action);
      printf("%c", action.sa_handler == SIG_IGN ? 'i' : 'd');
    }
  });
  EXPECT_EQ(outcome.out, "iiiid");
}

int RaiseBrokenPipe(long /*arg*/) {
  raise(SIGPIPE);
  return 0;
}

TEST_F(OsThread, BrokenPipeInAThreadProcessEndsInTheFatalPath) {
  const nuv::test::ChildOutcome outcome = RunInChild([this] {
    pCurrentThreadG = nullptr;
    NuvThread* thread = MakeThread(RaiseBrokenPipe, "piper");
    thread->Start(0);
    const int status = NuvOsThread::Wait(thread->GetId(), nullptr);
    printf("ended: %d %d\n", WIFSIGNALED(status) ? WTERMSIG(status) : -1, thread->GetId());
  });
  int signal = 0;
  int pid = 0;
  const size_t ended = outcome.out.find("ended: ");
  ASSERT_NE(ended, std::string::npos) << outcome.out;
  ASSERT_EQ(sscanf(outcome.out.c_str() + ended, "ended: %d %d", &signal, &pid), 2) << outcome.out;
  EXPECT_EQ(signal, SIGPIPE);
  const std::string report =
      "Nuv Fatal Error: Thread piper <" + std::to_string(pid) + "> died due to signal 13\n";
  EXPECT_NE(outcome.err.find(report), std::string::npos) << outcome.err;
}

TEST_F(OsThread, ThreadStartingReportsPseudoSignalMinusOne) {
  const nuv::test::FatalReport report = nuv::test::RunToFatalReport([] {
    pCurrentThreadG = nullptr;
    ThreadStarting();
  });
  ASSERT_FALSE(report.records.empty()) << report.outcome.out;
  EXPECT_EQ(report.records[0], "Nuv Fatal Error: Thread " + std::to_string(report.pid) + " <" +
                                   std::to_string(report.pid) + "> died due to signal -1");
}

void ReapAndReport(int exitCode, int signal, int report = 1) {
  reportThread = report;
  const int pid = fork();
  if (pid == 0) {
    if (signal != 0) {
      raise(signal);
    }
    _exit(exitCode);
  }
  // The child has ended once it can be waited for without taking it.
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
  _threadevent_(SIGCHLD);
  printf("%d", pid);
}

TEST_F(OsThread, ThreadEventReportsAChildThatExitedWithANonZeroCode) {
  const auto outcome = RunInChild([] { ReapAndReport(3, 0); });
  EXPECT_EQ(outcome.err, "thread " + outcome.out + " died with status (normal 3)\n");
}

TEST_F(OsThread, ThreadEventReportsAChildEndedByASignal) {
  const auto outcome = RunInChild([] { ReapAndReport(0, SIGKILL); });
  EXPECT_EQ(outcome.err, "thread " + outcome.out + " died with status (signal 9)\n");
}

TEST_F(OsThread, ThreadEventSaysNothingOfAChildThatExitedWithZero) {
  const auto outcome = RunInChild([] { ReapAndReport(0, 0); });
  EXPECT_EQ(outcome.err, "");
}

TEST_F(OsThread, ThreadEventSaysNothingWhileReportingIsOff) {
  const auto outcome = RunInChild([] { ReapAndReport(4, 0, 0); });
  EXPECT_EQ(outcome.err.find("normal 4"), std::string::npos) << outcome.err;
}

}  // namespace
