/// \file NuvMessenger and NuvMessageQ: queue numbers, results, order, filtering and waiting
/// receivers, within a process and across processes.
#include <nuv/lockword.h>
#include <nuv/mempool.h>
#include <nuv/messenger.h>
#include <nuv/semaphore.h>
#include <nuv/status.h>
#include <nuv/time.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <thread>
#include <vector>

#include "support/child_process.h"
#include "support/durations.h"
#include "support/polling.h"
#include "support/pool_prefix.h"
#include "support/pool_usage.h"
#include "support/raw_words.h"
#include "support/round_trips.h"
#include "support/shared_memory.h"

namespace {

using nuv::test::InfoWord;
using nuv::test::InUse;
using nuv::test::Milliseconds;

using nuv::test::ChildOutcome;
using nuv::test::ChildProcess;
using nuv::test::ScopedPoolPrefix;
using nuv::test::SharedObject;
using nuv::test::WaitUntil;
using nuv::test::WordAt;
using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr const char* kPoolName = "messenger";
// Room for every message of the many-process test queued at once.
constexpr unsigned kPoolSize = 2 * 1024 * 1024;
// Offsets the pool format fixes: the messenger's list head, and a queue's semaphores and link.
constexpr unsigned kQueueListOffset = 16;
constexpr unsigned kReceiveSemaphoreOffset = 28;
constexpr unsigned kSizeSemaphoreOffset = 32;
constexpr unsigned kNextQueueOffset = 36;
constexpr unsigned kQueueHeadOffset = 12;
constexpr unsigned kNodeBytes = 32;
constexpr unsigned kNodeBlockSize = 40;
constexpr unsigned kQueueBytes = 40;
constexpr unsigned kSemaphoreBytes = 32;
// How long the parent waits for a child to reach a state or to end.
constexpr milliseconds kStepDeadline{3000};

// The many-process test: four senders, two receivers, one queue.
constexpr unsigned kSenders = 4;
constexpr unsigned kReceivers = 2;
constexpr unsigned kMessagesPerSender = 5000;
constexpr unsigned kAllMessages = kSenders * kMessagesPerSender;
// A receiver's bounded wait: a sender's look at the receive semaphore is made without its lock
// word, so a wake-up can be missed by design; the receiver then looks at the queue again.
constexpr int64_t kReceivePatienceMs = 50;
constexpr milliseconds kManyProcessDeadline{8000};

// What a child received or created, in memory that the parent reads.
struct Reception {
  volatile unsigned go;    // raised by the parent to let the child go on
  volatile unsigned done;  // set by the child once its operation has returned
  volatile unsigned result;
  volatile int64_t elapsedUs;
  NuvMessage message;
};

// The receivers' tally of the many-process test.
struct Delivery {
  volatile unsigned received;
  volatile unsigned failures;    // results other than done or timed out
  volatile unsigned damaged;     // a word not as sent
  volatile unsigned outOfOrder;  // a sender's message after a later one of the same sender
  volatile unsigned copies[kSenders][kMessagesPerSender];
};

unsigned predicateCalls = 0;

// A message whose seven words all differ and follow from type and serial; payload word 0 is the
// serial itself.
NuvMessage MessageOf(unsigned type, unsigned serial) {
  NuvMessage message{type, {serial}};
  for (unsigned word = 1; word < 6; ++word) {
    message.payload[word] = serial * 2654435761U + type * 40503U + word * 0x9E3779B9U;
  }
  return message;
}

std::vector<unsigned> Words(const NuvMessage& message) {
  std::vector<unsigned> words = {message.type};
  words.insert(words.end(), std::begin(message.payload), std::end(message.payload));
  return words;
}

bool TypeIs(NuvMessage* message, unsigned long type) { return message->type == type; }

bool Always(NuvMessage* /*message*/, unsigned long /*argument*/) { return true; }

bool CountCall(NuvMessage* /*message*/, unsigned long /*argument*/) {
  ++predicateCalls;
  return false;
}

// The pointer stored at offset in object, as every process of the pool reads it.
template <typename T>
T* PointerAt(const void* object, unsigned offset) {
  return reinterpret_cast<T*>(WordAt(static_cast<const char*>(object) + offset));
}

unsigned BlockHeader(const void* payload) { return WordAt(static_cast<const char*>(payload) - 8); }

// In a child: waits until the parent has raised go (the parent's deadline ends a child that
// waits for ever).
void AwaitGo(const Reception* reception) {
  while (reception->go == 0) {
    std::this_thread::sleep_for(milliseconds(1));
  }
}

::testing::AssertionResult Completed(const ChildOutcome& outcome) {
  if (outcome.Exited() && outcome.ExitCode() == 0) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure()
         << (outcome.timedOut ? "killed at its deadline" : "failed") << ": " << outcome.err;
}

milliseconds Remaining(Clock::time_point giveUp) {
  return std::max(milliseconds(0), std::chrono::duration_cast<milliseconds>(giveUp - Clock::now()));
}

// Blocks and payload bytes of the library's own user.
std::vector<unsigned> NuvUsage(const NuvMempool* pool) {
  return {InfoWord(pool, NuvMempoolInfo::kUserBlocks + NuvMempool::nuv),
          InfoWord(pool, NuvMempoolInfo::kUserBlockBytes + NuvMempool::nuv)};
}

// Counts a received message of the many-process test; last holds the latest serial seen from
// each sender by this receiver.
void Tally(const NuvMessage& message, Delivery* delivery, int64_t* last) {
  const unsigned sender = message.type;
  const unsigned serial = message.payload[0];
  if (sender >= kSenders || serial >= kMessagesPerSender ||
      Words(message) != Words(MessageOf(sender, serial))) {
    fadd(&delivery->damaged, 1);
    return;
  }
  fadd(&delivery->copies[sender][serial], 1);
  if (static_cast<int64_t>(serial) <= last[sender]) {
    fadd(&delivery->outOfOrder, 1);
  }
  last[sender] = serial;
}

void ReceiveUntilAllArrived(NuvMessenger* queues, int number, Delivery* delivery) {
  int64_t last[kSenders];
  std::fill(std::begin(last), std::end(last), -1);
  NuvTime patience = Milliseconds(kReceivePatienceMs);
  while (delivery->received < kAllMessages) {
    NuvMessage message{};
    const unsigned result = queues->irecv(number, message, 0, &patience);
    if (result == kNuvReceiveTimedOut) {
      continue;
    }
    if (result != kNuvMessageDone) {
      fadd(&delivery->failures, 1);
      return;
    }
    fadd(&delivery->received, 1);
    Tally(message, delivery, last);
  }
}

void SendAll(NuvMessenger* queues, int number, unsigned sender, Delivery* delivery) {
  for (unsigned serial = 0; serial < kMessagesPerSender; ++serial) {
    NuvMessage message = MessageOf(sender, serial);
    if (queues->isend(number, message, 0, nullptr) != kNuvMessageDone) {
      fadd(&delivery->failures, 1);
    }
  }
}

class Messenger : public ::testing::Test {
 protected:
  void SetUp() override {
    // As in thread processes: a wake-up or time-out that arrives outside a wait is lost
    // harmlessly. Children inherit both.
    previousUsr1M = signal(SIGUSR1, SIG_IGN);
    previousAlrmM = signal(SIGALRM, SIG_IGN);
    ASSERT_EQ(NuvMempool::Allocate(kPoolName, kPoolSize, true, nullptr, true, poolM), kNuvOk);
    startM = InUse(poolM);
  }
  void TearDown() override {
    delete poolM;
    signal(SIGUSR1, previousUsr1M);
    signal(SIGALRM, previousAlrmM);
  }

