/// \file Framed records on a socket: the bytes on the wire, Send and Receive between processes and
/// with a peer that does not use the library, and every bad record.
#include <nuv/logger.h>
#include <nuv/socket.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <sys/wait.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "net/socket_fixture.h"
#include "support/child_process.h"
#include "support/log_lines.h"
#include "support/polling.h"
#include "support/process_state.h"

namespace {

using nuv::test::ChildOutcome;
using nuv::test::ChildProcess;
using nuv::test::kDebugRecordValue;
using nuv::test::NativeHeader;
using nuv::test::SocketTest;
using nuv::test::WriteRaw;

constexpr int kOk = static_cast<int>(kNuvOk);
constexpr int kEndOfFile = static_cast<int>(kNuvEndOfFile);

bool IsBigEndian() {
  const uint32_t probe = 1;
  unsigned char first = 0;
  memcpy(&first, &probe, 1);
  return first == 0;
}

std::string Hex(const std::vector<unsigned char>& bytes) {
  std::string hex;
  char pair[3];
  for (const unsigned char byte : bytes) {
    snprintf(pair, sizeof pair, "%02x", byte);
    hex += pair;
  }
  return hex;
}

std::vector<unsigned char> Payload(size_t length, unsigned char first = 1) {
  std::vector<unsigned char> payload(length);
  for (size_t i = 0; i < length; ++i) {
    payload[i] = static_cast<unsigned char>(first + i * 7);
  }
  return payload;
}

// Everything that can be read from fd now and until its peer closes.
std::vector<unsigned char> ReadToEnd(int fd) {
  std::vector<unsigned char> bytes;
  unsigned char buffer[4096];
  ssize_t got = 0;
  while ((got = read(fd, buffer, sizeof buffer)) > 0) {
    bytes.insert(bytes.end(), buffer, buffer + got);
  }
  return bytes;
}

using EventBytes = SocketTest;

TEST_F(EventBytes, SendOfTwelveBytesWritesTwentyBytes) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const std::vector<unsigned char> payload = Payload(12);
  ASSERT_EQ(Client()->Send(payload.data(), 12), kOk);
  Client() = nullptr;
  std::vector<unsigned char> expected = NativeHeader(kNuvEventMagic, 12);
  expected.insert(expected.end(), payload.begin(), payload.end());
  EXPECT_EQ(Hex(ReadToEnd(Accepted()->GetFd())), Hex(expected));
}

TEST_F(EventBytes, HeaderIsInTheWritersByteOrder) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const unsigned char payload[3] = {'a', 'b', 'c'};
  ASSERT_EQ(Client()->Send(payload, 3), kOk);
  Client() = nullptr;
  const std::string big = "2064a8ec00000003616263";
  const std::string little = "eca8642003000000616263";
  EXPECT_EQ(Hex(ReadToEnd(Accepted()->GetFd())), IsBigEndian() ? big : little);
}

TEST_F(EventBytes, EmptyEventIsTheHeaderAlone) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  ASSERT_EQ(Client()->Send(nullptr, 0), kOk);
  Client() = nullptr;
  EXPECT_EQ(Hex(ReadToEnd(Accepted()->GetFd())), Hex(NativeHeader(kNuvEventMagic, 0)));
}

using EventExchange = SocketTest;

TEST_F(EventExchange, ReceiveGivesThePayloadThatWasSent) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const std::vector<unsigned char> payload = Payload(64);
  ASSERT_EQ(Client()->Send(payload.data(), 64), kOk);
  std::vector<unsigned char> received(64);
  ASSERT_EQ(Accepted()->Receive(received.data(), 64), kOk);
  EXPECT_EQ(received, payload);
}

TEST_F(EventExchange, EmptyEventIsReceived) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  ASSERT_EQ(Client()->Send(nullptr, 0), kOk);
  EXPECT_EQ(Accepted()->Receive(nullptr, 0), kOk);
}

