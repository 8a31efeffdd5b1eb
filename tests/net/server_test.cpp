/// \file NuvServer: opening on a path, accepting, failures that leave nothing open, and the
/// destructor's unlink and close.
#include <nuv/socket.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "core/kernel.h"
#include "net/socket_fixture.h"
#include "support/descriptors.h"
#include "support/fatal_report.h"
#include "support/pool_usage.h"

namespace {

using nuv::test::IsOpen;
using nuv::test::OpenDescriptors;
using nuv::test::SocketTest;

constexpr int kOk = static_cast<int>(kNuvOk);
constexpr int kFailed = static_cast<int>(kNuvSocketFailed);
constexpr size_t kBoundCharacters = 107;

bool IsSocketFile(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

class Servers : public SocketTest {
 protected:
  void TearDown() override {
    nuv::kernel::FailNextForTesting(nullptr, 0);
    SocketTest::TearDown();
  }
};

TEST_F(Servers, CreateListensOnThePath) {
  ASSERT_NO_FATAL_FAILURE(Listen());
  EXPECT_TRUE(IsSocketFile(Path()));
  EXPECT_GE(Server()->GetFd(), 0);
  ref<NuvSocket> client;
  EXPECT_EQ(NuvSocket::Connect(Pool(), Path(), client), kOk);
}

TEST_F(Servers, AcceptGivesASocketInTheServersPoolForTheConnection) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  EXPECT_EQ(Accepted()->GetPool(), Pool());
  EXPECT_EQ(Accepted()->GetRefCount(), 1U);
  const unsigned char byte = 42;
  ASSERT_EQ(write(Client()->GetFd(), &byte, 1), 1);
  unsigned char got = 0;
  EXPECT_EQ(read(Accepted()->GetFd(), &got, 1), 1);
  EXPECT_EQ(got, byte);
}

TEST_F(Servers, AcceptReplacesWhatTheHandleHeld) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  ref<NuvSocket> held = Accepted();
  ref<NuvSocket> client;
  ASSERT_EQ(NuvSocket::Connect(Pool(), Path(), client), kOk);
  ASSERT_EQ(Server()->Accept(Accepted()), kOk);
  EXPECT_NE(Accepted(), held);
  EXPECT_EQ(held->GetRefCount(), 1U);
}

TEST_F(Servers, CreateStoresTheServerInTheHandleReleasingTheOldOne) {
  ASSERT_NO_FATAL_FAILURE(Listen());
  const ref<NuvServer> first = Server();
  const std::string second = nuv::test::TestSocketPath("second");
  unlink(second.c_str());
  ASSERT_EQ(NuvServer::Create(Pool(), second.c_str(), Server()), kOk);
  EXPECT_NE(Server(), first);
  EXPECT_EQ(first->GetRefCount(), 1U);
  Server() = nullptr;
  EXPECT_FALSE(Exists(second));
}

TEST_F(Servers, OpenOnAPathThatExistsFailsWithSocketFailed) {
  const int file = open(Path(), O_CREAT | O_WRONLY, 0600);
  ASSERT_GE(file, 0);
  close(file);
  const int before = OpenDescriptors();
  EXPECT_EQ(NuvServer::Create(Pool(), Path(), Server()), kFailed);
  EXPECT_EQ(OpenDescriptors(), before);
  EXPECT_FALSE(Server());
}