  NuvMempool* Pool() const { return poolM; }
  NuvMessenger* Queues() const { return poolM->GetMessenger(); }
  const std::vector<unsigned>& Start() const { return startM; }

  unsigned Send(int number, const NuvMessage& message) const {
    NuvMessage copy = message;
    return Queues()->isend(number, copy, 0, nullptr);
  }
  void SendTypes(int number, std::initializer_list<unsigned> types) const {
    unsigned serial = 0;
    for (const unsigned type : types) {
      Send(number, MessageOf(type, serial++));
    }
  }
  unsigned ReceiveNow(int number, NuvMessage& out) const {
    return Queues()->irecv(number, out, 1, nullptr);
  }
  // Takes every queued message; their types, oldest first.
  std::vector<unsigned> TakeTypes(int number) const {
    std::vector<unsigned> types;
    NuvMessage message{};
    while (ReceiveNow(number, message) == kNuvMessageDone) {
      types.push_back(message.type);
    }
    return types;
  }
  // Receives with a time-out, measuring how long it took.
  unsigned ReceiveTimed(int number, int64_t timeoutMs, int64_t* elapsedUs) const {
    NuvTime timeout = Milliseconds(timeoutMs);
    NuvMessage message{};
    const auto start = Clock::now();
    const unsigned result = Queues()->irecv(number, message, 0, &timeout);
    *elapsedUs = std::chrono::duration_cast<microseconds>(Clock::now() - start).count();
    return result;
  }

