/// \file NuvSema: P and V between processes, and the semaphore's wait queue.
#include <nuv/semaphore.h>

#include <nuv/thread.h>
#include <nuv/thread_queue.h>

#include "diag/assert_at.h"

NuvSema::~NuvSema() {
  upsleeplock(&lockM);
  NUV_ASSERT_AT(headM == nullptr, 803, "NuvSema");
  upunlock(&lockM);
}

void NuvSema::init(int count, bool flag) {
  countM = count;
  headM = nullptr;
  flagM = flag ? 1 : 0;
  lockM = 0;
}

int NuvSema::psema(NuvTime* timeout) {
  upsleeplock(&lockM);
  countM -= 1;
  if (countM >= 0) {
    upunlock(&lockM);
    return 0;
  }
  return _block_(this, timeout);
}

// This semaphore's word is taken before held is released: a V needs the same word, so it cannot
// slip in between.
int NuvSema::spsema(volatile NuvLock* held, NuvTime* timeout) {
  upsleeplock(&lockM);
  upunlock(held);
  countM -= 1;
  if (countM >= 0) {
    upunlock(&lockM);
    return 0;
  }
  return _block_(this, timeout);
}

// Lock order: the signalled semaphore's word, then the awaited one's.
int NuvSema::sssema(NuvSema* other, NuvTime* timeout) {
  upsleeplock(&other->lockM);
  upsleeplock(&lockM);
  const int old = other->countM;
  other->countM = old + 1;
  const bool woke = old < 0;
  if (woke) {
    _unblock_(other);
  } else {
    upunlock(&other->lockM);
  }
  countM -= 1;
  if (countM >= 0) {
    upunlock(&lockM);
    return woke ? 1 : 0;
  }
  return _block_(this, timeout);
}

int NuvSema::vsema() {
  upsleeplock(&lockM);
  const int old = countM;
  countM = old + 1;
  if (old < 0) {
    return _unblock_(this);
  }
  upunlock(&lockM);
  return 0;
}

// The unlocked read is a fast path: a waiter that has not lowered the count yet is not woken
// by this call, and is woken by the next one or by its own time-out.
int NuvSema::vwaiter() {
  if (countM >= 0) {
    return 0;
  }
  upsleeplock(&lockM);
  if (countM < 0) {
    countM += 1;
    return _unblock_(this);
  }
  upunlock(&lockM);
  return 0;
}

int NuvSema::putq() {
  NuvThreadQ* block = GetPool()->GetQBlockMgr()->GetQBlock();
  if (headM == nullptr) {
    headM = block;
  } else {
    tailM->next = block;
  }
  tailM = block;
  return NuvCurrentThreadId();
}

// The tail is not touched: an empty queue is told by its head alone.
int NuvSema::getq() {
  NuvThreadQ* block = headM;
  headM = block->next;
  const int pid = block->pid;
  GetPool()->GetQBlockMgr()->ReturnQBlock(block);
  return pid;
}

// Only the time-out path uses it. A removed tail hands the tail on to the block before it: the
// next putq would otherwise link a new waiter onto a block already back in the free stock.
void NuvSema::clnq(int pid) {
  upsleeplock(&lockM);
  NuvThreadQ* previous = nullptr;
  NuvThreadQ** link = &headM;
  while (*link != nullptr && (*link)->pid != pid) {
    previous = *link;
    link = &(*link)->next;
  }
  NuvThreadQ* block = *link;
  if (block != nullptr) {
    *link = block->next;
    if (block == tailM) {
      tailM = previous;
    }
    countM += 1;
    GetPool()->GetQBlockMgr()->ReturnQBlock(block);
  }
  upunlock(&lockM);
}
