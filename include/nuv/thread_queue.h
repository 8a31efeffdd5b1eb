/// \file The stock of wait-queue blocks of a pool: at most 50 processes wait on its semaphores.
#ifndef NUV_THREAD_QUEUE_H
#define NUV_THREAD_QUEUE_H

#include <nuv/lockword.h>
#include <nuv/seed.h>

/// One queue block: the waiting process's id (0 while free) and the next block.
/// Layout (checked in sync/layout.cpp): 0 pid, 4 next; 8 bytes.
struct NuvThreadQ {
  int pid;
  NuvThreadQ* next;
};

/// One per pool (user "nuv"): its lock word, the free list and the 50 blocks.
/// Layout (checked in sync/layout.cpp): 0 seed, 8 lock word, 12 free list, 16 blocks (50 x 8).
class NuvThreadQMgr : public NuvSeed {
 public:
  static constexpr int kBlocks = 50;

  /// Every block free, with pid 0, on the free list.
  NuvThreadQMgr();
  /// Logs the processes still waiting (tag "threadQ") when blocks are missing from the free list.
  ~NuvThreadQMgr();
  NuvThreadQMgr(const NuvThreadQMgr&) = delete;
  NuvThreadQMgr& operator=(const NuvThreadQMgr&) = delete;
  NuvThreadQMgr(NuvThreadQMgr&&) = delete;
  NuvThreadQMgr& operator=(NuvThreadQMgr&&) = delete;

  /// A free block carrying the calling thread's id. With none left (more than 50 waiters in the
  /// pool) stops at assertion 2417 of "GetQBlock".
  NuvThreadQ* GetQBlock();
  void ReturnQBlock(NuvThreadQ* block);

 private:
  friend struct NuvSyncLayout;
  volatile NuvLock lockM = 0;
  NuvThreadQ* freeM = nullptr;
  NuvThreadQ blocksM[kBlocks] = {};
};

#endif  // NUV_THREAD_QUEUE_H