  NuvMessageQ* QueueOf(int number) const {
    auto* queue = PointerAt<NuvMessageQ>(Queues(), kQueueListOffset);
    while (queue != nullptr && queue->GetNumber() != number) {
      queue = PointerAt<NuvMessageQ>(queue, kNextQueueOffset);
    }
    return queue;
  }
  NuvSema* ReceiveSemaphore(int number) const {
    return PointerAt<NuvSema>(QueueOf(number), kReceiveSemaphoreOffset);
  }
  NuvSema* SizeSemaphore(int number) const {
    return PointerAt<NuvSema>(QueueOf(number), kSizeSemaphoreOffset);
  }

 private:
  ScopedPoolPrefix prefixM;
  NuvMempool* poolM = nullptr;
  std::vector<unsigned> startM;
  sighandler_t previousUsr1M = SIG_DFL;
  sighandler_t previousAlrmM = SIG_DFL;
};

TEST_F(Messenger, FirstQueuesOfAFreshPoolAreNumberedOneAndTwo) {
  EXPECT_EQ(Queues()->CreateQueue(10), 1);
  EXPECT_EQ(Queues()->CreateQueue(10), 2);
}

TEST_F(Messenger, NamedQueueMakesTheCounterSkipItsNumber) {
  Queues()->CreateQueue(10);
  Queues()->CreateQueue(10);
  EXPECT_EQ(Queues()->CreateNamedQueue(3, 10), kNuvMessageDone);
  EXPECT_EQ(Queues()->CreateQueue(10), 4);
}

TEST_F(Messenger, CreateNamedQueueOfATakenNumberReturnsThreeAndChangesNothing) {
  ASSERT_EQ(Queues()->CreateQueue(10), 1);
  const std::vector<unsigned> before = InUse(Pool());
  EXPECT_EQ(Queues()->CreateNamedQueue(1, 5), kNuvQueueNumberTaken);
  EXPECT_EQ(InUse(Pool()), before);
  EXPECT_EQ(Queues()->CreateQueue(10), 2) << "the counter is untouched";
}

TEST_F(Messenger, CreateNamedQueueOfANamedQueuesNumberReturnsThree) {
  ASSERT_EQ(Queues()->CreateNamedQueue(0x60000123, 10), kNuvMessageDone);
  EXPECT_EQ(Queues()->CreateNamedQueue(0x60000123, 10), kNuvQueueNumberTaken);
}

TEST_F(Messenger, UnnamedQueueSizeSemaphoreStartsAtTheGivenSize) {
  const int number = Queues()->CreateQueue(7);
  EXPECT_EQ(SizeSemaphore(number)->GetCount(), 7);
  EXPECT_EQ(ReceiveSemaphore(number)->GetCount(), 0);
}

TEST_F(Messenger, NamedQueueSizeSemaphoreStartsAtTenWhateverTheSizeGiven) {
  ASSERT_EQ(Queues()->CreateNamedQueue(5, 3), kNuvMessageDone);
  EXPECT_EQ(SizeSemaphore(5)->GetCount(), 10);
  EXPECT_EQ(ReceiveSemaphore(5)->GetCount(), 0);
}

TEST_F(Messenger, CreateQueueTakesTheQueueAndItsTwoSemaphoresFromUserNuv) {
  const std::vector<unsigned> before = NuvUsage(Pool());
  Queues()->CreateQueue(10);
  EXPECT_EQ(NuvUsage(Pool()),
            (std::vector<unsigned>{before[0] + 3, before[1] + kQueueBytes + 2 * kSemaphoreBytes}));
}

TEST_F(Messenger, QueueCreatedInAnotherProcessTakesMessagesFromThisOne) {
  const SharedObject<Reception> creator;
  ChildProcess creating(
      [this, &creator] { creator->result = static_cast<unsigned>(Queues()->CreateQueue(10)); });
  ASSERT_TRUE(Completed(creating.Finish(kStepDeadline)));
  EXPECT_EQ(creator->result, 1U);
  const NuvMessage sent = MessageOf(9, 1);
  EXPECT_EQ(Send(1, sent), kNuvMessageDone);
  NuvMessage received{};
  EXPECT_EQ(ReceiveNow(1, received), kNuvMessageDone);
  EXPECT_EQ(Words(received), Words(sent));
}

TEST_F(Messenger, DestroyQueueOfAnUnknownNumberReturnsThree) {
  Queues()->CreateQueue(10);
  EXPECT_EQ(Queues()->DestroyQueue(2), kNuvQueueNumberTaken);
  EXPECT_EQ(Send(1, MessageOf(1, 1)), kNuvMessageDone) << "the other queue is untouched";
}

TEST_F(Messenger, DestroyQueueRemovesTheNumberForEveryOperation) {
  const int number = Queues()->CreateQueue(10);
  ASSERT_EQ(Queues()->DestroyQueue(number), kNuvMessageDone);
  NuvMessage message = MessageOf(1, 1);
  EXPECT_EQ(Queues()->isend(number, message, 0, nullptr), kNuvNoSuchQueue);
  EXPECT_EQ(Queues()->irecv(number, message, 1, nullptr), kNuvNoSuchQueue);
  EXPECT_FALSE(Queues()->Peek(number, 1));
  EXPECT_EQ(Queues()->DestroyQueue(number), kNuvQueueNumberTaken);
}

TEST_F(Messenger, DestroyQueueUnlinksOnlyThatQueue) {
  for (int queue = 0; queue < 3; ++queue) {
    Queues()->CreateQueue(10);
  }
  ASSERT_EQ(Queues()->DestroyQueue(2), kNuvMessageDone);
  EXPECT_EQ(Send(1, MessageOf(1, 1)), kNuvMessageDone);
  EXPECT_EQ(Send(2, MessageOf(1, 1)), kNuvNoSuchQueue);
  EXPECT_EQ(Send(3, MessageOf(1, 1)), kNuvMessageDone);
}

TEST_F(Messenger, DestroyedNumberIsNotHandedOutAgain) {
  ASSERT_EQ(Queues()->CreateQueue(10), 1);
  Queues()->DestroyQueue(1);
  EXPECT_EQ(Queues()->CreateQueue(10), 2);
}

TEST_F(Messenger, IsendToAnUnknownNumberReturnsOne) {
  EXPECT_EQ(Send(1, MessageOf(1, 1)), kNuvNoSuchQueue);
  EXPECT_EQ(InUse(Pool()), Start()) << "no node was left behind";
}

TEST_F(Messenger, IrecvFromAnUnknownNumberReturnsOne) {
  NuvMessage message{};
  EXPECT_EQ(Queues()->irecv(1, message, 0, nullptr), kNuvNoSuchQueue);
}

TEST_F(Messenger, IrecvWithNoWaitOnAnEmptyQueueReturnsTwo) {
  const int number = Queues()->CreateQueue(10);
  NuvMessage message{};
  EXPECT_EQ(ReceiveNow(number, message), kNuvQueueEmpty);
}

TEST_F(Messenger, IrecvWithATwentyMillisecondTimeOutReturnsFourNoEarlier) {
  constexpr int64_t kTimeoutMs = 20;
  const int number = Queues()->CreateQueue(10);
  int64_t elapsedUs = 0;
  EXPECT_EQ(ReceiveTimed(number, kTimeoutMs, &elapsedUs), kNuvReceiveTimedOut);
  EXPECT_GE(elapsedUs, kTimeoutMs * 1000);
}

TEST_F(Messenger, TimedOutReceiverLeavesTheReceiveSemaphoreAsItFoundIt) {
  const int number = Queues()->CreateQueue(10);
  int64_t elapsedUs = 0;
  ASSERT_EQ(ReceiveTimed(number, 20, &elapsedUs), kNuvReceiveTimedOut);
  EXPECT_EQ(ReceiveSemaphore(number)->GetCount(), 0);
  EXPECT_EQ(ReceiveSemaphore(number)->GetHead(), nullptr);
}

TEST_F(Messenger, IrecvWithATimeOutBelowTenMillisecondsReturnsFour) {
  const int number = Queues()->CreateQueue(10);
  int64_t elapsedUs = 0;
  EXPECT_EQ(ReceiveTimed(number, 5, &elapsedUs), kNuvReceiveTimedOut);
  EXPECT_EQ(ReceiveSemaphore(number)->GetCount(), 0);
}

TEST_F(Messenger, MessagesComeOutInSendingOrderWithAllSevenWordsIntact) {
  constexpr unsigned kMessages = 5;
  const int number = Queues()->CreateQueue(10);
  for (unsigned serial = 0; serial < kMessages; ++serial) {
    ASSERT_EQ(Send(number, MessageOf(0xA0 + serial, serial)), kNuvMessageDone);
  }
  for (unsigned serial = 0; serial < kMessages; ++serial) {
    NuvMessage received{};
    ASSERT_EQ(ReceiveNow(number, received), kNuvMessageDone);
    EXPECT_EQ(Words(received), Words(MessageOf(0xA0 + serial, serial)));
  }
}

TEST_F(Messenger, IsendQueuesACopyOfTheCallersMessage) {
  const int number = Queues()->CreateQueue(10);
  NuvMessage message = MessageOf(1, 1);
  Queues()->isend(number, message, 0, nullptr);
  message.payload[5] = 0;
  NuvMessage received{};
  ASSERT_EQ(ReceiveNow(number, received), kNuvMessageDone);
  EXPECT_EQ(Words(received), Words(MessageOf(1, 1)));
}

TEST_F(Messenger, IsendIgnoresItsFlagAndTimeOut) {
  const int number = Queues()->CreateQueue(10);
  NuvMessage message = MessageOf(1, 1);
  NuvTime timeout(0);
  EXPECT_EQ(Queues()->isend(number, message, 1, &timeout), kNuvMessageDone);
  EXPECT_EQ(TakeTypes(number), std::vector<unsigned>{1});
}

TEST_F(Messenger, SendWithoutAWaitingReceiverLeavesTheReceiveSemaphoreAtZero) {
  const int number = Queues()->CreateQueue(10);
  SendTypes(number, {1, 2, 3});
  EXPECT_EQ(ReceiveSemaphore(number)->GetCount(), 0);
}

TEST_F(Messenger, SentMessageTakesOneThirtyTwoByteBlockOfUserNuv) {
  const int number = Queues()->CreateQueue(10);
  const std::vector<unsigned> before = NuvUsage(Pool());
  Send(number, MessageOf(1, 1));
  EXPECT_EQ(NuvUsage(Pool()), (std::vector<unsigned>{before[0] + 1, before[1] + kNodeBytes}));
  const void* node = PointerAt<void>(QueueOf(number), kQueueHeadOffset);
  EXPECT_EQ(BlockHeader(node) >> 24, NuvMempool::nuv);
  EXPECT_EQ(BlockHeader(node) & 0x00ffffff, kNodeBlockSize);
}

TEST_F(Messenger, ReceivedMessageGivesItsBlockBack) {
  const int number = Queues()->CreateQueue(10);
  const std::vector<unsigned> before = InUse(Pool());
  Send(number, MessageOf(1, 1));
  NuvMessage received{};
  ReceiveNow(number, received);
  EXPECT_EQ(InUse(Pool()), before);
}

TEST_F(Messenger, FilterOfTheHeadKeepsTheRestAndTheNextSendAppends) {
  const int number = Queues()->CreateQueue(10);
  SendTypes(number, {1, 2, 3});
  Queues()->Filter(number, TypeIs, 1);
  SendTypes(number, {4});
  EXPECT_EQ(TakeTypes(number), (std::vector<unsigned>{2, 3, 4}));
}

TEST_F(Messenger, FilterOfAMiddleMessageKeepsTheRestAndTheNextSendAppends) {
  const int number = Queues()->CreateQueue(10);
  SendTypes(number, {1, 2, 3});
  Queues()->Filter(number, TypeIs, 2);
  SendTypes(number, {4});
  EXPECT_EQ(TakeTypes(number), (std::vector<unsigned>{1, 3, 4}));
}

TEST_F(Messenger, FilterOfTheTailLetsTheNextSendAppendAfterThePreviousMessage) {
  const int number = Queues()->CreateQueue(10);
  SendTypes(number, {1, 2, 3});
  Queues()->Filter(number, TypeIs, 3);
  SendTypes(number, {4});
  EXPECT_EQ(TakeTypes(number), (std::vector<unsigned>{1, 2, 4}));
}

TEST_F(Messenger, FilterOfEveryMessageLeavesAnEmptyQueueThatTakesTheNextSend) {
  const int number = Queues()->CreateQueue(10);
  SendTypes(number, {1, 2, 3});
  Queues()->Filter(number, Always, 0);
  NuvMessage message{};
  EXPECT_EQ(ReceiveNow(number, message), kNuvQueueEmpty);
  SendTypes(number, {4});
  EXPECT_EQ(TakeTypes(number), std::vector<unsigned>{4});
}

TEST_F(Messenger, FilterFreesTheNodesItRemoves) {
  const int number = Queues()->CreateQueue(10);
  const std::vector<unsigned> before = InUse(Pool());
  SendTypes(number, {1, 2, 1});
  Queues()->Filter(number, TypeIs, 1);
  NuvMessage message{};
  ReceiveNow(number, message);
  EXPECT_EQ(InUse(Pool()), before);
}

TEST_F(Messenger, FilterOfAnUnknownQueueCallsNoPredicate) {
  predicateCalls = 0;
  Queues()->Filter(1, CountCall, 0);
  EXPECT_EQ(predicateCalls, 0U);
}

TEST_F(Messenger, PeekFindsAQueuedTypeAnywhereInTheQueue) {
  const int number = Queues()->CreateQueue(10);
  SendTypes(number, {1, 2, 3});
  EXPECT_TRUE(Queues()->Peek(number, 3));
}

TEST_F(Messenger, PeekForATypeNotQueuedReturnsFalseAndLeavesTheQueueUnchanged) {
  const int number = Queues()->CreateQueue(10);
  SendTypes(number, {1, 2, 3});
  const std::vector<unsigned> before = InUse(Pool());
  EXPECT_FALSE(Queues()->Peek(number, 9));
  EXPECT_EQ(InUse(Pool()), before);
  EXPECT_EQ(TakeTypes(number), (std::vector<unsigned>{1, 2, 3}));
}

TEST_F(Messenger, PeekOnAnUnknownQueueReturnsFalse) { EXPECT_FALSE(Queues()->Peek(1, 1)); }

TEST_F(Messenger, FlushDiscardsEveryMessageAndFreesTheirNodes) {
  const int number = Queues()->CreateQueue(10);
  const std::vector<unsigned> before = InUse(Pool());
  SendTypes(number, {1, 2, 3});
  Queues()->flush(number);
  NuvMessage message{};
  EXPECT_EQ(ReceiveNow(number, message), kNuvQueueEmpty);
  EXPECT_EQ(InUse(Pool()), before);
}

TEST_F(Messenger, FlushedQueueTakesTheNextSend) {
  const int number = Queues()->CreateQueue(10);
  SendTypes(number, {1, 2});
  Queues()->flush(number);
  SendTypes(number, {3});
  EXPECT_EQ(TakeTypes(number), std::vector<unsigned>{3});
}

TEST_F(Messenger, FlushOfAnUnknownQueueChangesNothing) {
  Queues()->flush(1);
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(Messenger, PoolStatisticsReturnToTheStartOnceQueuesAreDestroyedAndMessagesConsumed) {
  const int first = Queues()->CreateQueue(10);
  const int second = Queues()->CreateQueue(10);
  ASSERT_EQ(Queues()->CreateNamedQueue(100, 10), kNuvMessageDone);
  SendTypes(first, {1, 2});
  SendTypes(second, {3});
  SendTypes(100, {4, 5});
  TakeTypes(first);
  NuvMessage message{};
  ReceiveNow(100, message);
  for (const int number : {first, second, 100}) {
    EXPECT_EQ(Queues()->DestroyQueue(number), kNuvMessageDone);
  }
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(Messenger, ReceiverWaitingWithoutTimeOutWakesWhenAnotherProcessSends) {
  const SharedObject<Reception> receiver;
  const int number = Queues()->CreateQueue(10);
  ChildProcess receiving([this, &receiver, number] {
    NuvMessage message{};
    receiver->result = Queues()->irecv(number, message, 0, nullptr);
    receiver->message = message;
  });
  ASSERT_TRUE(WaitUntil([this, number] { return ReceiveSemaphore(number)->GetCount() == -1; }))
      << "receiver never slept";
  const NuvMessage sent = MessageOf(7, 1);
  EXPECT_EQ(Send(number, sent), kNuvMessageDone);
  ASSERT_TRUE(Completed(receiving.Finish(kStepDeadline)));
  EXPECT_EQ(receiver->result, kNuvMessageDone);
  EXPECT_EQ(Words(receiver->message), Words(sent));
  EXPECT_EQ(ReceiveSemaphore(number)->GetCount(), 0);
}

TEST_F(Messenger, DestroyedQueueAndItsMessagesStayUntilAnotherProcessDropsItsReference) {
  const SharedObject<Reception> holder;
  const int number = Queues()->CreateQueue(10);
  SendTypes(number, {1, 2});
  NuvMessageQ* queue = QueueOf(number);
  ChildProcess holding([queue, &holder] {
    queue->UpRef();
    holder->done = 1;
    AwaitGo(&*holder);
    queue->DownRef();
  });
  ASSERT_TRUE(WaitUntil([&holder] { return holder->done != 0; }));
  const std::vector<unsigned> withQueue = InUse(Pool());
  EXPECT_EQ(Queues()->DestroyQueue(number), kNuvMessageDone);
  EXPECT_EQ(Send(number, MessageOf(3, 1)), kNuvNoSuchQueue) << "the number is gone";
  EXPECT_EQ(queue->GetRefCount(), 1U);
  EXPECT_EQ(InUse(Pool()), withQueue) << "the queue and its messages are still there";
  holder->go = 1;
  ASSERT_TRUE(Completed(holding.Finish(kStepDeadline)));
  EXPECT_EQ(InUse(Pool()), Start());
}

// The waiting receiver holds a reference of its own, so the queue outlives its number until the
// receiver's time-out; nobody can send to it any more.
TEST_F(Messenger, DestroyQueueWhileAnotherProcessWaitsToReceiveLeavesTheQueueToThatReceiver) {
  constexpr int64_t kTimeoutMs = 200;
  const SharedObject<Reception> receiver;
  const int number = Queues()->CreateQueue(10);
  NuvMessageQ* queue = QueueOf(number);
  ChildProcess receiving([this, &receiver, number] {
    int64_t elapsedUs = 0;
    receiver->result = ReceiveTimed(number, kTimeoutMs, &elapsedUs);
  });
  ASSERT_TRUE(WaitUntil([this, number] { return ReceiveSemaphore(number)->GetCount() == -1; }))
      << "receiver never slept";
  EXPECT_EQ(Queues()->DestroyQueue(number), kNuvMessageDone);
  EXPECT_EQ(QueueOf(number), nullptr);
  EXPECT_EQ(queue->GetRefCount(), 1U) << "the receiver's reference";
  ASSERT_TRUE(Completed(receiving.Finish(kStepDeadline)));
  EXPECT_EQ(receiver->result, kNuvReceiveTimedOut);
  EXPECT_EQ(InUse(Pool()), Start()) << "the receiver's release destroyed the queue";
}

TEST_F(Messenger, FourSendingAndTwoReceivingProcessesDeliverEveryMessageOnceInEachSendersOrder) {
  const SharedObject<Delivery> delivery;
  const int number = Queues()->CreateQueue(10);
  std::vector<std::unique_ptr<ChildProcess>> children;
  children.reserve(kReceivers + kSenders);
  for (unsigned receiver = 0; receiver < kReceivers; ++receiver) {
    children.push_back(std::make_unique<ChildProcess>(
        [this, number, &delivery] { ReceiveUntilAllArrived(Queues(), number, &*delivery); }));
  }
  for (unsigned sender = 0; sender < kSenders; ++sender) {
    children.push_back(std::make_unique<ChildProcess>(
        [this, number, sender, &delivery] { SendAll(Queues(), number, sender, &*delivery); }));
  }
  const auto giveUp = Clock::now() + kManyProcessDeadline;
  for (const auto& child : children) {
    EXPECT_TRUE(Completed(child->Finish(Remaining(giveUp))));
  }
  unsigned missing = 0;
  unsigned repeated = 0;
  for (const auto& copies : delivery->copies) {
    for (const unsigned count : copies) {
      missing += count == 0 ? 1 : 0;
      repeated += count > 1 ? 1 : 0;
    }
  }
  EXPECT_EQ(delivery->received, kAllMessages);
  EXPECT_EQ(missing, 0U);
  EXPECT_EQ(repeated, 0U);
  EXPECT_EQ(delivery->damaged, 0U);
  EXPECT_EQ(delivery->outOfOrder, 0U);
  EXPECT_EQ(delivery->failures, 0U);
  EXPECT_EQ(Queues()->DestroyQueue(number), kNuvMessageDone);
  EXPECT_EQ(InUse(Pool()), Start());
}

// Round trips of the usual run (NUV_HANDOFF_ROUND_TRIPS asks for more). A wake-up lost between a
// receiver's release of its queue and its sleep once left both sides asleep for good after
// some 17,000 round trips.
constexpr unsigned kPingPongRoundTrips = 10000;

// The two sides' progress, in memory the test reads when they did not finish.
struct PingPong {
  volatile unsigned sent;
  volatile unsigned echoed;
  volatile unsigned damaged;
  volatile unsigned failures;
};

// Sends message serial 0, 1, ... on ping and waits without a time-out for each to come back on
// pong, checking all seven words.
void Serve(NuvMessenger* queues, int ping, int pong, unsigned roundTrips, PingPong* game) {
  for (unsigned serial = 0; serial < roundTrips; ++serial) {
    NuvMessage message = MessageOf(1, serial);
    NuvMessage back{};
    if (queues->isend(ping, message, 0, nullptr) != kNuvMessageDone ||
        queues->irecv(pong, back, 0, nullptr) != kNuvMessageDone) {
      fadd(&game->failures, 1);
    } else if (Words(back) != Words(message)) {
      fadd(&game->damaged, 1);
    }
    game->sent = serial + 1;
  }
}

// Sends back on pong whatever arrives on ping, waiting without a time-out.
void Return(NuvMessenger* queues, int ping, int pong, unsigned roundTrips, PingPong* game) {
  for (unsigned serial = 0; serial < roundTrips; ++serial) {
    NuvMessage message{};
    if (queues->irecv(ping, message, 0, nullptr) != kNuvMessageDone ||
        queues->isend(pong, message, 0, nullptr) != kNuvMessageDone) {
      fadd(&game->failures, 1);
    }
    game->echoed = serial + 1;
  }
}

TEST_F(Messenger, TwoProcessesExchangingMessagesWithUntimedReceivesNeverMissAWakeUp) {
  const unsigned roundTrips = nuv::test::RoundTrips(kPingPongRoundTrips);
  const SharedObject<PingPong> game;
  PingPong* shared = &*game;
  const int ping = Queues()->CreateQueue(10);
  const int pong = Queues()->CreateQueue(10);
  ChildProcess server([=] { Serve(Queues(), ping, pong, roundTrips, shared); });
  ChildProcess returner([=] { Return(Queues(), ping, pong, roundTrips, shared); });
  EXPECT_TRUE(nuv::test::KeepsGoingTo(roundTrips, [shared] { return shared->sent; }))
      << "no round trip for " << nuv::test::kStandstill.count() << " ms: sent " << game->sent
      << ", echoed " << game->echoed;
  EXPECT_TRUE(Completed(server.Finish(kStepDeadline)));
  EXPECT_TRUE(Completed(returner.Finish(kStepDeadline)));
  EXPECT_EQ(game->sent, roundTrips);
  EXPECT_EQ(game->echoed, roundTrips);
  EXPECT_EQ(game->damaged, 0U);
  EXPECT_EQ(game->failures, 0U);
  EXPECT_EQ(ReceiveSemaphore(ping)->GetCount(), 0);
  EXPECT_EQ(ReceiveSemaphore(pong)->GetCount(), 0);
}

}  // namespace
