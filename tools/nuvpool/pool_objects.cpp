/// \file The pool's own objects: the messenger and its queues, the semaphores, the stock of
/// wait-queue blocks and the registry, and every lock word among them that is held.
#include "pool_reader.h"

#include <map>
#include <set>
#include <string>

namespace nuvpool {

namespace {

// Field offsets of the objects, from the address that the pool's pointers give.
constexpr uint32_t kMessengerLock = 8, kMessengerQueues = 16, kMessengerSize = 20;
constexpr uint32_t kQueueCount = 8, kQueueHead = 12, kQueueNumber = 20, kQueueLock = 24;
constexpr uint32_t kQueueReceive = 28, kQueueSizeSema = 32, kQueueNext = 36, kQueueSize = 40;
constexpr uint32_t kNodeNext = 28, kNodeSize = 32;
constexpr uint32_t kSemaTable = 0, kSemaCount = 12, kSemaHead = 16, kSemaLock = 24;
constexpr uint32_t kSemaSize = 32;
constexpr uint32_t kStockLock = 8, kStockFree = 12, kStockBlocks = 16, kQueueBlockSize = 8;
constexpr uint32_t kStockSize = kStockBlocks + format::kQueueBlocks * kQueueBlockSize;
constexpr uint32_t kRegistryHead = 8, kRegistryLock = 12, kRegistrySize = 16;
constexpr uint32_t kItemObject = 4, kItemNext = 8, kItemSize = 12;
constexpr uint32_t kSeedCount = 4;

bool IsObject(const PoolModel& model, uint32_t at, uint32_t size) {
  const Block* block = model.AllocatedAt(at);
  return block != nullptr && block->size - 8 >= size;
}

class ObjectReader {
 public:
  ObjectReader(const PoolImage& image, PoolModel* model) : imageM(image), modelM(model) {}

  void Read() {
    ReadQueueBlocks();
    ReadMessenger();
    FindOtherSemaphores();
    ReadRegistry();
    AttributeWaiters();
  }

 private:
  uint32_t Word(uint32_t at) const { return imageM.Word(at); }

  void NoteHeld(const char* what, uint32_t lock) {
    if (Word(lock) != 0) {
      modelM->heldLocks.push_back({what, lock, Word(lock)});
    }
  }

  bool IsQueueBlock(uint32_t at) const {
    const uint32_t first = modelM->queueBlocks.address + kStockBlocks;
    return modelM->queueBlocks.address != 0 && at >= first &&
           at - first < kStockSize - kStockBlocks && (at - first) % kQueueBlockSize == 0;
  }

  void ReadQueueBlocks() {
    const uint32_t stock = modelM->header.queueBlocks;
    if (!IsObject(*modelM, stock, kStockSize)) {
      Note(modelM, modelM->Pool() + 32,
           "the wait-queue block stock 0x%08x is not an object of the pool", stock);
      return;
    }
    QueueBlocks& blocks = modelM->queueBlocks;
    blocks.address = stock;
    blocks.lock = Word(stock + kStockLock);
    NoteHeld("queue blocks", stock + kStockLock);
    std::set<uint32_t> seen;
    for (uint32_t at = Word(stock + kStockFree); at != 0; at = Word(at + 4)) {
      if (!IsQueueBlock(at) || !seen.insert(at).second) {
        Note(modelM, at, "the free queue-block list reaches 0x%08x, not a free block of its own",
             at);
        break;
      }
      ++blocks.free;
    }
    for (unsigned i = 0; i < format::kQueueBlocks; ++i) {
      const uint32_t at = stock + kStockBlocks + i * kQueueBlockSize;
      const auto pid = static_cast<int32_t>(Word(at));
      if (pid != 0) {
        blocks.waiting.push_back({pid, at, 0});
      }
      if (pid != 0 && seen.count(at) != 0) {
        Note(modelM, at, "queue block holds process %d and is on the free list as well", pid);
      }
    }
  }

  uint32_t ReadSemaphore(uint32_t at, const std::string& role) {
    if (!IsObject(*modelM, at, kSemaSize)) {
      Note(modelM, at, "the %s semaphore 0x%08x is not an object of the pool", role.c_str(), at);
      return 0;
    }
    if (readM.count(at) != 0) {
      return at;
    }
    Semaphore sema{at,
                   role,
                   modelM->AllocatedAt(at)->user,
                   static_cast<int32_t>(Word(at + kSemaCount)),
                   Word(at + kSemaLock),
                   {}};
    std::set<uint32_t> seen;
    for (uint32_t block = Word(at + kSemaHead); block != 0; block = Word(block + 4)) {
      if (!IsQueueBlock(block) || !seen.insert(block).second) {
        Note(modelM, at + kSemaHead,
             "semaphore's queue reaches 0x%08x, not a queue block of its own", block);
        break;
      }
      sema.waiters.push_back({static_cast<int32_t>(Word(block)), block, at});
      waitedOnM[block] = at;
    }
    const bool settled = sema.lock == 0;
    const uint32_t queued = sema.count < 0 ? static_cast<uint32_t>(-int64_t{sema.count}) : 0;
    if (settled && queued != sema.waiters.size()) {
      Note(modelM, at + kSemaCount, "semaphore count %d with %zu processes queued", sema.count,
           sema.waiters.size());
    }
    readM[at] = modelM->semaphores.size();
    modelM->semaphores.push_back(sema);
    NoteHeld(("semaphore (" + role + ")").c_str(), at + kSemaLock);
    return at;
  }