TEST_F(EventExchange, EventsLargerThanTheSocketBufferArriveWhole) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const unsigned length = 1U << 20;
  const std::vector<unsigned char> payload = Payload(length, 3);
  ChildProcess sender([&] { _exit(Client()->Send(payload.data(), length) == kOk ? 0 : 1); });
  std::vector<unsigned char> received(length);
  EXPECT_EQ(Accepted()->Receive(received.data(), length), kOk);
  EXPECT_TRUE(received == payload);
  const ChildOutcome outcome = sender.Finish();
  EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.status;
}

TEST_F(EventExchange, EventsAroundTheSingleWriteSizeKeepTheirBoundaries) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const unsigned lengths[] = {4087, 4088, 4089, 8200, 1};
  ChildProcess sender([&] {
    for (const unsigned length : lengths) {
      const std::vector<unsigned char> payload =
          Payload(length, static_cast<unsigned char>(length));
      if (Client()->Send(payload.data(), length) != kOk) {
        _exit(1);
      }
    }
    _exit(0);
  });
  for (const unsigned length : lengths) {
    std::vector<unsigned char> received(length);
    ASSERT_EQ(Accepted()->Receive(received.data(), length), kOk) << length;
    EXPECT_TRUE(received == Payload(length, static_cast<unsigned char>(length))) << length;
  }
  const ChildOutcome outcome = sender.Finish();
  EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.status;
}

TEST_F(EventExchange, RecordsTravelBothWaysBetweenProcesses) {
  ASSERT_NO_FATAL_FAILURE(Listen());
  // The child connects on its own and echoes three records back, each one increased by one.
  ChildProcess peer([&] {
    ref<NuvSocket> socket;
    if (NuvSocket::Connect(Pool(), Path(), socket) != kOk) {
      _exit(1);
    }
    for (int i = 0; i < 3; ++i) {
      uint32_t value = 0;
      if (socket->Receive(&value, sizeof value) != kOk) {
        _exit(2);
      }
      ++value;
      if (socket->Send(&value, sizeof value) != kOk) {
        _exit(3);
      }
    }
    _exit(0);
  });
  ref<NuvSocket> accepted;
  ASSERT_EQ(Server()->Accept(accepted), kOk);
  for (uint32_t sent = 10; sent < 13; ++sent) {
    uint32_t back = 0;
    ASSERT_EQ(accepted->Send(&sent, sizeof sent), kOk);
    ASSERT_EQ(accepted->Receive(&back, sizeof back), kOk);
    EXPECT_EQ(back, sent + 1);
  }
  const ChildOutcome outcome = peer.Finish();
  EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.status;
}

using RawPeer = SocketTest;

TEST_F(RawPeer, RecordWrittenByAPeerWithoutTheLibraryIsReceived) {
  ASSERT_NO_FATAL_FAILURE(Listen());
  std::vector<unsigned char> record = NativeHeader(kNuvEventMagic, 5);
  const std::vector<unsigned char> payload = {'h', 'e', 'l', 'l', 'o'};
  record.insert(record.end(), payload.begin(), payload.end());
  const ChildOutcome peer = nuv::test::RunProgram(nuv::test::HelperPath("raw_peer_helper"),
                                                  {"write", Path(), Hex(record)});
  ASSERT_TRUE(peer.Exited() && peer.ExitCode() == 0) << peer.err;
  ref<NuvSocket> accepted;
  ASSERT_EQ(Server()->Accept(accepted), kOk);
  std::vector<unsigned char> received(5);
  ASSERT_EQ(accepted->Receive(received.data(), 5), kOk);
  EXPECT_EQ(received, payload);
}

TEST_F(RawPeer, RecordSentByTheLibraryIsReadByteForByte) {
  ASSERT_NO_FATAL_FAILURE(Listen());
  const std::vector<unsigned char> payload = Payload(40);
  auto peer =
      nuv::test::StartProgram(nuv::test::HelperPath("raw_peer_helper"), {"read", Path(), "48"});
  ref<NuvSocket> accepted;
  ASSERT_EQ(Server()->Accept(accepted), kOk);
  ASSERT_EQ(accepted->Send(payload.data(), 40), kOk);
  const ChildOutcome outcome = peer->Finish();
  ASSERT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.err;
  std::vector<unsigned char> expected = NativeHeader(kNuvEventMagic, 40);
  expected.insert(expected.end(), payload.begin(), payload.end());
  EXPECT_EQ(outcome.out, Hex(expected) + "\n");
}

