/// \file The objects of the synchronization layer that every pool carries: its messenger and its
/// stock of wait-queue blocks. A pool needs them from the moment it is laid out, and they live in
/// it: the one dependency of the pool layer on the layer above it, met through this declaration
/// and defined there.
#ifndef NUV_POOL_SYNC_OBJECTS_H
#define NUV_POOL_SYNC_OBJECTS_H

class NuvMempool;
class NuvMessenger;
class NuvThreadQMgr;

namespace nuv {

/// Makes pool's messenger, then its queue-block manager, in pool.
void MakeSyncObjects(NuvMempool* pool, NuvMessenger** messenger, NuvThreadQMgr** queueBlocks);

}  // namespace nuv

#endif  // NUV_POOL_SYNC_OBJECTS_H
