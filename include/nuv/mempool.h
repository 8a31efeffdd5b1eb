/// \file NuvMempool: a pool's header and arena in a shared mapping, its allocator, accounting,
/// checks and life cycle.
///
/// Pool header, at the pool address (mapping + 8); native 32-bit words, absolute pointers:
///   0 magic 0xa67f3e4d        4 pool size          8 bucket heads ptr   12 first sentinel
///  16 top sentinel           20 reserve (512)     24 chunk floor       28 chunk granule (512)
///  32 thread-queue manager   36 messenger         40 lock word ptr     44 chunk record list
///  48 statistics ptr         52 registry          56 checking flag     60 name (48, byte 107 is 0)
/// 108 out-of-memory handler 112 lock word        116 statistics (500) 616 19 bucket heads
/// 692 first sentinel block  700 initial top sentinel block; the arena follows.
/// Block: word 0 = user << 24 | size (header included); word 1 = size of the block below;
/// payload from word 2. A free block links its bucket through words 2 (previous) and 3 (next).
#ifndef NUV_MEMPOOL_H
#define NUV_MEMPOOL_H

#include <nuv/lockword.h>

class NuvMessenger;
class NuvThreadQMgr;
class NuvMempoolRegistry;
class NuvMempoolBlock;
struct NuvChunkRecord;

/// Per-pool usage counters (125 words, 500 bytes): totals, per user 0 to 13, high-water marks,
/// the "empty" snapshot and the search statistics.
/// Layout: 125 words at offset 116 of the pool header (checked in pool/layout.cpp).
class NuvMempoolInfo {
 public:
  static constexpr unsigned kUsers = 14;
  static constexpr unsigned kWords = 125;

  void Clear();
  void AllocBlock(unsigned bytes, unsigned user);
  void FreeBlock(unsigned bytes, unsigned user);
  void FreeBytes(unsigned bytes, unsigned user);
  void AllocChunk(unsigned bytes, unsigned user);
  void FreeChunk(unsigned bytes, unsigned user);

  /// Word i of the record, as every process reads it.
  unsigned Word(unsigned index) const { return wordsM[index]; }

  // Word indexes of the record.
  static constexpr unsigned kBlocks = 0;
  static constexpr unsigned kBlockBytes = 1;
  static constexpr unsigned kBlocksHigh = 2;
  static constexpr unsigned kBlockBytesHigh = 3;
  static constexpr unsigned kChunks = 4;
  static constexpr unsigned kChunkBytes = 5;
  static constexpr unsigned kChunksHigh = 6;
  static constexpr unsigned kChunkBytesHigh = 7;
  static constexpr unsigned kUserBlocks = 8;
  static constexpr unsigned kUserBlocksHigh = 22;
  static constexpr unsigned kUserBlockBytes = 36;
  static constexpr unsigned kUserBlockBytesHigh = 50;
  static constexpr unsigned kUserChunks = 64;
  static constexpr unsigned kUserChunksHigh = 78;
  static constexpr unsigned kUserChunkBytes = 92;
  static constexpr unsigned kUserChunkBytesHigh = 106;
  static constexpr unsigned kEmptyBlockBytes = 120;
  static constexpr unsigned kEmptyBlocks = 121;
  static constexpr unsigned kEmptyChunks = 122;
  static constexpr unsigned kMallocCalls = 123;
  static constexpr unsigned kBlocksSearched = 124;

 private:
  friend class NuvMempool;
  void Add(unsigned count, unsigned high, unsigned amount);
  unsigned wordsM[kWords];
};

/// Layout, shared by every process that maps the pool (checked in pool/layout.cpp), by offset:
///   0 magic, 4 size, 8 buckets, 12 first, 16 top, 20 reserve, 24 chunk floor, 28 granule,
///   32 queue manager, 36 messenger, 40 lock-word pointer, 44 chunks, 48 statistics pointer,
///   52 registry, 56 checking, 60 name (48), 108 out-of-memory handler, 112 lock word,
///   116 statistics (500), 616 bucket heads (19 words), 692 first sentinel, 700 top sentinel;
///   708 bytes in all.
class NuvMempool {
 public:
  /// The owner tag of every block and chunk.
  enum User : unsigned {
    userFree = 0,
    unassigned = 1,
    unknown = 2,
    nuv = 3,
    stream = 4,
    catalog = 5,
    records = 6,
    orb = 7,
    script = 8,
    control = 9,
    glyph = 10,
    overlay = 11,
    remote = 12,
  };
  using OutOfMemoryHandler = bool (*)(NuvMempool*);

