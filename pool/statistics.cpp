/// \file Usage counters of a pool, per user and in total, with high-water marks.
#include <nuv/mempool.h>

#include <cstring>

#include "pool/block.h"

namespace {

constexpr unsigned kLastCountedUser = NuvMempoolInfo::kUsers - 1;

// Counters exist for users 0 to 13; any higher tag shares the last row (it is named "xxx" too).
unsigned Row(unsigned user) { return user < kLastCountedUser ? user : kLastCountedUser; }

constexpr const char* kUserNames[] = {"free",    "unassigned", "unknown", "nuv",    "stream",
                                      "catalog", "records",    "orb",     "script", "control",
                                      "glyph",   "overlay",    "remote"};

}  // namespace

void NuvMempoolInfo::Clear() { memset(wordsM, 0, sizeof wordsM); }

void NuvMempoolInfo::Add(unsigned count, unsigned high, unsigned amount) {
  wordsM[count] += amount;
  if (wordsM[count] > wordsM[high]) {
    wordsM[high] = wordsM[count];
  }
}

void NuvMempoolInfo::AllocBlock(unsigned bytes, unsigned user) {
  // Storage handed to a pool object before its constructor tags it is counted by the retagging.
  if (user == NuvMempool::unassigned) {
    return;
  }
  Add(kBlocks, kBlocksHigh, 1);
  Add(kBlockBytes, kBlockBytesHigh, bytes);
  Add(kUserBlocks + Row(user), kUserBlocksHigh + Row(user), 1);
  Add(kUserBlockBytes + Row(user), kUserBlockBytesHigh + Row(user), bytes);
}

// Every user is subtracted, "unassigned" included, though it was never added: freeing a block
// that kept that tag drives its counters below zero. Kept as the accounting has always been.
void NuvMempoolInfo::FreeBlock(unsigned bytes, unsigned user) {
  wordsM[kBlocks] -= 1;
  wordsM[kUserBlocks + Row(user)] -= 1;
  FreeBytes(bytes, user);
}

void NuvMempoolInfo::FreeBytes(unsigned bytes, unsigned user) {
  wordsM[kBlockBytes] -= bytes;
  wordsM[kUserBlockBytes + Row(user)] -= bytes;
}

void NuvMempoolInfo::AllocChunk(unsigned bytes, unsigned user) {
  Add(kChunks, kChunksHigh, 1);
  Add(kChunkBytes, kChunkBytesHigh, bytes);
  Add(kUserChunks + Row(user), kUserChunksHigh + Row(user), 1);
  Add(kUserChunkBytes + Row(user), kUserChunkBytesHigh + Row(user), bytes);
}

void NuvMempoolInfo::FreeChunk(unsigned bytes, unsigned user) {
  wordsM[kChunks] -= 1;
  wordsM[kChunkBytes] -= bytes;
  wordsM[kUserChunks + Row(user)] -= 1;
  wordsM[kUserChunkBytes + Row(user)] -= bytes;
}

void NuvMempool::AssignNuvCoreUser(void* p, User user) {
  Lock();
  // Only a block of this pool in use can be retagged and counted here.
  AssertValidPointer(p);
  NuvMempoolBlock* block = NuvMempoolBlock::OfPayload(p);
  block->SetUser(user);
  infoM.AllocBlock(block->Size() - NuvMempoolBlock::kHeaderBytes, user);
  Unlock();
}

void NuvMempool::ResetEmpty() {
  infoM.wordsM[NuvMempoolInfo::kEmptyBlockBytes] = infoM.wordsM[NuvMempoolInfo::kBlockBytes];
  infoM.wordsM[NuvMempoolInfo::kEmptyBlocks] = infoM.wordsM[NuvMempoolInfo::kBlocks];
  infoM.wordsM[NuvMempoolInfo::kEmptyChunks] = infoM.wordsM[NuvMempoolInfo::kChunks];
}

const char* UserName(NuvMempool::User user) {
  constexpr unsigned kNamed = sizeof kUserNames / sizeof kUserNames[0];
  return user < kNamed ? kUserNames[user] : "xxx";
}
