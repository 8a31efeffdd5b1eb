/// \file Bad input to the net entry points: each gets a documented result or a documented
/// assertion (docs/robustness.md).
#include <nuv/fd_set.h>
#include <nuv/logger.h>
#include <nuv/socket.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "net/socket_fixture.h"
#include "support/child_process.h"
#include "support/descriptors.h"
#include "support/fatal_report.h"
#include "support/log_lines.h"

namespace {

using nuv::test::ChildOutcome;
using nuv::test::ChildProcess;
using nuv::test::kDebugRecordValue;
using nuv::test::NativeHeader;
using nuv::test::OpenDescriptors;
using nuv::test::SocketTest;
using nuv::test::WriteRaw;

constexpr int kOk = static_cast<int>(kNuvOk);
constexpr int kFailed = static_cast<int>(kNuvSocketFailed);
constexpr int kEndOfFile = static_cast<int>(kNuvEndOfFile);
constexpr int kBadRecord = static_cast<int>(kNuvBadRecord);

// A receive in a child with debug records on: its result's low byte as exit code, and the
// records it logged under "NuvSocket".
struct ChildReceive {
  ChildOutcome outcome;
  int Result() const { return outcome.Exited() ? outcome.ExitCode() : -1; }
  std::vector<std::string> Records() const {
    return nuv::test::LogRecords(outcome.out, kDebugRecordValue, "NuvSocket", outcome.pid);
  }
};

ChildReceive ReceiveInChild(NuvSocket* socket, void* data, unsigned length) {
  return {nuv::test::RunInChild([=] {
    NuvLogger::MinLog(NuvLogger::pridebug);
    const int got = socket->Receive(data, length);
    std::fflush(nullptr);
    _exit(got & 0xff);
  })};
}

class NetRobustness : public SocketTest {
 protected:
  // A directory of the test's own, removed with what it holds at the end.
  std::string Directory() {
    if (directoryM.empty()) {
      directoryM = nuv::test::TestSocketPath("dir");
      mkdir(directoryM.c_str(), 0700);
    }
    return directoryM;
  }
  void TearDown() override {
    if (!directoryM.empty()) {
      unlink((directoryM + "/file").c_str());
      rmdir(directoryM.c_str());
    }
    SocketTest::TearDown();
  }

