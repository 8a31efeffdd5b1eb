/// \file Blocks of a pool's heap, and the chunk records kept among them.
#ifndef NUV_POOL_BLOCK_H
#define NUV_POOL_BLOCK_H

#include <nuv/mempool.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

/// A block at any address of the heap. A resized block may start at an address that is not a
/// multiple of 4, so every word is read and written bytewise-safe.
class NuvMempoolBlock {
 public:
  static constexpr unsigned kHeaderBytes = 8;
  static constexpr unsigned kMinimumSize = 16;
  static constexpr unsigned kSizeMask = 0x00ffffff;
  static constexpr unsigned kCheckMark = 0x01000000;
  static constexpr unsigned kDeadBeef = 0xdeadbeef;

  static NuvMempoolBlock* OfPayload(void* p) {
    return reinterpret_cast<NuvMempoolBlock*>(static_cast<char*>(p) - kHeaderBytes);
  }
  static NuvMempoolBlock* At(char* address) { return reinterpret_cast<NuvMempoolBlock*>(address); }

  char* Address() { return reinterpret_cast<char*>(this); }
  void* Payload() { return Address() + kHeaderBytes; }

  unsigned Size() const { return Word(0) & kSizeMask; }
  unsigned User() const { return Word(0) >> 24; }
  bool FFree() const { return User() == 0; }
  void SetSize(unsigned size) { SetWord(0, (Word(0) & ~kSizeMask) | size); }
  void SetUser(unsigned user) { SetWord(0, (Word(0) & kSizeMask) | (user << 24)); }
  void SetHeader(unsigned user, unsigned size) { SetWord(0, (user << 24) | size); }
  unsigned PreviousSize() const { return Word(1) & kSizeMask; }
  void SetPreviousSize(unsigned size) { SetWord(1, size); }
  bool FMarked() const { return (Word(1) & kCheckMark) != 0; }
  void SetMark(bool on) { SetWord(1, on ? Word(1) | kCheckMark : Word(1) & ~kCheckMark); }

  NuvMempoolBlock* Above() { return At(Address() + Size()); }
  NuvMempoolBlock* Below() { return At(Address() - PreviousSize()); }
  NuvMempoolBlock* PreviousFree() const { return PointerWord(2); }
  NuvMempoolBlock* NextFree() const { return PointerWord(3); }
  void SetPreviousFree(NuvMempoolBlock* block) { SetPointerWord(2, block); }
  void SetNextFree(NuvMempoolBlock* block) { SetPointerWord(3, block); }

  /// Fills the payload with 0xdeadbeef: (size - 8) / 4 words from word 2.
  void Init();
  /// Fills a freed block's payload with 0xdeadbeef (the same words as Init).
  void UnInit();
  /// Fills the words between the old end (oldSize) and the end with 0xdeadbeef, from the end.
  void InitTail(unsigned oldSize);
  /// Overwrites the first four words (header, previous size, links) of a merged-away block.
  void Bury();
  /// A free block is at least 16 bytes (assertion 751) and holds 0xdeadbeef after its links
  /// (assertion 764) of "AssertDeadBeef".
  void AssertDeadBeef() const;
  /// Padding words are not configured: nothing to check.
  void AssertPaddingOk() {}

  unsigned Word(unsigned index) const {
    unsigned value = 0;
    memcpy(&value, reinterpret_cast<const char*>(this) + index * 4, sizeof value);
    return value;
  }
  void SetWord(unsigned index, unsigned value) {
    memcpy(reinterpret_cast<char*>(this) + index * 4, &value, sizeof value);
  }

 private:
  NuvMempoolBlock* PointerWord(unsigned index) const {
    return reinterpret_cast<NuvMempoolBlock*>(static_cast<uintptr_t>(Word(index)));
  }
  void SetPointerWord(unsigned index, NuvMempoolBlock* block) {
    SetWord(index, static_cast<unsigned>(reinterpret_cast<uintptr_t>(block)));
  }
};

/// One chunk carved from the top of the pool (a 20-byte block of user "nuv").
struct NuvChunkRecord {
  char* address;
  unsigned size;
  unsigned user;
  unsigned free;
  NuvChunkRecord* next;
};
static_assert(sizeof(NuvChunkRecord) == 20, "chunk record is five words");
static_assert(offsetof(NuvChunkRecord, size) == 4, "chunk record: size");
static_assert(offsetof(NuvChunkRecord, user) == 8, "chunk record: user");
static_assert(offsetof(NuvChunkRecord, free) == 12, "chunk record: free flag");
static_assert(offsetof(NuvChunkRecord, next) == 16, "chunk record: next");

#endif  // NUV_POOL_BLOCK_H
