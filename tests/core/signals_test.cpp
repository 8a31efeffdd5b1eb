/// \file The broken-pipe guard: a transfer cut short by SIGPIPE becomes a result, and the
/// previous action of SIGPIPE comes back.
#include <gtest/gtest.h>

#include <unistd.h>
#include <csignal>

#include "core/signals.h"

namespace {

int handledSignals = 0;
void CountSignal(int /*signal*/) { ++handledSignals; }

bool WroteAByte(int fd) {
  const char byte = 'x';
  return write(fd, &byte, 1) == 1;
}

// A pipe whose reading end is closed: a write to it raises SIGPIPE.
struct BrokenPipe {
  int fds[2] = {-1, -1};
  BrokenPipe() {
    if (pipe(fds) == 0) {
      close(fds[0]);
    }
  }
  ~BrokenPipe() { close(fds[1]); }
  BrokenPipe(const BrokenPipe&) = delete;
  BrokenPipe& operator=(const BrokenPipe&) = delete;
  BrokenPipe(BrokenPipe&&) = delete;
  BrokenPipe& operator=(BrokenPipe&&) = delete;
};

// Sets SIGPIPE to count, and puts back what was there at the end.
class BrokenPipeGuard : public ::testing::Test {
 protected:
  void SetUp() override {
    struct sigaction counting {};
    counting.sa_handler = CountSignal;
    sigemptyset(&counting.sa_mask);
    ASSERT_EQ(sigaction(SIGPIPE, &counting, &saved), 0);
    handledSignals = 0;
  }
  void TearDown() override { sigaction(SIGPIPE, &saved, nullptr); }

 private:
  struct sigaction saved {};
};

TEST_F(BrokenPipeGuard, AWriteToABrokenPipeEndsTheTransferEarly) {
  BrokenPipe broken;
  bool wroteToTheEnd = false;
  const bool completed =
      nuv::signals::GuardBrokenPipe([&] { wroteToTheEnd = WroteAByte(broken.fds[1]); });
  EXPECT_FALSE(completed);
  EXPECT_FALSE(wroteToTheEnd);
  EXPECT_EQ(handledSignals, 0);
}

TEST_F(BrokenPipeGuard, ATransferThatMeetsNoBrokenPipeRunsToItsEnd) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  const bool completed = nuv::signals::GuardBrokenPipe([&] { EXPECT_TRUE(WroteAByte(fds[1])); });
  close(fds[0]);
  close(fds[1]);
  EXPECT_TRUE(completed);
}

TEST_F(BrokenPipeGuard, ThePreviousActionComesBackAfterABrokenPipe) {
  BrokenPipe broken;
  bool wrote = false;
  nuv::signals::GuardBrokenPipe([&] { wrote = WroteAByte(broken.fds[1]); });
  EXPECT_FALSE(wrote);
  raise(SIGPIPE);
  EXPECT_EQ(handledSignals, 1);
}

TEST_F(BrokenPipeGuard, TheSignalMaskComesBackAfterTheJump) {
  BrokenPipe broken;
  sigset_t before;
  sigprocmask(SIG_SETMASK, nullptr, &before);
  bool wrote = false;
  nuv::signals::GuardBrokenPipe([&] { wrote = WroteAByte(broken.fds[1]); });
  EXPECT_FALSE(wrote);
  sigset_t after;
  sigprocmask(SIG_SETMASK, nullptr, &after);
  EXPECT_EQ(sigismember(&after, SIGPIPE), sigismember(&before, SIGPIPE));
}

nuv::signals::BrokenPipeRecovery outerRecovery;
void OuterHandler(int /*signal*/) { siglongjmp(outerRecovery.point, 1); }

TEST_F(BrokenPipeGuard, AGuardWithItsOwnRecoveryRunsInsideAnother) {
  BrokenPipe broken;
  bool innerCompleted = true;
  bool wroteAfterTheInnerGuard = false;
  void (*handlerAfterTheInnerGuard)(int) = nullptr;
  const bool outerCompleted = nuv::signals::GuardBrokenPipe(outerRecovery, OuterHandler, [&] {
    innerCompleted = nuv::signals::GuardBrokenPipe([&] { WroteAByte(broken.fds[1]); });
    struct sigaction current {};
    sigaction(SIGPIPE, nullptr, &current);
    handlerAfterTheInnerGuard = current.sa_handler;
    wroteAfterTheInnerGuard = WroteAByte(broken.fds[1]);
  });
  EXPECT_FALSE(innerCompleted);
  EXPECT_EQ(handlerAfterTheInnerGuard, OuterHandler);
  EXPECT_FALSE(outerCompleted);
  EXPECT_FALSE(wroteAfterTheInnerGuard);
  raise(SIGPIPE);
  EXPECT_EQ(handledSignals, 1);
}

}  // namespace
