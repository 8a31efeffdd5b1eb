/// \file The stock of wait-queue blocks of a pool: at most 50 processes wait on its semaphores.
#ifndef NUV_THREAD_QUEUE_H
#define NUV_THREAD_QUEUE_H

#include <nuv/lockword.h>
#include <nuv/seed.h>

/// One queue block: the waiting process's id (0 while free) and the next block.
struct NuvThreadQ {
  int pid;
  NuvThreadQ* next;
};

/// One per pool (user "nuv"): its lock word, the free list and the 50 blocks.
class NuvThreadQMgr : public NuvSeed {
 public:
  static constexpr int kBlocks = 50;

  /// Every block free, with pid 0, on the free list.
  NuvThreadQMgr();

 private:
  friend struct NuvMempoolLayout;
  volatile NuvLock lockM = 0;
  NuvThreadQ* freeM = nullptr;
  NuvThreadQ blocksM[kBlocks];
};

#endif  // NUV_THREAD_QUEUE_H
