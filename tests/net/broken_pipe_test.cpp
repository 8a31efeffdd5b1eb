/// \file A peer that goes away during Send or Receive: the transfer returns end of file, and the
/// process's own SIGPIPE action is in force again afterwards, in a thread process too.
#include <nuv/fatal.h>
#include <nuv/os_thread.h>
#include <nuv/socket.h>
#include <nuv/status.h>
#include <nuv/thread.h>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "net/socket_fixture.h"
#include "support/child_process.h"
#include "support/polling.h"
#include "support/process_state.h"
#include "thread/thread_pool.h"

namespace {

using nuv::test::ChildOutcome;
using nuv::test::ChildProcess;
using nuv::test::SocketTest;

constexpr int kOk = static_cast<int>(kNuvOk);
constexpr int kEndOfFile = static_cast<int>(kNuvEndOfFile);
// Far more than the socket buffers hold: the writer is still writing when the peer goes.
constexpr unsigned kLongEvent = 4U << 20;
// What the peer reads before it goes away.
constexpr size_t kPeerReads = 100;

volatile sig_atomic_t counted = 0;
void CountSignal(int /*signal*/) { counted = counted + 1; }

// A peer that accepts one connection, reads a little of it and goes away.
void AcceptReadALittleAndGo(NuvServer* server) {
  ref<NuvSocket> accepted;
  if (server->Accept(accepted) != kOk) {
    _exit(1);
  }
  std::vector<unsigned char> some(kPeerReads);
  _exit(ReadN(accepted->GetFd(), some.data(), kPeerReads) == kOk ? 0 : 2);
}

// Sets SIGPIPE to count during each test and puts back the action it had.
class BrokenPipe : public SocketTest {
 protected:
  void SetUp() override {
    SocketTest::SetUp();
    struct sigaction counting {};
    counting.sa_handler = CountSignal;
    sigemptyset(&counting.sa_mask);
    ASSERT_EQ(sigaction(SIGPIPE, &counting, &savedM), 0);
    counted = 0;
  }
  void TearDown() override {
    sigaction(SIGPIPE, &savedM, nullptr);
    SocketTest::TearDown();
  }

  static void (*CurrentSigpipeHandler())(int) {
    struct sigaction current {};
    sigaction(SIGPIPE, nullptr, &current);
    return current.sa_handler;
  }
  static bool SigpipeBlocked() {
    sigset_t mask;
    sigprocmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, SIGPIPE) == 1;
  }

 private:
  struct sigaction savedM {};
};

TEST_F(BrokenPipe, PeerClosingDuringSendGivesEndOfFile) {
  ASSERT_NO_FATAL_FAILURE(Listen());
  ChildProcess peer([this] { AcceptReadALittleAndGo(Server().get()); });
  ASSERT_EQ(NuvSocket::Connect(Pool(), Path(), Client()), kOk);
  const std::vector<unsigned char> payload(kLongEvent, 0x5A);
  EXPECT_EQ(Client()->Send(payload.data(), kLongEvent), kEndOfFile);
  const ChildOutcome outcome = peer.Finish();
  EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.status;
}

TEST_F(BrokenPipe, PreviousSigpipeActionIsInForceAfterEndOfFile) {
  ASSERT_NO_FATAL_FAILURE(Listen());
  ChildProcess peer([this] { AcceptReadALittleAndGo(Server().get()); });
  ASSERT_EQ(NuvSocket::Connect(Pool(), Path(), Client()), kOk);
  const std::vector<unsigned char> payload(kLongEvent, 0x5A);
  ASSERT_EQ(Client()->Send(payload.data(), kLongEvent), kEndOfFile);
  EXPECT_EQ(CurrentSigpipeHandler(), CountSignal);
  EXPECT_FALSE(SigpipeBlocked());
  EXPECT_EQ(counted, 0);
  raise(SIGPIPE);
  EXPECT_EQ(counted, 1);
}

TEST_F(BrokenPipe, SendToAPeerAlreadyGoneGivesEndOfFile) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  Accepted() = nullptr;
  const unsigned value = 1;
  EXPECT_EQ(Client()->Send(&value, sizeof value), kEndOfFile);
  EXPECT_EQ(counted, 0);
  EXPECT_EQ(CurrentSigpipeHandler(), CountSignal);
}

