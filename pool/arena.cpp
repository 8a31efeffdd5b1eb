/// \file The pool header: its layout, laying out a new arena, and the pool's own objects.
#include <nuv/mempool.h>

#include <nuv/os_mempool.h>
#include <nuv/registry.h>

#include <cstdint>
#include <cstring>

#include "core/assert_at.h"
#include "pool/block.h"
#include "pool/sync_objects.h"

namespace {

constexpr unsigned kSentinelHeader = 0x03000008;
constexpr unsigned kReserve = 512;
constexpr unsigned kGranule = 512;

bool WordAligned(const void* p) { return reinterpret_cast<uintptr_t>(p) % 4 == 0; }

}  // namespace

// A pool is laid over a mapping, never constructed.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): the assertion ends the process.
NuvMempool::NuvMempool() { NUV_ASSERT_AT(false, 978, "NuvMempool"); }

// NOLINTNEXTLINE(cert-dcl54-cpp,misc-new-delete-overloads): pools are never made with new.
void NuvMempool::operator delete(void* /*p*/) {}

void NuvMempool::SetName(const char* name) {
  strncpy(nameM, name != nullptr ? name : "", kNameSize);
  nameM[kNameSize - 1] = '\0';
}

void NuvMempool::InitArena(unsigned size) {
  NUV_ASSERT_AT(WordAligned(this), 1492, "InitArena");
  NUV_ASSERT_AT(WordAligned(bucketHeadsM), 1494, "InitArena");
  NUV_ASSERT_AT(WordAligned(firstSentinelM), 1498, "InitArena");
  NUV_ASSERT_AT(WordAligned(topSentinelM), 1501, "InitArena");
  NUV_ASSERT_AT(WordAligned(&infoM), 1504, "InitArena");
  magicM = kMagic;
  sizeM = size;
  bucketsM = bucketHeadsM;
  firstM = NuvMempoolBlock::At(reinterpret_cast<char*>(firstSentinelM));
  topM = NuvMempoolBlock::At(reinterpret_cast<char*>(topSentinelM));
  chunkFloorM = reinterpret_cast<char*>(this) + size;
  outOfMemoryM = nullptr;
  memset(bucketHeadsM, 0, sizeof bucketHeadsM);
  firstSentinelM[0] = kSentinelHeader;
  firstSentinelM[1] = 0;
  topSentinelM[0] = kSentinelHeader;
  topSentinelM[1] = sizeof firstSentinelM;
  reserveM = kReserve;
  granuleM = kGranule;
  chunksM = nullptr;
  infoPointerM = &infoM;
  infoM.Clear();
  checkingM = 0;
  lockWordM = &lockM;
  lockM = 0;
  nuv::MakeSyncObjects(this, &messengerM, &qBlockMgrM);
  registryM = new (this) NuvMempoolRegistry();
  ResetEmpty();
}

int NuvMempool::Protect() { return NuvOsMempool::Protect(this, sizeM); }
int NuvMempool::Unprotect() { return NuvOsMempool::Unprotect(this, sizeM); }
int NuvMempool::MLock() { return NuvOsMempool::MLock(this, sizeM); }
int NuvMempool::MUnlock() { return NuvOsMempool::MUnlock(this, sizeM); }
