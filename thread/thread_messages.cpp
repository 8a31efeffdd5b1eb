/// \file A thread's own message queue, and blocking a thread until another wakes it.
#include <nuv/messenger.h>
#include <nuv/semaphore.h>
#include <nuv/thread.h>

#include "core/assert_at.h"
#include "core/word.h"

int NuvThread::block(volatile NuvLock* held, NuvTime* timeout) {
  if ((stateM & kRunning) == 0) {
    if (held != nullptr) {
      nuv::GiveWord(held);
    }
    return -1;
  }
  if (blockM == nullptr) {
    blockM = new (GetPool()) NuvSema(NuvMempool::nuv);
    blockM->init(0, false);
  }
  return held != nullptr ? blockM->spsema(held, timeout) : blockM->psema(timeout);
}

void NuvThread::unblock() {
  if ((stateM & kRunning) == 0) {
    return;
  }
  NUV_ASSERT_AT(blockM != nullptr, 617, "unblock");
  blockM->vsema();
}

unsigned NuvThread::isend(NuvMessage& message, char flag, NuvTime* timeout) {
  return GetPool()->GetMessenger()->isend(queueIdM, message, flag, timeout);
}

// With noWait set there is nothing to time out.
unsigned NuvThread::inext(NuvMessage& message, char noWait, NuvTime* timeout) {
  const char wait = noWait != 0 ? 1 : 0;
  return GetPool()->GetMessenger()->irecv(queueIdM, message, wait, wait != 0 ? nullptr : timeout);
}

unsigned NuvThread::SendMessage(NuvMessage& message, NuvTime* timeout) {
  return isend(message, 0, timeout);
}

unsigned NuvThread::NextMessage(NuvMessage& message, NuvTime* timeout) {
  return inext(message, 0, timeout);
}

void NuvThread::FlushMessageQueue() { GetPool()->GetMessenger()->flush(queueIdM); }