 private:
  std::string directoryM;
};

// --- NuvServer::Create / Open

TEST_F(NetRobustness, CreateWithANullPathFailsAndLeavesNoDescriptor) {
  const int before = OpenDescriptors();
  EXPECT_EQ(NuvServer::Create(Pool(), nullptr, Server()), kFailed);
  EXPECT_FALSE(Server());
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(NetRobustness, OpenWithANullPathFailsAndTheServerStaysUnopened) {
  ref<NuvServer> server(new (Pool()) NuvServer());
  EXPECT_EQ(server->Open(nullptr), kFailed);
  EXPECT_EQ(server->GetFd(), -1);
}

// An all-zero path field is the kernel's abstract address of 107 NUL bytes: nothing appears in
// the file system, and a second server cannot take the same address.
TEST_F(NetRobustness, CreateWithAnEmptyPathBindsTheAbstractAddressOfNulBytes) {
  ref<NuvServer> server;
  ASSERT_EQ(NuvServer::Create(Pool(), "", server), kOk);
  ref<NuvSocket> client;
  EXPECT_EQ(NuvSocket::Connect(Pool(), "", client), kOk);
  ref<NuvServer> second;
  EXPECT_EQ(NuvServer::Create(Pool(), "", second), kFailed);
  // The destructor's unlink of "" fails quietly.
  server = nullptr;
  ref<NuvSocket> late;
  EXPECT_EQ(NuvSocket::Connect(Pool(), "", late), kFailed);
}

TEST_F(NetRobustness, CreateInAMissingDirectoryFailsAndLeavesNoDescriptor) {
  const std::string path = Directory() + "/missing/server";
  const int before = OpenDescriptors();
  EXPECT_EQ(NuvServer::Create(Pool(), path.c_str(), Server()), kFailed);
  EXPECT_FALSE(Server());
  EXPECT_EQ(OpenDescriptors(), before);
}

// --- NuvSocket::Connect

TEST_F(NetRobustness, ConnectWithANullPathFailsAndLeavesNoDescriptor) {
  const int before = OpenDescriptors();
  EXPECT_EQ(NuvSocket::Connect(Pool(), nullptr, Client()), kFailed);
  EXPECT_FALSE(Client());
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(NetRobustness, ConnectWithAnEmptyPathAndNoServerThereFails) {
  const int before = OpenDescriptors();
  EXPECT_EQ(NuvSocket::Connect(Pool(), "", Client()), kFailed);
  EXPECT_FALSE(Client());
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(NetRobustness, ConnectToARegularFileFailsAndLeavesNoDescriptor) {
  const std::string path = Directory() + "/file";
  const int file = open(path.c_str(), O_CREAT | O_WRONLY, 0600);
  ASSERT_GE(file, 0);
  close(file);
  const int before = OpenDescriptors();
  EXPECT_EQ(NuvSocket::Connect(Pool(), path.c_str(), Client()), kFailed);
  EXPECT_FALSE(Client());
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(NetRobustness, ConnectToADirectoryFails) {
  EXPECT_EQ(NuvSocket::Connect(Pool(), Directory().c_str(), Client()), kFailed);
  EXPECT_FALSE(Client());
}

// --- WriteN / ReadN

TEST_F(NetRobustness, WriteNFromANullBufferFailsAndWritesNothing) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  EXPECT_EQ(WriteN(Client()->GetFd(), nullptr, 4), kFailed);
  EXPECT_FALSE(Accepted()->IsDataPresent());
}

TEST_F(NetRobustness, ReadNIntoANullBufferFailsAndLeavesTheBytes) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const unsigned char bytes[4] = {1, 2, 3, 4};
  ASSERT_EQ(write(Client()->GetFd(), bytes, 4), 4);
  EXPECT_EQ(ReadN(Accepted()->GetFd(), nullptr, 4), kFailed);
  unsigned char got[4] = {};
  EXPECT_EQ(ReadN(Accepted()->GetFd(), got, 4), kOk);
  EXPECT_EQ(memcmp(got, bytes, 4), 0);
}

// --- NuvSocket::Send

TEST_F(NetRobustness, SendOfBytesFromANullBufferFailsAndWritesNothing) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  EXPECT_EQ(Client()->Send(nullptr, 4), kFailed);
  EXPECT_FALSE(Accepted()->IsDataPresent());
}

// The length field is signed: a length of 2^31 goes out as -2147483648. The payload is a
// mapping of zero pages that costs no memory; the peer reads the header and goes away.
TEST_F(NetRobustness, SendOfTwoGibibytesWritesANegativeLengthField) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  constexpr unsigned kLength = 0x80000000U;
  constexpr int kNoMapping = 9;
  ChildProcess sender([this] {
    // Only the parent keeps the reading end, so that its going away breaks the pipe.
    close(Accepted()->GetFd());
    void* data =
        mmap(nullptr, kLength, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (data == MAP_FAILED) {
      _exit(kNoMapping);
    }
    _exit(Client()->Send(data, kLength) & 0xff);
  });
  std::vector<unsigned char> header(8);
  ASSERT_EQ(ReadN(Accepted()->GetFd(), header.data(), 8), kOk);
  Accepted() = nullptr;
  Client() = nullptr;
  const ChildOutcome outcome = sender.Finish();
  ASSERT_NE(outcome.ExitCode(), kNoMapping) << "no room for a mapping of 2 GiB";
  EXPECT_EQ(header, NativeHeader(kNuvEventMagic, INT_MIN));
  EXPECT_EQ(outcome.ExitCode(), kEndOfFile & 0xff) << outcome.status;
}

// --- NuvSocket::Receive

TEST_F(NetRobustness, ReceiveOfBytesIntoANullBufferFailsAndReadsNothing) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const unsigned value = 7;
  ASSERT_EQ(Client()->Send(&value, sizeof value), kOk);
  EXPECT_EQ(Accepted()->Receive(nullptr, sizeof value), kFailed);
  unsigned got = 0;
  EXPECT_EQ(Accepted()->Receive(&got, sizeof got), kOk);
  EXPECT_EQ(got, value);
}

TEST_F(NetRobustness, NegativeLengthFieldIsABadSize) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  std::vector<unsigned char> record = NativeHeader(kNuvEventMagic, -1);
  record.resize(12, 'x');
  ASSERT_NO_FATAL_FAILURE(WriteRaw(Client()->GetFd(), record));
  unsigned char data[4] = {};
  const ChildReceive receive = ReceiveInChild(Accepted().get(), data, 4);
  EXPECT_EQ(receive.Result(), kBadRecord & 0xff);
  EXPECT_EQ(receive.Records(), std::vector<std::string>{"Bad event size: -1 versus 4"});
}

