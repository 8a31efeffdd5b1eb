/// \file NuvThreadQMgr: a pool's stock of wait-queue blocks.
#include <nuv/thread_queue.h>

#include <nuv/current_thread.h>

#include "core/assert_at.h"
#include "core/log.h"
#include "core/word.h"

NuvThreadQMgr::NuvThreadQMgr() : NuvSeed(NuvMempool::nuv) {
  for (NuvThreadQ& block : blocksM) {
    block.pid = 0;
    block.next = freeM;
    freeM = &block;
  }
}

NuvThreadQMgr::~NuvThreadQMgr() {
  int free = 0;
  for (NuvThreadQ* block = freeM; block != nullptr; block = block->next) {
    ++free;
  }
  if (free >= kBlocks) {
    return;
  }
  nuv::log::Entry(nuv::log::kFacilityNuv, nuv::log::kPriorityErr, "threadQ",
                  "A mempool was destroyed while active threads were waiting");
  nuv::log::Entry(nuv::log::kFacilityNuv, nuv::log::kPriorityErr, "threadQ",
                  "on semaphores. These threads are:");
  for (const NuvThreadQ& block : blocksM) {
    if (block.pid != 0) {
      nuv::log::Entry(nuv::log::kFacilityNuv, nuv::log::kPriorityErr, "threadQ", "   PID = %d",
                      block.pid);
    }
  }
}

// The check is made before the lock word is taken.
NuvThreadQ* NuvThreadQMgr::GetQBlock() {
  NUV_ASSERT_AT(freeM != nullptr, 2417, "GetQBlock");
  nuv::TakeWord(&lockM);
  NuvThreadQ* block = freeM;
  freeM = block->next;
  nuv::GiveWord(&lockM);
  block->next = nullptr;
  block->pid = NuvCurrentThreadId();
  return block;
}

void NuvThreadQMgr::ReturnQBlock(NuvThreadQ* block) {
  nuv::TakeWord(&lockM);
  block->next = freeM;
  freeM = block;
  block->pid = 0;
  nuv::GiveWord(&lockM);
}