  static constexpr unsigned kMagic = 0xa67f3e4d;
  static constexpr unsigned kHeaderSize = 708;
  static constexpr unsigned kNameSize = 48;
  static constexpr unsigned kBuckets = 19;

  /// Never called: a pool is laid over a mapping by Allocate or AutoAttach. Stops at assertion
  /// 978 of "NuvMempool".
  NuvMempool();
  /// Detaches the pool from this process (the file stays): unmaps it and drops its active flag.
  ~NuvMempool();
  NuvMempool(const NuvMempool&) = delete;
  NuvMempool& operator=(const NuvMempool&) = delete;
  NuvMempool(NuvMempool&&) = delete;
  NuvMempool& operator=(NuvMempool&&) = delete;
  /// The storage is the mapping itself: nothing to free.
  // NOLINTNEXTLINE(cert-dcl54-cpp,misc-new-delete-overloads): pools are never made with new.
  static void operator delete(void* p);

  // Life cycle in a process. Results are kNuvOk or the codes of NuvOsMempool.
  /// Creates a pool (named: a file under /var/tmp; otherwise private to the process) at base, or
  /// anywhere when base is null, and lays out its arena.
  static unsigned Allocate(const char* name, unsigned size, bool replace, char* base, bool named,
                           NuvMempool*& pool);
  /// Attaches an existing named pool at the address in its file (or at base).
  static unsigned Attach(const char* name, NuvMempool*& pool);
  static unsigned Attach(const char* name, char* base, NuvMempool*& pool);
  /// Attaches the pool if a process holds it, else creates it (attached false) and lays it out.
  static unsigned AutoAttach(const char* name, unsigned size, char*& base, NuvMempool*& pool,
                             bool& attached);
  /// Removes the pool file; always kNuvOk.
  static unsigned Clean(const char* name);
  /// Detaches every pool of this process.
  static void DetachAll();
  /// Takes the active flag again on every pool of this process (a newly forked thread does).
  static void ActivateMempoolLocal();

  /// Lays the header and an empty arena over size bytes at this address and creates the pool's
  /// messenger, thread-queue manager and registry.
  void InitArena(unsigned size);

  // Blocks. Sizes are rounded up to 4 with an 8-byte header; a block is at least 16 bytes.
  /// Never null: on exhaustion the out-of-memory handler is asked, then the process ends.
  void* Malloc(unsigned size, User user);
  /// Null on exhaustion, or when the block would leave less than the reserve free; logged.
  void* MallocMaybe(unsigned size, User user);
  void* Calloc(unsigned size, User user);
  void* CallocMaybe(unsigned size, User user);
  /// Grows in place when the block above is free, else moves; never null. A null, foreign or
  /// already freed pointer stops at an assertion of AssertValidPointer, as in Free.
  void* Realloc(void* p, unsigned size);
  /// As Realloc; null on failure, with p untouched.
  void* ReallocMaybe(void* p, unsigned size);
  /// A null, foreign or already freed pointer stops at an assertion.
  void Free(void* p);

  // Chunks: multiples of 512 bytes carved downward from the pool's end.
  /// Null (logged, with an arena dump, except for users stream and records) when the gap is too
  /// small. A zero size stops at assertion 1975 of "GetChunk".
  void* GetChunk(unsigned size, User user);
  /// An address that is not a chunk stops at assertion 2091 of "ReturnChunk".
  void ReturnChunk(void* p);

  /// Installs the handler that Malloc and Realloc ask before giving up; returns the previous one.
  OutOfMemoryHandler OutOfMemory(OutOfMemoryHandler handler);
  /// The out-of-space report: two log lines, the arena dump, assertion 1216, exit(1).
  [[noreturn]] void BlockFailure(unsigned size);