using BadEvent = SocketTest;

// A receive run in a child, whose records go to its standard output with debug records on.
struct ChildReceive {
  ChildOutcome outcome;

  // The child's "pridebug" records under the tag "NuvSocket".
  std::vector<std::string> Records() const {
    return nuv::test::LogRecords(outcome.out, kDebugRecordValue, "NuvSocket", outcome.pid);
  }
  // Receive's result, told by the exit code; 100 when the caller's buffer was written.
  int Result() const { return outcome.Exited() ? outcome.ExitCode() : -1; }
};

constexpr unsigned char kUntouched = 0xA5;

// Receives length bytes in a child; its exit code is the result's low byte (5, 6 or 7 for
// 0x50005 to 0x50007, 0 for success), or 100 when a failing receive wrote the caller's buffer.
std::unique_ptr<ChildProcess> StartReceive(NuvSocket* socket, unsigned length) {
  return std::make_unique<ChildProcess>([=] {
    NuvLogger::MinLog(NuvLogger::pridebug);
    std::vector<unsigned char> data(length, kUntouched);
    const int got = socket->Receive(data.data(), length);
    const bool untouched = std::all_of(data.begin(), data.end(),
                                       [](unsigned char byte) { return byte == kUntouched; });
    std::fflush(nullptr);
    _exit(got != kOk && !untouched ? 100 : got & 0xff);
  });
}

ChildReceive ReceiveInChild(NuvSocket* socket, unsigned length) {
  return {StartReceive(socket, length)->Finish()};
}

// What a child's exit code says of each result.
constexpr int kExitBadRecord = 7;
constexpr int kExitEndOfFile = 6;

// Bytes that are still waiting on fd, without waiting for more.
size_t Waiting(int fd) {
  unsigned char buffer[16384];
  const ssize_t got = recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
  return got > 0 ? static_cast<size_t>(got) : 0;
}

TEST_F(BadEvent, ReceiveWithAShorterLengthLogsBothSizesAndReadsOnlyItsOwnLength) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const std::vector<unsigned char> payload = Payload(12);
  ASSERT_EQ(Client()->Send(payload.data(), 12), kOk);
  const ChildReceive receive = ReceiveInChild(Accepted().get(), 8);
  EXPECT_EQ(receive.Result(), kExitBadRecord) << receive.outcome.out;
  EXPECT_EQ(receive.Records(), std::vector<std::string>{"Bad event size: 12 versus 8"});
  // The stream is out of step: the last four bytes of the payload are still there.
  EXPECT_EQ(Waiting(Accepted()->GetFd()), 4U);
}

TEST_F(BadEvent, ReceiveWithALongerLengthWaitsForThatManyBytes) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const std::vector<unsigned char> payload = Payload(12);
  ASSERT_EQ(Client()->Send(payload.data(), 12), kOk);
  std::unique_ptr<ChildProcess> child = StartReceive(Accepted().get(), 16);
  const int pid = child->Pid();
  ASSERT_TRUE(nuv::test::WaitUntil([pid] { return nuv::test::ProcessState(pid) == 'S'; }));
  EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), 0) << "the receive did not wait";
  ASSERT_NO_FATAL_FAILURE(WriteRaw(Client()->GetFd(), Payload(4)));
  const ChildReceive receive{child->Finish()};
  EXPECT_EQ(receive.Result(), kExitBadRecord);
  EXPECT_EQ(receive.Records(), std::vector<std::string>{"Bad event size: 12 versus 16"});
}

