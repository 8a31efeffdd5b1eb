/// \file A thread's queue, its command channel, and blocking a thread until another wakes it.
#include <nuv/messenger.h>
#include <nuv/os_thread.h>
#include <nuv/thread.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>
#include <cstdio>
#include <string>

#include "support/fatal_report.h"
#include "support/polling.h"
#include "support/process_state.h"
#include "thread/thread_pool.h"

namespace {

using nuv::test::ProcessState;

using nuv::test::ThreadPoolTest;
using nuv::test::WaitUntil;

struct Exchange {
  volatile int ready;
  volatile int result;
  volatile int readFd;
  volatile int writeFd;
  char bytes[8];
};

Exchange* ExchangeOf(long arg) { return reinterpret_cast<Exchange*>(arg); }
long ArgOf(Exchange* exchange) { return reinterpret_cast<long>(exchange); }

int EchoThreeMessages(long /*arg*/) {
  NuvThread* parent = pCurrentThreadG->PParent();
  for (int count = 0; count < 3; ++count) {
    NuvMessage message{};
    pCurrentThreadG->NextMessage(message, nullptr);
    parent->SendMessage(message, nullptr);
  }
  parent->DownRef();
  return 0;
}

int BlockUntilWoken(long arg) {
  NuvTime below10ms{5000000};
  pCurrentThreadG->block(nullptr, &below10ms);
  ExchangeOf(arg)->ready = 1;
  ExchangeOf(arg)->result = pCurrentThreadG->block(nullptr, nullptr);
  return 0;
}

int ReadCommand(long arg) {
  Exchange* exchange = ExchangeOf(arg);
  exchange->readFd = pCurrentThreadG->GetCommandChannelReadFd();
  exchange->writeFd = pCurrentThreadG->GetCommandChannelWriteFd();
  exchange->result = static_cast<int>(read(exchange->readFd, exchange->bytes, 2));
  return 0;
}

class ThreadMessages : public ThreadPoolTest {};

TEST_F(ThreadMessages, ReachTheThreadThroughItsQueueFirstInFirstOut) {
  NuvThread* thread = MakeThread(EchoThreeMessages, "echo");
  ASSERT_EQ(thread->Start(0), 0U);
  for (unsigned type = 1; type <= 3; ++type) {
    NuvMessage message{type, {type * 10, 0, 0, 0, 0, type}};
    ASSERT_EQ(thread->SendMessage(message, nullptr), kNuvMessageDone);
  }
  for (unsigned type = 1; type <= 3; ++type) {
    NuvMessage message{};
    ASSERT_EQ(Tester()->NextMessage(message, nullptr), kNuvMessageDone);
    EXPECT_EQ(message.type, type);
    EXPECT_EQ(message.payload[0], type * 10);
    EXPECT_EQ(message.payload[5], type);
  }
  thread->Join();
  thread->DownRef();
}

TEST_F(ThreadMessages, InextWithNoWaitOnAnEmptyQueueReturnsQueueEmpty) {
  NuvMessage message{};
  NuvTime twentyMs{20000000};
  EXPECT_EQ(Tester()->inext(message, 5, &twentyMs), kNuvQueueEmpty);
}

TEST_F(ThreadMessages, NextMessageWithATwentyMillisecondTimeOutReturnsTimedOut) {
  NuvMessage message{};
  NuvTime twentyMs{20000000};
  EXPECT_EQ(Tester()->NextMessage(message, &twentyMs), kNuvReceiveTimedOut);
}

TEST_F(ThreadMessages, FlushMessageQueueDiscardsEveryMessage) {
  NuvMessage message{9, {}};
  Tester()->SendMessage(message, nullptr);
  Tester()->isend(message, 0, nullptr);
  Tester()->FlushMessageQueue();
  EXPECT_EQ(Tester()->inext(message, 1, nullptr), kNuvQueueEmpty);
}

TEST_F(ThreadMessages, SendingToAThreadNeverStartedFindsNoQueue) {
  NuvThread* thread = MakeThread(EchoThreeMessages, "unstarted");
  NuvMessage message{1, {}};
  EXPECT_EQ(thread->SendMessage(message, nullptr), kNuvNoSuchQueue);
  thread->DownRef();
}

TEST_F(ThreadMessages, BlockOnAThreadNotRunningReturnsMinusOneAndReleasesTheWord) {
  NuvThread* thread = MakeThread(EchoThreeMessages, "idle");
  volatile NuvLock word = 1;
  EXPECT_EQ(thread->block(&word, nullptr), -1);
  EXPECT_EQ(word, 0U);
  thread->DownRef();
}

TEST_F(ThreadMessages, UnblockBeforeBlockMakesTheLaterBlockReturnZeroAtOnce) {
  NuvTime below10ms{5000000};
  EXPECT_EQ(Tester()->block(nullptr, &below10ms), -1);
  Tester()->unblock();
  EXPECT_EQ(Tester()->block(nullptr, nullptr), 0);
}

TEST_F(ThreadMessages, UnblockBeforeTheFirstBlockStopsAtAssertion617OfUnblock) {
  const nuv::test::FatalReport report =
      nuv::test::RunToFatalReport([this] { Tester()->unblock(); });
  nuv::test::ExpectLibraryAssertion(report, "unblock", 617);
}

TEST_F(ThreadMessages, UnblockFromAnotherProcessWakesABlockedThreadWithOne) {
  auto* exchange = Shared<Exchange>();
  exchange->result = -5;
  NuvThread* thread = MakeThread(BlockUntilWoken, "sleeper");
  ASSERT_EQ(thread->Start(ArgOf(exchange)), 0U);
  ASSERT_TRUE(WaitUntil([exchange] { return exchange->ready == 1; }));
  ASSERT_TRUE(WaitUntil([thread] { return ProcessState(thread->GetId()) == 'S'; }));
  thread->unblock();
  thread->Join();
  EXPECT_EQ(exchange->result, 1);
  thread->DownRef();
}

TEST_F(ThreadMessages, CommandChannelCarriesBytesFromTheParentToTheThread) {
  auto* exchange = Shared<Exchange>();
  NuvThread* thread = MakeThread(ReadCommand, "commanded");
  thread->OpenCommandChannel();
  EXPECT_EQ(thread->isOpenCommandChannel(), 1);
  ASSERT_EQ(thread->Start(ArgOf(exchange)), 0U);
  const int writeFd = thread->GetCommandChannelWriteFd();
  EXPECT_EQ(thread->GetCommandChannelReadFd(), -1);
  ASSERT_GE(writeFd, 0);
  ASSERT_EQ(write(writeFd, "go", 2), 2);
  thread->Join();
  EXPECT_EQ(exchange->result, 2);
  EXPECT_EQ(std::string(exchange->bytes, 2), "go");
  EXPECT_GE(exchange->readFd, 0);
  EXPECT_EQ(exchange->writeFd, -1);
  thread->DownRef();
  EXPECT_EQ(fcntl(writeFd, F_GETFD), -1) << "the destructor closes the parent's end";
}

TEST_F(ThreadMessages, WithoutACommandChannelBothEndsAreMinusOne) {
  auto* exchange = Shared<Exchange>();
  NuvThread* thread = MakeThread(ReadCommand, "plain");
  ASSERT_EQ(thread->Start(ArgOf(exchange)), 0U);
  EXPECT_EQ(thread->GetCommandChannelWriteFd(), -1);
  thread->Join();
  EXPECT_EQ(exchange->readFd, -1);
  EXPECT_EQ(exchange->result, -1);
  thread->DownRef();
}

}  // namespace