TEST_F(BrokenPipe, IgnoredSigpipeStaysIgnoredAfterEndOfFile) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  signal(SIGPIPE, SIG_IGN);
  Accepted() = nullptr;
  const unsigned value = 1;
  EXPECT_EQ(Client()->Send(&value, sizeof value), kEndOfFile);
  EXPECT_EQ(CurrentSigpipeHandler(), SIG_IGN);
}

TEST_F(BrokenPipe, SuccessfulTransfersPutThePreviousActionBack) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const unsigned value = 3;
  unsigned got = 0;
  ASSERT_EQ(Client()->Send(&value, sizeof value), kOk);
  EXPECT_EQ(CurrentSigpipeHandler(), CountSignal);
  ASSERT_EQ(Accepted()->Receive(&got, sizeof got), kOk);
  EXPECT_EQ(CurrentSigpipeHandler(), CountSignal);
  EXPECT_EQ(got, value);
}

TEST_F(BrokenPipe, SigpipeDuringAWaitingReceiveGivesEndOfFile) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  ChildProcess receiver([this] {
    unsigned got = 0;
    const int result = Accepted()->Receive(&got, sizeof got);
    struct sigaction after {};
    sigaction(SIGPIPE, nullptr, &after);
    _exit(result == kEndOfFile && after.sa_handler == CountSignal && counted == 0 ? 0 : 1);
  });
  const int pid = receiver.Pid();
  ASSERT_TRUE(nuv::test::WaitUntil([pid] { return nuv::test::ProcessState(pid) == 'S'; }));
  kill(pid, SIGPIPE);
  const ChildOutcome outcome = receiver.Finish();
  EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.status;
}

// In a thread process SIGPIPE goes to the fatal handler: the thread's own Send must still come
// back with end of file, and a later broken pipe outside a transfer must still be fatal.
int peerEnd = -1;
int threadEnd = -1;

int SendIntoAVanishingPeer(long /*arg*/) {
  close(peerEnd);
  ref<NuvSocket> socket(new (pCurrentThreadG->GetPool()) NuvSocket(threadEnd));
  const std::vector<unsigned char> payload(kLongEvent, 0x33);
  if (socket->Send(payload.data(), kLongEvent) != kEndOfFile) {
    return 1;
  }
  struct sigaction after {};
  sigaction(SIGPIPE, nullptr, &after);
  if ((after.sa_flags & SA_SIGINFO) == 0 || after.sa_sigaction != NuvStraySignalHandler) {
    return 2;
  }
  const unsigned char byte = 0;
  write(threadEnd, &byte, 1);  // a broken pipe outside a transfer: the fatal path
  return 3;
}

void ReadALittleAndGo(NuvThread* /*thread*/) {
  close(threadEnd);
  std::vector<unsigned char> some(kPeerReads);
  ReadN(peerEnd, some.data(), kPeerReads);
  close(peerEnd);
}

class ThreadBrokenPipe : public nuv::test::ThreadPoolTest {};

TEST_F(ThreadBrokenPipe, SendInAThreadGivesEndOfFileAndSigpipeStaysFatal) {
  const ChildOutcome outcome = nuv::test::RunInChild([this] {
    int ends[2];
    socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
    threadEnd = ends[0];
    peerEnd = ends[1];
    pCurrentThreadG = nullptr;
    auto* thread = new (Pool()) NuvThread(SendIntoAVanishingPeer, "sender");
    thread->Start(0);
    ReadALittleAndGo(thread);
    const int status = NuvOsThread::Wait(thread->GetId(), nullptr);
    printf("ended: %d %d\n", status, thread->GetId());
  });
  int status = 0;
  int pid = 0;
  const size_t at = outcome.out.find("ended: ");
  ASSERT_NE(at, std::string::npos) << outcome.out << outcome.err;
  sscanf(outcome.out.c_str() + at, "ended: %d %d", &status, &pid);
  ASSERT_TRUE(WIFSIGNALED(status)) << "the thread returned " << WEXITSTATUS(status);
  EXPECT_EQ(WTERMSIG(status), SIGPIPE);
  const std::string fatal = "Nuv Fatal Error: Thread sender <" + std::to_string(pid) +
                            "> died due to signal " + std::to_string(SIGPIPE);
  EXPECT_EQ(outcome.err.rfind(fatal, 0), 0U) << outcome.err;
}

}  // namespace