TEST_F(Servers, OpenOnAnotherServersPathFails) {
  ASSERT_NO_FATAL_FAILURE(Listen());
  ref<NuvServer> second;
  const int before = OpenDescriptors();
  EXPECT_EQ(NuvServer::Create(Pool(), Path(), second), kFailed);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(Servers, FailedCreateLeavesTheHandleAsItWasAndGivesThePoolBack) {
  ASSERT_NO_FATAL_FAILURE(Listen());
  const ref<NuvServer> held = Server();
  const unsigned blocks = NuvBlocks();
  EXPECT_EQ(NuvServer::Create(Pool(), Path(), Server()), kFailed);
  EXPECT_EQ(Server(), held);
  EXPECT_EQ(NuvBlocks(), blocks);
}

TEST_F(Servers, DestructorUnlinksItsPathAndClosesItsDescriptor) {
  ASSERT_NO_FATAL_FAILURE(Listen());
  const int fd = Server()->GetFd();
  Server() = nullptr;
  EXPECT_FALSE(Exists(Path()));
  EXPECT_FALSE(IsOpen(fd));
}

TEST_F(Servers, ServerGivesBackItsNameAndItselfToThePool) {
  ASSERT_NO_FATAL_FAILURE(Listen());
  // The name is a copy of the whole path: its block is the path's length and terminator.
  EXPECT_EQ(NuvBytes(), Start()[3 + 2 * NuvMempool::nuv] + sizeof(NuvServer) +
                            nuv::test::BlockPayload(static_cast<unsigned>(strlen(Path()) + 1)));
  Server() = nullptr;
  EXPECT_EQ(nuv::test::InUse(Pool()), Start());
}

TEST_F(Servers, ServerNeverOpenedHasNoDescriptorAndReleasesQuietly) {
  ref<NuvServer> server(new (Pool()) NuvServer());
  EXPECT_EQ(server->GetFd(), -1);
  const int before = OpenDescriptors();
  server = nullptr;
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(Servers, PathLongerThan107CharactersIsCutTo107) {
  const std::string directory = "/tmp/nuvsock_" + std::to_string(getpid());
  const std::string longPath = directory + "_" + std::string(120 - directory.size() - 1, 'p');
  ASSERT_EQ(longPath.size(), 120U);
  const std::string bound = longPath.substr(0, kBoundCharacters);
  unlink(bound.c_str());
  ref<NuvServer> server;
  ASSERT_EQ(NuvServer::Create(Pool(), longPath.c_str(), server), kOk);
  EXPECT_TRUE(IsSocketFile(bound));
  ref<NuvSocket> viaLong;
  ref<NuvSocket> viaBound;
  EXPECT_EQ(NuvSocket::Connect(Pool(), longPath.c_str(), viaLong), kOk);
  EXPECT_EQ(NuvSocket::Connect(Pool(), bound.c_str(), viaBound), kOk);
  // The destructor unlinks the path it was given, which is not the bound one.
  server = nullptr;
  EXPECT_TRUE(IsSocketFile(bound));
  unlink(bound.c_str());
}

TEST_F(Servers, PathOf107CharactersIsBoundWhole) {
  const std::string directory = "/tmp/nuvsock_" + std::to_string(getpid());
  const std::string path =
      directory + "_" + std::string(kBoundCharacters - directory.size() - 1, 'q');
  ref<NuvServer> server;
  ASSERT_EQ(NuvServer::Create(Pool(), path.c_str(), server), kOk);
  EXPECT_TRUE(IsSocketFile(path));
  server = nullptr;
  EXPECT_FALSE(Exists(path));
}

TEST_F(Servers, RefusedSocketGivesSocketFailed) {
  nuv::kernel::FailNextForTesting("socket", EMFILE);
  EXPECT_EQ(NuvServer::Create(Pool(), Path(), Server()), kFailed);
  EXPECT_FALSE(Exists(Path()));
}

TEST_F(Servers, RefusedBindClosesTheSocket) {
  const int before = OpenDescriptors();
  nuv::kernel::FailNextForTesting("bind", EACCES);
  EXPECT_EQ(NuvServer::Create(Pool(), Path(), Server()), kFailed);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(Servers, RefusedListenClosesTheSocket) {
  const int before = OpenDescriptors();
  nuv::kernel::FailNextForTesting("listen", EADDRINUSE);
  EXPECT_EQ(NuvServer::Create(Pool(), Path(), Server()), kFailed);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(Servers, FailedAcceptGivesSocketFailedAndLeavesTheHandle) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const ref<NuvSocket> held = Accepted();
  const int before = OpenDescriptors();
  nuv::kernel::FailNextForTesting("accept", ECONNABORTED);
  EXPECT_EQ(Server()->Accept(Accepted()), kFailed);
  EXPECT_EQ(Accepted(), held);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(Servers, AcceptOnAServerNeverOpenedFails) {
  ref<NuvServer> server(new (Pool()) NuvServer());
  ref<NuvSocket> accepted;
  EXPECT_EQ(server->Accept(accepted), kFailed);
  EXPECT_FALSE(accepted);
}

TEST_F(Servers, FailingCloseInTheDestructorStopsAtAssertion155) {
  ASSERT_NO_FATAL_FAILURE(Listen());
  const nuv::test::FatalReport report = nuv::test::RunToFatalReport([this] {
    close(Server()->GetFd());
    Server() = nullptr;
  });
  nuv::test::ExpectLibraryAssertion(report, "NuvServer", 155);
}

}  // namespace
