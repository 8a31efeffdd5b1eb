/// \file What a pool file holds, as read by nuvpool: plain values, no pointers into the file.
#ifndef NUV_TOOLS_NUVPOOL_POOL_MODEL_H
#define NUV_TOOLS_NUVPOOL_POOL_MODEL_H

#include "pool_image.h"

#include <cstdint>
#include <string>
#include <vector>

namespace nuvpool {

/// The pool header's fields (addresses are the pool's own).
struct Header {
  uint32_t magic = 0;
  uint32_t size = 0;
  uint32_t buckets = 0;
  uint32_t firstSentinel = 0;
  uint32_t topSentinel = 0;
  uint32_t reserve = 0;
  uint32_t chunkFloor = 0;
  uint32_t granule = 0;
  uint32_t queueBlocks = 0;
  uint32_t messenger = 0;
  uint32_t lockPointer = 0;
  uint32_t chunkRecords = 0;
  uint32_t statistics = 0;
  uint32_t registry = 0;
  uint32_t checking = 0;
  std::string name;
  uint32_t outOfMemoryHandler = 0;
  uint32_t lockWord = 0;
};

/// One row of the usage statistics: an owner's figures, or the totals.
struct Usage {
  uint32_t blocks = 0, bytes = 0, blocksHigh = 0, bytesHigh = 0;
  uint32_t chunks = 0, chunkBytes = 0, chunksHigh = 0, chunkBytesHigh = 0;
};

struct Statistics {
  Usage totals;
  Usage owners[format::kUsers];
  uint32_t emptyBytes = 0, emptyBlocks = 0, emptyChunks = 0;
  uint32_t mallocCalls = 0, blocksExamined = 0;
};

/// A block of the heap, sentinels included.
struct Block {
  uint32_t address = 0;  // of its header; callers hold address + 8
  uint32_t size = 0;     // header included
  unsigned user = 0;     // 0 when free
};

struct Bucket {
  uint32_t blocks = 0, bytes = 0, largest = 0;
};

struct Chunk {
  uint32_t record = 0;  // the record's address
  uint32_t address = 0, size = 0, user = 0, free = 0;
};

struct Waiter {
  int32_t pid = 0;
  uint32_t block = 0;      // the queue block that holds it
  uint32_t semaphore = 0;  // the semaphore it waits on, 0 when none lists it
};

struct Semaphore {
  uint32_t address = 0;
  std::string role;  // "receive of queue N", "size of queue N", or "semaphore"
  unsigned owner = 0;
  int32_t count = 0;
  uint32_t lock = 0;
  std::vector<Waiter> waiters;
};

struct Queue {
  uint32_t address = 0;
  int32_t number = 0;
  uint32_t references = 0;
  uint32_t depth = 0;
  uint32_t lock = 0;
  uint32_t receive = 0;  // the semaphores' addresses, described under semaphores
  uint32_t size = 0;
  std::vector<Waiter> receivers;  // the receive semaphore's waiters
};

struct QueueBlocks {
  uint32_t address = 0;
  uint32_t lock = 0;
  uint32_t free = 0;
  std::vector<Waiter> waiting;  // blocks that hold a process id
};

struct RegistryEntry {
  int32_t id = 0;
  uint32_t object = 0;
  unsigned owner = 0;
  uint32_t blockSize = 0;
  uint32_t references = 0;
};

struct Registry {
  uint32_t address = 0;
  uint32_t lock = 0;
  std::vector<RegistryEntry> entries;
};

/// A lock word that holds a value other than 0.
struct HeldLock {
  std::string what;
  uint32_t address = 0;
  uint32_t value = 0;
};

/// Something that a sound pool would not show, at an address of the pool.
struct Finding {
  uint32_t address = 0;
  std::string what;
};

/// Everything read from one pool file.
struct PoolModel {
  ByteOrder order = ByteOrder::kBig;
  uint32_t fileSize = 0;
  uint32_t base = 0;
  uint32_t length = 0;
  Header header;
  Statistics statistics;
  std::vector<Block> blocks;  // in address order, from the first sentinel to the top sentinel
  Bucket buckets[format::kBuckets];
  std::vector<Chunk> chunks;
  std::vector<Queue> queues;
  std::vector<Semaphore> semaphores;
  QueueBlocks queueBlocks;
  Registry registry;
  std::vector<HeldLock> heldLocks;
  std::vector<Finding> findings;

  uint32_t Pool() const { return base + format::kFileHeaderSize; }
  /// Bytes between the end of the top sentinel and the chunk floor; 0 when they cross.
  uint32_t Gap() const;
  /// The in-use block whose payload starts at address, or null.
  const Block* AllocatedAt(uint32_t payload) const;
  /// The block whose header is at address, or null.
  const Block* BlockAt(uint32_t address) const;
  /// The in-use block whose payload holds address, or null.
  const Block* AllocatedAround(uint32_t address) const;
};

/// The owner names of the statistics; "xxx" beyond the named ones.
const char* OwnerName(unsigned user);
/// The bucket of a free block of size bytes.
unsigned BucketOf(uint32_t size);

}  // namespace nuvpool

#endif  // NUV_TOOLS_NUVPOOL_POOL_MODEL_H
