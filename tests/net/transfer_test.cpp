/// \file WriteN and ReadN: every byte across short transfers, end of file, and failures.
#include <nuv/socket.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <vector>

#include "core/kernel.h"
#include "support/child_process.h"

namespace {

using nuv::test::ChildOutcome;
using nuv::test::ChildProcess;

constexpr int kOk = static_cast<int>(kNuvOk);
constexpr int kFailed = static_cast<int>(kNuvSocketFailed);
constexpr int kEndOfFile = static_cast<int>(kNuvEndOfFile);

std::vector<unsigned char> Pattern(size_t length) {
  std::vector<unsigned char> bytes(length);
  for (size_t i = 0; i < length; ++i) {
    bytes[i] = static_cast<unsigned char>(i * 13 + 5);
  }
  return bytes;
}

// A connected pair of local stream sockets, both ends closed at the end.
class Transfer : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, endsM), 0); }
  void TearDown() override {
    nuv::kernel::FailNextForTesting(nullptr, 0);
    CloseWriter();
    close(endsM[1]);
  }
  int Writer() const { return endsM[0]; }
  int Reader() const { return endsM[1]; }
  void CloseWriter() {
    if (endsM[0] != -1) {
      close(endsM[0]);
      endsM[0] = -1;
    }
  }

 private:
  int endsM[2] = {-1, -1};
};

TEST_F(Transfer, WriteNWritesEveryByteWhileTheReaderTakesThemInPieces) {
  const std::vector<unsigned char> sent = Pattern(1 << 20);
  ChildProcess writer([&] { _exit(WriteN(Writer(), sent.data(), sent.size()) == kOk ? 0 : 1); });
  std::vector<unsigned char> got(sent.size());
  size_t at = 0;
  while (at < got.size()) {
    const ssize_t part = read(Reader(), got.data() + at, 1000);
    ASSERT_GT(part, 0);
    at += static_cast<size_t>(part);
  }
  EXPECT_TRUE(got == sent);
  const ChildOutcome outcome = writer.Finish();
  EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.status;
}

TEST_F(Transfer, WriteNOfNoBytesWritesNothing) {
  EXPECT_EQ(WriteN(Writer(), nullptr, 0), kOk);
  CloseWriter();
  unsigned char byte = 0;
  EXPECT_EQ(read(Reader(), &byte, 1), 0);
}

TEST_F(Transfer, WriteNToABadDescriptorFails) {
  const unsigned char byte = 1;
  EXPECT_EQ(WriteN(-1, &byte, 1), kFailed);
}

TEST_F(Transfer, InterruptedWriteIsAFailure) {
  const unsigned char byte = 1;
  nuv::kernel::FailNextForTesting("write", EINTR);
  EXPECT_EQ(WriteN(Writer(), &byte, 1), kFailed);
}

TEST_F(Transfer, ReadNGathersBytesThatArriveInPieces) {
  const std::vector<unsigned char> sent = Pattern(300);
  ChildProcess writer([&] {
    const timespec pause{0, 2000000};
    for (size_t at = 0; at < sent.size(); at += 100) {
      if (write(Writer(), sent.data() + at, 100) != 100) {
        _exit(1);
      }
      nanosleep(&pause, nullptr);
    }
    _exit(0);
  });
  std::vector<unsigned char> got(sent.size());
  EXPECT_EQ(ReadN(Reader(), got.data(), got.size()), kOk);
  EXPECT_TRUE(got == sent);
  EXPECT_EQ(writer.Finish().ExitCode(), 0);
}

TEST_F(Transfer, ReadNOfNoBytesReadsNothing) {
  const unsigned char byte = 9;
  ASSERT_EQ(write(Writer(), &byte, 1), 1);
  EXPECT_EQ(ReadN(Reader(), nullptr, 0), kOk);
  unsigned char got = 0;
  EXPECT_EQ(ReadN(Reader(), &got, 1), kOk);
  EXPECT_EQ(got, byte);
}

TEST_F(Transfer, ReadNAtEndOfFileGivesEndOfFile) {
  CloseWriter();
  unsigned char byte = 0;
  EXPECT_EQ(ReadN(Reader(), &byte, 1), kEndOfFile);
}

TEST_F(Transfer, ReadNThatMeetsEndOfFileHalfWayGivesEndOfFile) {
  const std::vector<unsigned char> sent = Pattern(10);
  ASSERT_EQ(write(Writer(), sent.data(), sent.size()), 10);
  CloseWriter();
  std::vector<unsigned char> got(20);
  EXPECT_EQ(ReadN(Reader(), got.data(), got.size()), kEndOfFile);
}

TEST_F(Transfer, ReadNFromABadDescriptorFails) {
  unsigned char byte = 0;
  EXPECT_EQ(ReadN(-1, &byte, 1), kFailed);
}

TEST_F(Transfer, InterruptedReadIsAFailure) {
  unsigned char byte = 0;
  nuv::kernel::FailNextForTesting("read", EINTR);
  EXPECT_EQ(ReadN(Reader(), &byte, 1), kFailed);
}

}  // namespace
