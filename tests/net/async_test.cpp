/// \file Asynchronous notification: the registered handler runs when a record arrives from
/// another process, the null handler switches it off, and every refused step stops at its
/// assertion.
#include <nuv/socket.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "core/kernel.h"
#include "net/socket_fixture.h"
#include "support/child_process.h"
#include "support/fatal_report.h"
#include "support/polling.h"

namespace {

using nuv::test::ChildOutcome;
using nuv::test::SocketTest;
using nuv::test::WaitUntil;

constexpr int kOk = static_cast<int>(kNuvOk);
// Long enough to show that a signal did not come: it comes within microseconds when it does.
constexpr std::chrono::milliseconds kQuietPeriod{100};

volatile sig_atomic_t firstRuns = 0;
volatile sig_atomic_t secondRuns = 0;
void FirstHandler(int /*signal*/) { firstRuns = firstRuns + 1; }
void SecondHandler(int /*signal*/) { secondRuns = secondRuns + 1; }

void (*CurrentHandler(int signal))(int) {
  struct sigaction current {};
  sigaction(signal, nullptr, &current);
  return current.sa_handler;
}

bool AsyncFlagSet(int fd) { return (fcntl(fd, F_GETFL) & O_ASYNC) != 0; }

class AsyncHandler : public SocketTest {
 protected:
  void SetUp() override {
    SocketTest::SetUp();
    firstRuns = 0;
    secondRuns = 0;
    ASSERT_NO_FATAL_FAILURE(Connect());
  }
  void TearDown() override {
    nuv::kernel::FailNextForTesting(nullptr, 0);
    // Closing the sockets signals once more: ignored, until they are gone.
    signal(SIGIO, SIG_IGN);
    signal(SIGURG, SIG_IGN);
    NuvSocket::UnblockAsyncHandler();
    SocketTest::TearDown();
    signal(SIGIO, SIG_DFL);
    signal(SIGURG, SIG_DFL);
  }

