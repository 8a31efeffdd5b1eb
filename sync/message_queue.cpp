/// \file NuvMessageQ: one queue of messages in a pool.
#include <nuv/messenger.h>

#include <nuv/semaphore.h>

#include <cstddef>

#include "core/word.h"
#include "sync/message_node.h"

namespace {

NuvSema* NewSemaphore(NuvMempool* pool, int count) {
  auto* sema = new (pool) NuvSema(NuvMempool::nuv);
  sema->init(count, false);
  return sema;
}

}  // namespace

NuvMessageQ::NuvMessageQ(int number, int size)
    : NuvCore(NuvMempool::nuv),
      numberM(number),
      receiveM(NewSemaphore(GetPool(), 0)),
      sizeM(NewSemaphore(GetPool(), size)) {}

NuvMessageQ::~NuvMessageQ() {
  flush();
  sizeM->DeleteThis();
  receiveM->DeleteThis();
}

void NuvMessageQ::Append(NuvMessageNode* node) {
  if (headM == nullptr) {
    headM = node;
  } else {
    tailM->next = node;
  }
  tailM = node;
}

NuvMessageNode* NuvMessageQ::TakeHead() {
  NuvMessageNode* node = headM;
  headM = node->next;
  return node;
}

// The tail is left as it was: an empty queue is told by its head alone.
void NuvMessageQ::flush() {
  nuv::TakeWord(&lockM);
  while (headM != nullptr) {
    GetPool()->Free(TakeHead());
  }
  nuv::GiveWord(&lockM);
}

void NuvMessageQ::Filter(Predicate predicate, unsigned long argument) {
  nuv::TakeWord(&lockM);
  NuvMessageNode* previous = nullptr;
  for (NuvMessageNode* node = headM; node != nullptr;) {
    NuvMessageNode* next = node->next;
    if (predicate(&node->message, argument)) {
      if (node == tailM) {
        tailM = previous;
      }
      if (previous == nullptr) {
        headM = next;
      } else {
        previous->next = next;
      }
      GetPool()->Free(node);
    } else {
      previous = node;
    }
    node = next;
  }
  nuv::GiveWord(&lockM);
}

bool NuvMessageQ::Peek(unsigned long type) {
  nuv::TakeWord(&lockM);
  const NuvMessageNode* node = headM;
  while (node != nullptr && node->message.type != type) {
    node = node->next;
  }
  nuv::GiveWord(&lockM);
  return node != nullptr;
}