TEST_F(BadEvent, WrongMagicIsLoggedInHexAndFails) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  std::vector<unsigned char> record = NativeHeader(0x12345678, 4);
  record.resize(12, 'x');
  ASSERT_NO_FATAL_FAILURE(WriteRaw(Client()->GetFd(), record));
  const ChildReceive receive = ReceiveInChild(Accepted().get(), 4);
  EXPECT_EQ(receive.Result(), kExitBadRecord);
  EXPECT_EQ(receive.Records(), std::vector<std::string>{"Bad magic on event read: 0x12345678"});
  EXPECT_EQ(Waiting(Accepted()->GetFd()), 0U);
}

TEST_F(BadEvent, WrongMagicIsReportedBeforeAWrongSize) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  std::vector<unsigned char> record = NativeHeader(0xdeadbeef, 99);
  record.resize(12, 'x');
  ASSERT_NO_FATAL_FAILURE(WriteRaw(Client()->GetFd(), record));
  const ChildReceive receive = ReceiveInChild(Accepted().get(), 4);
  EXPECT_EQ(receive.Result(), kExitBadRecord);
  EXPECT_EQ(receive.Records(), std::vector<std::string>{"Bad magic on event read: 0xdeadbeef"});
}

TEST_F(BadEvent, LongBadEventIsConsumedWholeAndTheNextOneIsRead) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const unsigned length = 6000;
  std::vector<unsigned char> record = NativeHeader(kNuvEventMagic, static_cast<int>(length - 1));
  const std::vector<unsigned char> payload = Payload(length);
  record.insert(record.end(), payload.begin(), payload.end());
  ChildProcess writer([&] {
    WriteRaw(Client()->GetFd(), record);
    _exit(Client()->Send(payload.data(), length) == kOk ? 0 : 1);
  });
  const ChildReceive receive = ReceiveInChild(Accepted().get(), length);
  EXPECT_EQ(receive.Result(), kExitBadRecord);
  EXPECT_EQ(receive.Records(), std::vector<std::string>{"Bad event size: 5999 versus 6000"});
  std::vector<unsigned char> next(length);
  EXPECT_EQ(Accepted()->Receive(next.data(), length), kOk);
  EXPECT_TRUE(next == payload);
  EXPECT_EQ(writer.Finish().ExitCode(), 0);
}

TEST_F(BadEvent, ReceiveOnASocketWhosePeerClosedReturnsEndOfFile) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  Client() = nullptr;
  const ChildReceive receive = ReceiveInChild(Accepted().get(), 12);
  EXPECT_EQ(receive.Result(), kExitEndOfFile);
  EXPECT_TRUE(receive.Records().empty());
}

TEST_F(BadEvent, PeerClosingInsideAnEventGivesEndOfFile) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  std::vector<unsigned char> part = NativeHeader(kNuvEventMagic, 12);
  part.resize(14, 'x');
  ASSERT_NO_FATAL_FAILURE(WriteRaw(Client()->GetFd(), part));
  Client() = nullptr;
  EXPECT_EQ(ReceiveInChild(Accepted().get(), 12).Result(), kExitEndOfFile);
}

TEST_F(BadEvent, PeerClosingInsideALongEventGivesEndOfFile) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  std::vector<unsigned char> part = NativeHeader(kNuvEventMagic, 9000);
  part.resize(6000, 'x');
  ChildProcess writer([&] {
    WriteRaw(Client()->GetFd(), part);
    _exit(0);
  });
  EXPECT_EQ(writer.Finish().ExitCode(), 0);
  Client() = nullptr;
  std::vector<unsigned char> data(9000);
  EXPECT_EQ(Accepted()->Receive(data.data(), 9000), kEndOfFile);
}

TEST_F(BadEvent, ReadThatFailsGivesSocketFailed) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  ASSERT_EQ(Accepted()->CloseFd(), 0);
  unsigned char data[4] = {};
  EXPECT_EQ(Accepted()->Receive(data, 4), static_cast<int>(kNuvSocketFailed));
}

TEST_F(BadEvent, WriteThatFailsGivesSocketFailed) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  ASSERT_EQ(Client()->CloseFd(), 0);
  const unsigned char byte = 1;
  EXPECT_EQ(Client()->Send(&byte, 1), static_cast<int>(kNuvSocketFailed));
}

}  // namespace