  uint32_t Depth(uint32_t queue, std::set<uint32_t>* nodes) {
    uint32_t depth = 0;
    for (uint32_t node = Word(queue + kQueueHead); node != 0; node = Word(node + kNodeNext)) {
      if (!IsObject(*modelM, node, kNodeSize) || !nodes->insert(node).second) {
        Note(modelM, node, "queue 0x%08x reaches 0x%08x, not a message of its own", queue, node);
        break;
      }
      ++depth;
    }
    return depth;
  }

  void ReadQueue(uint32_t at, std::set<uint32_t>* nodes) {
    Queue queue;
    queue.address = at;
    queue.number = static_cast<int32_t>(Word(at + kQueueNumber));
    queue.references = Word(at + kQueueCount);
    queue.lock = Word(at + kQueueLock);
    queue.depth = Depth(at, nodes);
    const std::string number = std::to_string(queue.number);
    NoteHeld(("queue " + number).c_str(), at + kQueueLock);
    queue.receive = ReadSemaphore(Word(at + kQueueReceive), "receive of queue " + number);
    if (queue.receive != 0) {
      queue.receivers = modelM->semaphores[readM[queue.receive]].waiters;
    }
    queue.size = ReadSemaphore(Word(at + kQueueSizeSema), "size of queue " + number);
    modelM->queues.push_back(queue);
  }

  void ReadMessenger() {
    const uint32_t messenger = modelM->header.messenger;
    if (!IsObject(*modelM, messenger, kMessengerSize)) {
      Note(modelM, modelM->Pool() + 36, "the messenger 0x%08x is not an object of the pool",
           messenger);
      return;
    }
    NoteHeld("messenger", messenger + kMessengerLock);
    std::set<uint32_t> queues;
    std::set<uint32_t> nodes;
    for (uint32_t at = Word(messenger + kMessengerQueues); at != 0; at = Word(at + kQueueNext)) {
      if (!IsObject(*modelM, at, kQueueSize) || !queues.insert(at).second) {
        Note(modelM, at, "the messenger's queue list reaches 0x%08x, not a queue of its own", at);
        break;
      }
      ReadQueue(at, &nodes);
    }
  }

  // Semaphores outside the queues: those of the queues' own class, and any object whose queue
  // head holds one of the stock's blocks.
  void FindOtherSemaphores() {
    std::set<uint32_t> tables;
    for (const Semaphore& sema : modelM->semaphores) {
      tables.insert(Word(sema.address + kSemaTable));
    }
    // Words that fresh or freed memory holds say nothing of a class.
    tables.erase(0);
    tables.erase(format::kDeadBeef);
    std::vector<uint32_t> found;
    for (const Block& block : modelM->blocks) {
      const uint32_t at = block.address + 8;
      if (!IsObject(*modelM, at, kSemaSize)) {
        continue;
      }
      const uint32_t head = Word(at + kSemaHead);
      const bool waitedOn =
          IsQueueBlock(head) && Word(head) != 0 && static_cast<int32_t>(Word(at + kSemaCount)) < 0;
      if (tables.count(Word(at + kSemaTable)) != 0 || waitedOn) {
        found.push_back(at);
      }
    }
    for (uint32_t at : found) {
      ReadSemaphore(at, "semaphore");
    }
  }

  void ReadRegistry() {
    const uint32_t registry = modelM->header.registry;
    if (!IsObject(*modelM, registry, kRegistrySize)) {
      Note(modelM, modelM->Pool() + 52, "the registry 0x%08x is not an object of the pool",
           registry);
      return;
    }
    modelM->registry.address = registry;
    modelM->registry.lock = Word(registry + kRegistryLock);
    NoteHeld("registry", registry + kRegistryLock);
    std::set<uint32_t> seen;
    for (uint32_t at = Word(registry + kRegistryHead); at != 0; at = Word(at + kItemNext)) {
      if (!IsObject(*modelM, at, kItemSize) || !seen.insert(at).second) {
        Note(modelM, at, "the registry's list reaches 0x%08x, not an entry of its own", at);
        break;
      }
      const uint32_t object = Word(at + kItemObject);
      const Block* holder = modelM->AllocatedAround(object);
      if (holder == nullptr) {
        Note(modelM, at + kItemObject,
             "registry entry %d names 0x%08x, which no block in use holds",
             static_cast<int32_t>(Word(at)), object);
      }
      modelM->registry.entries.push_back(
          {static_cast<int32_t>(Word(at)), object, holder != nullptr ? holder->user : 0,
           holder != nullptr ? holder->size : 0, Word(object + kSeedCount)});
    }
  }

  void AttributeWaiters() {
    for (Waiter& waiter : modelM->queueBlocks.waiting) {
      const auto found = waitedOnM.find(waiter.block);
      waiter.semaphore = found != waitedOnM.end() ? found->second : 0;
    }
  }

  const PoolImage& imageM;
  PoolModel* modelM;
  std::map<uint32_t, std::size_t> readM;   // semaphores read so far: address -> index
  std::map<uint32_t, uint32_t> waitedOnM;  // queue block -> the semaphore that lists it
};

}  // namespace

void ReadObjects(const PoolImage& image, PoolModel* model) {
  if (model->header.lockWord != 0) {
    model->heldLocks.push_back({"pool", model->Pool() + 112, model->header.lockWord});
  }
  ObjectReader(image, model).Read();
}

}  // namespace nuvpool
