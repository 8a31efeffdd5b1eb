/// \file NuvMessenger: a pool's numbered message queues, shared by every process of the pool.
#include <nuv/messenger.h>

#include <nuv/semaphore.h>

#include "core/word.h"
#include "sync/hand_off.h"
#include "sync/message_node.h"

namespace {

constexpr int kNamedQueueSize = 10;

// Drops the reference that Lookup took, whatever the operation's path.
class QueueUse {
 public:
  explicit QueueUse(NuvMessageQ* queue) : queueM(queue) {}
  ~QueueUse() { queueM->DownRef(); }
  QueueUse(const QueueUse&) = delete;
  QueueUse& operator=(const QueueUse&) = delete;
  QueueUse(QueueUse&&) = delete;
  QueueUse& operator=(QueueUse&&) = delete;

 private:
  NuvMessageQ* queueM;
};

}  // namespace

NuvMessenger::NuvMessenger() : NuvSeed(NuvMempool::nuv) {}

// The messenger's word is held for the walk only; the reference keeps the queue alive while
// the caller works on it under the queue's own word.
NuvMessageQ* NuvMessenger::Lookup(int number) {
  nuv::TakeWord(&lockM);
  NuvMessageQ* queue = queuesM;
  while (queue != nullptr && queue->numberM != number) {
    queue = queue->nextM;
  }
  if (queue != nullptr) {
    queue->UpRef();
  }
  nuv::GiveWord(&lockM);
  return queue;
}

bool NuvMessenger::FNumberTaken(int number) const {
  for (const NuvMessageQ* queue = queuesM; queue != nullptr; queue = queue->nextM) {
    if (queue->numberM == number) {
      return true;
    }
  }
  return false;
}

// With the messenger's word held: the list keeps one reference on every queue in it.
void NuvMessenger::AppendQueue(NuvMessageQ* queue) {
  NuvMessageQ** link = &queuesM;
  while (*link != nullptr) {
    link = &(*link)->nextM;
  }
  *link = queue;
  queue->UpRef();
}

// A named queue that took a number makes the counter skip it. The counter wraps from the
// largest number to the smallest, in unsigned arithmetic: a signed increment past the largest
// int would be undefined.
int NuvMessenger::CreateQueue(int size) {
  nuv::TakeWord(&lockM);
  const auto advance = [this] {
    const int number = nextNumberM;
    nextNumberM = static_cast<int>(static_cast<unsigned>(number) + 1U);
    return number;
  };
  int number = advance();
  while (FNumberTaken(number)) {
    number = advance();
  }
  AppendQueue(new (GetPool()) NuvMessageQ(number, size));
  nuv::GiveWord(&lockM);
  return number;
}

// The size argument is not used: a named queue's size semaphore always starts at 10.
unsigned NuvMessenger::CreateNamedQueue(int number, int /*size*/) {
  nuv::TakeWord(&lockM);
  if (FNumberTaken(number)) {
    nuv::GiveWord(&lockM);
    return kNuvQueueNumberTaken;
  }
  AppendQueue(new (GetPool()) NuvMessageQ(number, kNamedQueueSize));
  nuv::GiveWord(&lockM);
  return kNuvMessageDone;
}

unsigned NuvMessenger::DestroyQueue(int number) {
  nuv::TakeWord(&lockM);
  NuvMessageQ** link = &queuesM;
  while (*link != nullptr && (*link)->numberM != number) {
    link = &(*link)->nextM;
  }
  NuvMessageQ* queue = *link;
  if (queue != nullptr) {
    *link = queue->nextM;
  }
  nuv::GiveWord(&lockM);
  if (queue == nullptr) {
    return kNuvQueueNumberTaken;
  }
  queue->DownRef();
  return kNuvMessageDone;
}

// Sending never waits and never raises the receive semaphore above 0: receivers find messages
// by looking at the queue. The node's allocation is not checked, as sending has always been.
unsigned NuvMessenger::isend(int number, NuvMessage& message, char /*flag*/, NuvTime* /*timeout*/) {
  NuvMessageQ* queue = Lookup(number);
  if (queue == nullptr) {
    return kNuvNoSuchQueue;
  }
  const QueueUse use(queue);
  auto* node =
      static_cast<NuvMessageNode*>(GetPool()->Malloc(sizeof(NuvMessageNode), NuvMempool::nuv));
  *node = NuvMessageNode{message, nullptr};
  nuv::TakeWord(&queue->lockM);
  queue->Append(node);
  nuv::GiveWord(&queue->lockM);
  queue->receiveM->vwaiter();
  return kNuvMessageDone;
}

// The time-out restarts in full on every pass: a receiver woken but beaten to the message by
// another receiver waits again. A receiver that finds its queue empty will most likely wait:
// its wait's system calls are made before it takes the queue's word, which its sender needs.
unsigned NuvMessenger::irecv(int number, NuvMessage& out, char noWait, NuvTime* timeout) {
  NuvMessageQ* queue = Lookup(number);
  if (queue == nullptr) {
    return kNuvNoSuchQueue;
  }
  const QueueUse use(queue);
  if (noWait == 0 && __atomic_load_n(&queue->headM, __ATOMIC_RELAXED) == nullptr) {
    nuv::HandOff::PrepareWait(timeout);
  }
  nuv::TakeWord(&queue->lockM);
  while (queue->headM == nullptr) {
    if (noWait != 0) {
      nuv::GiveWord(&queue->lockM);
      return kNuvQueueEmpty;
    }
    if (queue->receiveM->spsema(&queue->lockM, timeout) == -1) {
      return kNuvReceiveTimedOut;
    }
    nuv::TakeWord(&queue->lockM);
  }
  NuvMessageNode* node = queue->TakeHead();
  nuv::GiveWord(&queue->lockM);
  nuv::HandOff::CancelWait();
  out = node->message;
  GetPool()->Free(node);
  return kNuvMessageDone;
}

void NuvMessenger::flush(int number) {
  if (NuvMessageQ* queue = Lookup(number)) {
    const QueueUse use(queue);
    queue->flush();
  }
}

void NuvMessenger::Filter(int number, NuvMessageQ::Predicate predicate, unsigned long argument) {
  if (NuvMessageQ* queue = Lookup(number)) {
    const QueueUse use(queue);
    queue->Filter(predicate, argument);
  }
}

bool NuvMessenger::Peek(int number, unsigned long type) {
  NuvMessageQ* queue = Lookup(number);
  if (queue == nullptr) {
    return false;
  }
  const QueueUse use(queue);
  return queue->Peek(type);
}