TEST_F(NetRobustness, ReceiveOfNoBytesIntoANullBufferReadsOnlyTheHeaderOfALongerRecord) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const unsigned value = 7;
  ASSERT_EQ(Client()->Send(&value, sizeof value), kOk);
  const ChildReceive receive = ReceiveInChild(Accepted().get(), nullptr, 0);
  EXPECT_EQ(receive.Result(), kBadRecord & 0xff);
  EXPECT_EQ(receive.Records(), std::vector<std::string>{"Bad event size: 4 versus 0"});
  unsigned left = 0;
  EXPECT_EQ(ReadN(Accepted()->GetFd(), &left, sizeof left), kOk);
  EXPECT_EQ(left, value);
}

// A length of 2^31 or more asks for more bytes than any peer sends: the receive waits, and ends
// with end of file when the peer goes away; the caller's buffer is not touched.
TEST_F(NetRobustness, ReceiveWithALengthBeyondTheLengthFieldGivesEndOfFileWhenThePeerGoes) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const unsigned value = 7;
  ASSERT_EQ(Client()->Send(&value, sizeof value), kOk);
  Client() = nullptr;
  unsigned char data[16];
  memset(data, 0xA5, sizeof data);
  EXPECT_EQ(Accepted()->Receive(data, 0xFFFFFFFFU), kEndOfFile);
  for (const unsigned char byte : data) {
    EXPECT_EQ(byte, 0xA5);
  }
}

// --- Descriptors that are not open

TEST_F(NetRobustness, SocketOfDescriptorMinusOneFailsEveryTransferAndHasNoData) {
  ref<NuvSocket> socket(new (Pool()) NuvSocket(-1));
  unsigned value = 1;
  EXPECT_EQ(socket->Send(&value, sizeof value), kFailed);
  EXPECT_EQ(socket->Receive(&value, sizeof value), kFailed);
  EXPECT_FALSE(socket->IsDataPresent());
  EXPECT_EQ(socket->CloseFd(), -1);
}

TEST_F(NetRobustness, IsDataPresentOnAClosedDescriptorStopsAtAssertion743) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const nuv::test::FatalReport report = nuv::test::RunToFatalReport([this] {
    Accepted()->CloseFd();
    Accepted()->IsDataPresent();
  });
  nuv::test::ExpectLibraryAssertion(report, "Select", 743);
}