  // Accounting and checks.
  /// Retags p's block with user and counts it (once: "unassigned" blocks are not counted). A
  /// null, foreign or freed pointer stops at an assertion of AssertValidPointer.
  void AssignNuvCoreUser(void* p, User user);
  /// Records the current counts as this pool's empty state.
  void ResetEmpty();
  void CheckOn() { checkingM = 1; }
  void CheckOff() { checkingM = 0; }
  /// Logs the pool's figures (once anything was allocated), then checks it under its lock.
  void CheckPool();
  void CheckPoolQuietly();
  /// With the lock held: the full consistency check; expected, when given, must be in the heap.
  void InternalCheckPool(NuvMempoolBlock* expected);
  /// Assertions 1436, 1439, 1440 and 1441 of "AssertValidPointer".
  void AssertValidPointer(void* p);
  /// Logs the current use per user and in total.
  void DumpArena(bool flag);
  /// Logs the high-water marks per user and in total.
  void DumpHighWater();
  /// Reports chunks and blocks still held; stops at assertion 2357 unless the pool is as empty
  /// as at ResetEmpty.
  void ShouldBeEmpty();

  NuvThreadQMgr* GetQBlockMgr() const { return qBlockMgrM; }
  NuvMessenger* GetMessenger() const { return messengerM; }
  NuvMempoolRegistry* GetRegistry() const { return registryM; }
  const char* GetName() const { return nameM; }
  unsigned GetSize() const { return sizeM; }
  const NuvMempoolInfo& GetInfo() const { return infoM; }

  /// Page protection and locking over the whole pool.
  int Protect();
  int Unprotect();
  int MLock();
  int MUnlock();

 private:
  friend struct NuvMempoolLayout;
  friend class NuvMempoolBlock;

  void Lock();
  void Unlock();
  /// Debug builds stop unless the pool's word is held, or ShouldBeEmpty has the pool to itself:
  /// the contract of the heap functions below.
  void AssertWordHeld() const;
  /// The pool that ShouldBeEmpty works on without its word: no other process uses it any more.
  static const NuvMempool* poolInSoleUseM;
  /// With the pool's word held (or in ShouldBeEmpty): the allocation, reallocation and freeing
  /// proper.
  void* InternalMalloc(unsigned size, User user);
  bool InternalRealloc(void* p, unsigned size);
  void InternalFree(void* p);
  NuvMempoolBlock* ExtendHeap(unsigned need);
  /// With the pool's word held: puts block on the free list of its size's bucket.
  void LinkFree(NuvMempoolBlock* block);
  /// With the pool's word held: takes block off bucket's free list.
  void UnlinkFree(unsigned bucket, NuvMempoolBlock* block);
  /// With the pool's word held: unlinks and returns the first free block of at least need
  /// bytes, or null.
  NuvMempoolBlock* TakeFittingBlock(unsigned need);
  void SplitOff(NuvMempoolBlock* block, unsigned keep);
  void* MallocLoop(unsigned size, User user);
  bool ReserveKept() const;
  unsigned RoundUpToChunkSize(unsigned n) const;
  NuvChunkRecord* FindReusableChunk(unsigned rounded);
  void* CarveChunk(unsigned size, unsigned rounded, User user);
  unsigned GapBytes() const;
  void LogPool(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void DumpRows(bool highWater);
  void SetName(const char* name);

  unsigned magicM;
  unsigned sizeM;
  NuvMempoolBlock** bucketsM;
  NuvMempoolBlock* firstM;
  NuvMempoolBlock* topM;
  unsigned reserveM;
  char* chunkFloorM;
  unsigned granuleM;
  NuvThreadQMgr* qBlockMgrM;
  NuvMessenger* messengerM;
  volatile NuvLock* lockWordM;
  NuvChunkRecord* chunksM;
  NuvMempoolInfo* infoPointerM;
  NuvMempoolRegistry* registryM;
  unsigned checkingM;
  char nameM[kNameSize];
  OutOfMemoryHandler outOfMemoryM;
  volatile NuvLock lockM;
  NuvMempoolInfo infoM;
  NuvMempoolBlock* bucketHeadsM[kBuckets];
  unsigned firstSentinelM[2];
  unsigned topSentinelM[2];
};

/// The bucket of a block size: 0 below 64, else the number of significant bits of size / 64.
unsigned SelectBucket(unsigned size);

/// The name of a user tag; "xxx" for values above 12.
const char* UserName(NuvMempool::User user);

#endif  // NUV_MEMPOOL_H