  // A record sent to the accepted end by another process.
  void RecordFromAnotherProcess() {
    const ChildOutcome sender = nuv::test::RunInChild([this] {
      const unsigned value = 5;
      _exit(Client()->Send(&value, sizeof value));
    });
    ASSERT_TRUE(sender.Exited() && sender.ExitCode() == kOk) << sender.status;
  }
};

TEST_F(AsyncHandler, HandlerRunsWhenARecordArrivesFromAnotherProcess) {
  ASSERT_EQ(Accepted()->RegisterAsyncHandler(FirstHandler), 0);
  ASSERT_NO_FATAL_FAILURE(RecordFromAnotherProcess());
  EXPECT_TRUE(WaitUntil([] { return firstRuns > 0; }));
  unsigned got = 0;
  EXPECT_EQ(Accepted()->Receive(&got, sizeof got), kOk);
  EXPECT_EQ(got, 5U);
}

TEST_F(AsyncHandler, RegistrationSignalsTheCurrentThreadsProcess) {
  ASSERT_EQ(Accepted()->RegisterAsyncHandler(FirstHandler), 0);
  EXPECT_TRUE(AsyncFlagSet(Accepted()->GetFd()));
  EXPECT_EQ(fcntl(Accepted()->GetFd(), F_GETOWN), getpid());
  EXPECT_EQ(CurrentHandler(SIGIO), FirstHandler);
  EXPECT_EQ(CurrentHandler(SIGURG), FirstHandler);
  struct sigaction io {};
  sigaction(SIGIO, nullptr, &io);
  EXPECT_NE(io.sa_flags & SA_RESTART, 0);
}

TEST_F(AsyncHandler, NullHandlerSwitchesItOff) {
  ASSERT_EQ(Accepted()->RegisterAsyncHandler(FirstHandler), 0);
  ASSERT_EQ(Accepted()->RegisterAsyncHandler(nullptr), 0);
  EXPECT_FALSE(AsyncFlagSet(Accepted()->GetFd()));
  EXPECT_EQ(CurrentHandler(SIGIO), SIG_IGN);
  EXPECT_EQ(CurrentHandler(SIGURG), SIG_IGN);
  ASSERT_NO_FATAL_FAILURE(RecordFromAnotherProcess());
  EXPECT_FALSE(WaitUntil([] { return firstRuns > 0; }, kQuietPeriod));
}

TEST_F(AsyncHandler, SecondHandlerOnTheSameSocketReplacesTheFirst) {
  ASSERT_EQ(Accepted()->RegisterAsyncHandler(FirstHandler), 0);
  ASSERT_EQ(Accepted()->RegisterAsyncHandler(SecondHandler), 0);
  ASSERT_NO_FATAL_FAILURE(RecordFromAnotherProcess());
  EXPECT_TRUE(WaitUntil([] { return secondRuns > 0; }));
  EXPECT_EQ(firstRuns, 0);
}

TEST_F(AsyncHandler, LastRegistrationServesEverySocketOfTheProcess) {
  ASSERT_EQ(Accepted()->RegisterAsyncHandler(FirstHandler), 0);
  ASSERT_EQ(Client()->RegisterAsyncHandler(SecondHandler), 0);
  ASSERT_NO_FATAL_FAILURE(RecordFromAnotherProcess());
  EXPECT_TRUE(WaitUntil([] { return secondRuns > 0; }));
  EXPECT_EQ(firstRuns, 0);
}

TEST_F(AsyncHandler, BlockedHandlerRunsOnlyOnceUnblocked) {
  ASSERT_EQ(Accepted()->RegisterAsyncHandler(FirstHandler), 0);
  ASSERT_EQ(NuvSocket::BlockAsyncHandler(), 0);
  ASSERT_NO_FATAL_FAILURE(RecordFromAnotherProcess());
  EXPECT_FALSE(WaitUntil([] { return firstRuns > 0; }, kQuietPeriod));
  ASSERT_EQ(NuvSocket::UnblockAsyncHandler(), 0);
  EXPECT_TRUE(WaitUntil([] { return firstRuns > 0; }));
}

TEST_F(AsyncHandler, BlockingMasksBothSignals) {
  ASSERT_EQ(NuvSocket::BlockAsyncHandler(), 0);
  sigset_t mask;
  sigprocmask(SIG_SETMASK, nullptr, &mask);
  EXPECT_EQ(sigismember(&mask, SIGIO), 1);
  EXPECT_EQ(sigismember(&mask, SIGURG), 1);
  ASSERT_EQ(NuvSocket::UnblockAsyncHandler(), 0);
  sigprocmask(SIG_SETMASK, nullptr, &mask);
  EXPECT_EQ(sigismember(&mask, SIGIO), 0);
  EXPECT_EQ(sigismember(&mask, SIGURG), 0);
}

// A registration in a child whose named call fails after `spared` calls of that name went
// through: it must stop at the given assertion.
void ExpectRefusalStopsAt(NuvSocket* socket, void (*handler)(int), const char* call, int spared,
                          int line) {
  const nuv::test::FatalReport report = nuv::test::RunToFatalReport([=] {
    nuv::kernel::FailNextForTesting(call, EINVAL, 1, spared);
    socket->RegisterAsyncHandler(handler);
  });
  nuv::test::ExpectLibraryAssertion(report, "RegisterAsyncHandler", line);
}

TEST_F(AsyncHandler, RefusedActionForSigioStopsAtAssertion552) {
  ExpectRefusalStopsAt(Accepted().get(), FirstHandler, "sigaction", 0, 552);
}

TEST_F(AsyncHandler, RefusedActionForSigurgStopsAtAssertion553) {
  ExpectRefusalStopsAt(Accepted().get(), FirstHandler, "sigaction", 1, 553);
}

TEST_F(AsyncHandler, UnreadableFlagsStopAtAssertion556) {
  ExpectRefusalStopsAt(Accepted().get(), FirstHandler, "fcntl", 0, 556);
}

TEST_F(AsyncHandler, RefusedAsyncFlagStopsAtAssertion558) {
  ExpectRefusalStopsAt(Accepted().get(), FirstHandler, "fcntl", 1, 558);
}

TEST_F(AsyncHandler, RefusedOwnerStopsAtAssertion559) {
  ExpectRefusalStopsAt(Accepted().get(), FirstHandler, "fcntl", 2, 559);
}

TEST_F(AsyncHandler, RefusedIgnoringOfSigioStopsAtAssertion565) {
  ExpectRefusalStopsAt(Accepted().get(), nullptr, "sigaction", 0, 565);
}

TEST_F(AsyncHandler, RefusedIgnoringOfSigurgStopsAtAssertion566) {
  ExpectRefusalStopsAt(Accepted().get(), nullptr, "sigaction", 1, 566);
}

TEST_F(AsyncHandler, UnreadableFlagsWhenSwitchingOffStopAtAssertion569) {
  ExpectRefusalStopsAt(Accepted().get(), nullptr, "fcntl", 0, 569);
}

TEST_F(AsyncHandler, RefusedClearingOfTheAsyncFlagStopsAtAssertion571) {
  ExpectRefusalStopsAt(Accepted().get(), nullptr, "fcntl", 1, 571);
}

}  // namespace
