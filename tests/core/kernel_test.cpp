/// \file The kernel path: failure values, tolerated errnos, retries of interrupted calls, errno
/// kept, and the seam that makes a chosen call fail.
#include <gtest/gtest.h>

#include <unistd.h>
#include <cerrno>

#include "core/kernel.h"

namespace {

using nuv::kernel::Call;
using nuv::kernel::FailNextForTesting;
using nuv::kernel::Make;
using nuv::kernel::Result;

constexpr Call kClose{"close", -1, 0, false};
constexpr Call kUnlinkMissingIsFine{"unlink", -1, ENOENT, false};
constexpr Call kRetried{"retried", -1, 0, true};
constexpr Call kNotRetried{"notretried", -1, 0, false};

// A call that fails with EINTR `interruptions` times, then succeeds with 7; counts its calls.
struct InterruptedCall {
  int interruptions = 0;
  int calls = 0;
  int operator()() {
    ++calls;
    if (calls <= interruptions) {
      errno = EINTR;
      return -1;
    }
    return 7;
  }
};

// Ends the seam whatever a test left of it.
class Kernel : public ::testing::Test {
 protected:
  void TearDown() override { FailNextForTesting(nullptr, 0, 0); }
};

TEST_F(Kernel, ASuccessfulCallGivesItsValue) {
  const Result result = Make(kClose, [] { return dup(0); });
  ASSERT_FALSE(result.Failed());
  EXPECT_GE(result.value, 0);
  close(static_cast<int>(result.value));
}

TEST_F(Kernel, AFailedCallGivesItsFailureValueAndKeepsErrno) {
  errno = 0;
  const Result result = Make(kClose, [] { return close(-1); });
  EXPECT_TRUE(result.Failed());
  EXPECT_EQ(result.value, -1);
  EXPECT_EQ(result.error, EBADF);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(Kernel, TheToleratedErrnoCountsAsSuccess) {
  const Result result =
      Make(kUnlinkMissingIsFine, [] { return unlink("/var/tmp/nuv-no-such-file-ever"); });
  EXPECT_FALSE(result.Failed());
  EXPECT_EQ(result.value, -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(Kernel, AnInterruptedCallIsMadeAgainWhenItsCallSaysSo) {
  InterruptedCall call{2};
  const Result result = Make(kRetried, [&call] { return call(); });
  EXPECT_FALSE(result.Failed());
  EXPECT_EQ(result.value, 7);
  EXPECT_EQ(call.calls, 3);
}

TEST_F(Kernel, AnInterruptedCallIsNotMadeAgainOtherwise) {
  InterruptedCall call{2};
  const Result result = Make(kNotRetried, [&call] { return call(); });
  EXPECT_EQ(result.error, EINTR);
  EXPECT_EQ(call.calls, 1);
}

TEST_F(Kernel, TheSeamFailsTheNamedCallWithoutMakingIt) {
  FailNextForTesting("retried", EIO);
  InterruptedCall call{0};
  const Result result = Make(kRetried, [&call] { return call(); });
  EXPECT_EQ(result.error, EIO);
  EXPECT_EQ(result.value, -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(call.calls, 0);
}

TEST_F(Kernel, TheSeamFailsAsManyCallsAsAskedThenLetsThemThrough) {
  FailNextForTesting("retried", ENOSPC, 2);
  InterruptedCall call{0};
  EXPECT_EQ(Make(kRetried, [&call] { return call(); }).error, ENOSPC);
  EXPECT_EQ(Make(kRetried, [&call] { return call(); }).error, ENOSPC);
  EXPECT_FALSE(Make(kRetried, [&call] { return call(); }).Failed());
  EXPECT_EQ(call.calls, 1);
}

TEST_F(Kernel, TheSeamLetsTheSparedCallsThroughFirst) {
  FailNextForTesting("retried", EIO, 1, 2);
  InterruptedCall call{0};
  EXPECT_FALSE(Make(kRetried, [&call] { return call(); }).Failed());
  EXPECT_FALSE(Make(kRetried, [&call] { return call(); }).Failed());
  EXPECT_EQ(Make(kRetried, [&call] { return call(); }).error, EIO);
  EXPECT_FALSE(Make(kRetried, [&call] { return call(); }).Failed());
  EXPECT_EQ(call.calls, 3);
}

TEST_F(Kernel, TheSeamLeavesOtherCallsAlone) {
  FailNextForTesting("notretried", EIO);
  InterruptedCall call{0};
  EXPECT_FALSE(Make(kRetried, [&call] { return call(); }).Failed());
  EXPECT_EQ(call.calls, 1);
}

}  // namespace
