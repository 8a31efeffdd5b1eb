/// \file NuvSema: P and V between processes, and the semaphore's wait queue.
#include <nuv/semaphore.h>

#include <nuv/current_thread.h>
#include <nuv/thread_queue.h>

#include "core/assert_at.h"
#include "core/word.h"
#include "sync/hand_off.h"

NuvSema::~NuvSema() {
  nuv::TakeWord(&lockM);
  NUV_ASSERT_AT(headM == nullptr, 803, "NuvSema");
  nuv::GiveWord(&lockM);
}

void NuvSema::init(int count, bool flag) {
  countM = count;
  headM = nullptr;
  flagM = flag ? 1 : 0;
  lockM = 0;
}

// Where no unit is left the caller will most likely wait: the wait's system calls are made
// before the word is taken, so that they do not lengthen its hold. A V that comes in between
// only costs them in vain. With units left, P makes no system call.
bool NuvSema::PrepareIfNoUnit(const NuvTime* timeout) const {
  if (__atomic_load_n(&countM, __ATOMIC_RELAXED) > 0) {
    return false;
  }
  nuv::HandOff::PrepareWait(timeout);
  return true;
}

int NuvSema::psema(NuvTime* timeout) {
  const bool prepared = PrepareIfNoUnit(timeout);
  nuv::TakeWord(&lockM);
  countM -= 1;
  if (countM >= 0) {
    nuv::GiveWord(&lockM);
    if (prepared) {
      nuv::HandOff::CancelWait();
    }
    return 0;
  }
  return _block_(this, timeout);
}

// This semaphore's word is taken before held is released: a V needs the same word, so it cannot
// slip in between. The count is lowered before held goes, too: a V that takes held after us and
// then reads the count without this word (a message sent to us) sees us waiting. A caller that
// waits releases held only after queuing itself and releasing this word, so that a sender that
// was waiting for held finds this word free as well.
int NuvSema::spsema(volatile NuvLock* held, NuvTime* timeout) {
  const bool prepared = PrepareIfNoUnit(timeout);
  nuv::TakeWord(&lockM);
  countM -= 1;
  if (countM >= 0) {
    nuv::GiveWord(held);
    nuv::GiveWord(&lockM);
    if (prepared) {
      nuv::HandOff::CancelWait();
    }
    return 0;
  }
  return nuv::HandOff::BlockThenWake(this, timeout, 0, held);
}

// Lock order: the signalled semaphore's word, then the awaited one's. This count is lowered
// before other's word goes, so a V that reads it without this word after taking other's sees
// us waiting; other's waiter is woken only once this word is gone too, as it needs it next.
int NuvSema::sssema(NuvSema* other, NuvTime* timeout) {
  const bool prepared = PrepareIfNoUnit(timeout);
  nuv::TakeWord(&other->lockM);
  nuv::TakeWord(&lockM);
  countM -= 1;
  const int old = other->countM;
  other->countM = old + 1;
  const bool woke = old < 0;
  int wakePid = 0;
  if (woke) {
    wakePid = nuv::HandOff::DequeueWaiter(other);
  } else {
    nuv::GiveWord(&other->lockM);
  }
  if (countM >= 0) {
    nuv::GiveWord(&lockM);
    if (prepared) {
      nuv::HandOff::CancelWait();
    }
    nuv::HandOff::Wake(wakePid);
    return woke ? 1 : 0;
  }
  return nuv::HandOff::BlockThenWake(this, timeout, wakePid);
}

int NuvSema::vsema() {
  nuv::TakeWord(&lockM);
  const int old = countM;
  countM = old + 1;
  if (old < 0) {
    return _unblock_(this);
  }
  nuv::GiveWord(&lockM);
  return 0;
}

// The unlocked read is a fast path that misses nobody: every waiter lowers the count before it
// releases the word that the caller took before calling (spsema: the queue's word; sssema: the
// gate's), or before the hand-off that let the caller run, and the release orders the two.
int NuvSema::vwaiter() {
  if (__atomic_load_n(&countM, __ATOMIC_RELAXED) >= 0) {
    return 0;
  }
  nuv::TakeWord(&lockM);
  if (countM < 0) {
    countM += 1;
    return _unblock_(this);
  }
  nuv::GiveWord(&lockM);
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

// The tail is not touched: an empty queue is told by its head alone. A count below 0 with
// nobody queued (a semaphore set up with a negative count) leaves no block to take: the pid 0
// given back then stops a V at _unblock_'s check instead of a null dereference here.
int NuvSema::getq() {
  NuvThreadQ* block = headM;
  if (block == nullptr) {
    return 0;
  }
  headM = block->next;
  const int pid = block->pid;
  GetPool()->GetQBlockMgr()->ReturnQBlock(block);
  return pid;
}

// Only the time-out path uses it. A removed tail hands the tail on to the block before it: the
// next putq would otherwise link a new waiter onto a block already back in the free stock.
void NuvSema::clnq(int pid) {
  nuv::TakeWord(&lockM);
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
  nuv::GiveWord(&lockM);
}
