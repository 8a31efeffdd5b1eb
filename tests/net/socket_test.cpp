/// \file NuvSocket: connecting, the linger time, the descriptor, and whether data is waiting.
#include <nuv/logger.h>
#include <nuv/socket.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "core/kernel.h"
#include "net/socket_fixture.h"
#include "support/child_process.h"
#include "support/descriptors.h"
#include "support/log_lines.h"

namespace {

using nuv::test::ChildOutcome;
using nuv::test::IsOpen;
using nuv::test::OpenDescriptors;
using nuv::test::SocketTest;

constexpr int kOk = static_cast<int>(kNuvOk);
constexpr int kFailed = static_cast<int>(kNuvSocketFailed);
// Priority value of the linger warning: facility "facnuv" (local0), priority "priwarn".
constexpr int kWarnRecordValue = 132;

class Sockets : public SocketTest {
 protected:
  void TearDown() override {
    nuv::kernel::FailNextForTesting(nullptr, 0);
    SocketTest::TearDown();
  }
};

TEST_F(Sockets, ConnectWithoutAServerFailsAndLeavesNoDescriptor) {
  const int before = OpenDescriptors();
  EXPECT_EQ(NuvSocket::Connect(Pool(), Path(), Client()), kFailed);
  EXPECT_FALSE(Client());
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(Sockets, FailedConnectLeavesTheHandleAsItWas) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const ref<NuvSocket> held = Client();
  const std::string nowhere = nuv::test::TestSocketPath("nowhere");
  EXPECT_EQ(NuvSocket::Connect(Pool(), nowhere.c_str(), Client()), kFailed);
  EXPECT_EQ(Client(), held);
}

TEST_F(Sockets, RefusedSocketGivesSocketFailed) {
  ASSERT_NO_FATAL_FAILURE(Listen());
  nuv::kernel::FailNextForTesting("socket", ENFILE);
  EXPECT_EQ(NuvSocket::Connect(Pool(), Path(), Client()), kFailed);
}

TEST_F(Sockets, ConnectPutsTheSocketInTheGivenPool) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  EXPECT_EQ(Client()->GetPool(), Pool());
  EXPECT_EQ(Client()->GetRefCount(), 1U);
}

TEST_F(Sockets, ConnectAsksForALingerTimeOf100Seconds) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  linger lingering{};
  socklen_t size = sizeof lingering;
  ASSERT_EQ(getsockopt(Client()->GetFd(), SOL_SOCKET, SO_LINGER, &lingering, &size), 0);
  EXPECT_NE(lingering.l_onoff, 0);
  EXPECT_EQ(lingering.l_linger, 100);
}

TEST_F(Sockets, RefusedLingerIsLoggedAndTheConnectionIsKept) {
  ASSERT_NO_FATAL_FAILURE(Listen());
  const ChildOutcome outcome = nuv::test::RunInChild([this] {
    nuv::kernel::FailNextForTesting("setsockopt", EINVAL);
    ref<NuvSocket> client;
    const int result = NuvSocket::Connect(Pool(), Path(), client);
    _exit(result == kOk && client ? 0 : 1);
  });
  EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.status;
  EXPECT_EQ(nuv::test::LogRecords(outcome.out, kWarnRecordValue, "NuvSocket", outcome.pid),
            std::vector<std::string>{"setsockopt SO_LINGER failed, err = 22"});
}

TEST_F(Sockets, SocketMadeFromADescriptorClosesItWhenReleased) {
  int pair[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  ref<NuvSocket> socket(new (Pool()) NuvSocket(pair[0]));
  EXPECT_EQ(socket->GetFd(), pair[0]);
  socket = nullptr;
  EXPECT_FALSE(IsOpen(pair[0]));
  close(pair[1]);
}

TEST_F(Sockets, CloseFdClosesTheDescriptorAndKeepsItsNumber) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const int fd = Client()->GetFd();
  EXPECT_EQ(Client()->CloseFd(), 0);
  EXPECT_FALSE(IsOpen(fd));
  EXPECT_EQ(Client()->GetFd(), fd);
  EXPECT_EQ(Client()->CloseFd(), -1);
}

TEST_F(Sockets, IsDataPresentIsFalseOnAnIdleSocket) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  EXPECT_FALSE(Accepted()->IsDataPresent());
  EXPECT_FALSE(Client()->IsDataPresent());
}

TEST_F(Sockets, IsDataPresentIsTrueOnceARecordHasArrivedFromAnotherProcess) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const unsigned value = 7;
  const ChildOutcome sender =
      nuv::test::RunInChild([this, value] { _exit(Client()->Send(&value, sizeof value)); });
  ASSERT_TRUE(sender.Exited() && sender.ExitCode() == kOk);
  EXPECT_TRUE(Accepted()->IsDataPresent());
  unsigned got = 0;
  ASSERT_EQ(Accepted()->Receive(&got, sizeof got), kOk);
  EXPECT_EQ(got, value);
  EXPECT_FALSE(Accepted()->IsDataPresent());
}

TEST_F(Sockets, IsDataPresentIsTrueWhenThePeerHasClosed) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  Client() = nullptr;
  EXPECT_TRUE(Accepted()->IsDataPresent());
}

}  // namespace
