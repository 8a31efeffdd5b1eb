/// \file NuvThreadQMgr: a pool's stock of wait-queue blocks.
#include <nuv/thread_queue.h>

NuvThreadQMgr::NuvThreadQMgr() : NuvSeed(NuvMempool::nuv), blocksM{} {
  for (NuvThreadQ& block : blocksM) {
    block.pid = 0;
    block.next = freeM;
    freeM = &block;
  }
}