// NuvFdSet holds descriptors 0 to 1023 only: a higher one is left out of the select.
TEST_F(NetRobustness, IsDataPresentOnADescriptorAbove1023IsFalseEvenWithDataWaiting) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const unsigned value = 7;
  ASSERT_EQ(Client()->Send(&value, sizeof value), kOk);
  const ChildOutcome outcome = nuv::test::RunInChild([this] {
    const int high = 1100;
    if (dup2(Accepted()->GetFd(), high) != high) {
      _exit(2);
    }
    const ref<NuvSocket> socket(new (Pool()) NuvSocket(high));
    const bool present = socket->IsDataPresent();
    unsigned got = 0;
    const bool received = socket->Receive(&got, sizeof got) == kOk && got == value;
    _exit(!present && received ? 0 : 1);
  });
  EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.status;
}

TEST_F(NetRobustness, RegisterAsyncHandlerOnAClosedDescriptorStopsAtAssertion556) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const nuv::test::FatalReport report = nuv::test::RunToFatalReport([this] {
    Accepted()->CloseFd();
    Accepted()->RegisterAsyncHandler(SIG_IGN);
  });
  nuv::test::ExpectLibraryAssertion(report, "RegisterAsyncHandler", 556);
}

TEST_F(NetRobustness, NullAsyncHandlerOnAClosedDescriptorStopsAtAssertion569) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const nuv::test::FatalReport report = nuv::test::RunToFatalReport([this] {
    Accepted()->CloseFd();
    Accepted()->RegisterAsyncHandler(nullptr);
  });
  nuv::test::ExpectLibraryAssertion(report, "RegisterAsyncHandler", 569);
}

// In a child, whose exit leaves the server's destructor, and its close, unrun.
TEST_F(NetRobustness, AcceptOnAClosedServerDescriptorFails) {
  ASSERT_NO_FATAL_FAILURE(Listen());
  const ChildOutcome outcome = nuv::test::RunInChild([this] {
    close(Server()->GetFd());
    ref<NuvSocket> accepted;
    const int result = Server()->Accept(accepted);
    _exit(result == kFailed && !accepted ? 0 : 1);
  });
  EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.status;
}

// --- NuvFdSet

TEST(FdSetRobustness, SetOfANegativeDescriptorIsIgnored) {
  NuvFdSet set;
  set.Set(-1);
  set.Set(INT_MIN);
  EXPECT_EQ(set.GetFdMax(), 0);
  for (int i = 0; i < NuvFdSet::kWords; ++i) {
    EXPECT_EQ(set.Word(i), 0U) << i;
  }
  EXPECT_FALSE(set.FIsSet(-1));
  EXPECT_FALSE(set.FIsSet(INT_MIN));
}

TEST(FdSetRobustness, SetOfADescriptorAtOrAbove1024IsIgnored) {
  NuvFdSet set;
  set.Set(1023);
  set.Set(1024);
  set.Set(INT_MAX);
  EXPECT_EQ(set.GetFdMax(), 1024);
  EXPECT_EQ(set.Word(NuvFdSet::kWords - 1), 0x80000000U);
  EXPECT_TRUE(set.FIsSet(1023));
  EXPECT_FALSE(set.FIsSet(1024));
  EXPECT_FALSE(set.FIsSet(INT_MAX));
}

TEST(FdSetRobustness, ClearOutsideTheSetChangesNothing) {
  NuvFdSet set;
  set.Set(0);
  set.Set(1023);
  set.Clear(-1);
  set.Clear(-32);
  set.Clear(1024);
  set.Clear(INT_MAX);
  EXPECT_TRUE(set.FIsSet(0));
  EXPECT_TRUE(set.FIsSet(1023));
  EXPECT_EQ(set.GetFdMax(), 1024);
}

TEST(FdSetRobustness, WordOutsideTheSetIsZero) {
  NuvFdSet set;
  for (int fd = 0; fd < NuvFdSet::kDescriptors; ++fd) {
    set.Set(fd);
  }
  EXPECT_EQ(set.Word(0), 0xFFFFFFFFU);
  EXPECT_EQ(set.Word(-1), 0U);
  EXPECT_EQ(set.Word(NuvFdSet::kWords), 0U);
}

}  // namespace
