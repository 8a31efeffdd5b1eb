/// \file The synchronization objects that every pool carries, made when the pool is laid out.
#include "pool/sync_objects.h"

#include <nuv/messenger.h>
#include <nuv/thread_queue.h>

void nuv::MakeSyncObjects(NuvMempool* pool, NuvMessenger** messenger, NuvThreadQMgr** queueBlocks) {
  *messenger = new (pool) NuvMessenger();
  *queueBlocks = new (pool) NuvThreadQMgr();
}
