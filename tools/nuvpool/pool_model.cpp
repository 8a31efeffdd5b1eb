/// \file Lookups over what was read from a pool.
#include "pool_model.h"

#include <algorithm>

namespace nuvpool {

namespace {

constexpr const char* kOwnerNames[] = {"free",    "unassigned", "unknown", "nuv",    "stream",
                                       "catalog", "records",    "orb",     "script", "control",
                                       "glyph",   "overlay",    "remote"};

}  // namespace

const char* OwnerName(unsigned user) {
  constexpr unsigned kNamed = sizeof kOwnerNames / sizeof kOwnerNames[0];
  return user < kNamed ? kOwnerNames[user] : "xxx";
}

unsigned BucketOf(uint32_t size) {
  unsigned bucket = 0;
  for (uint32_t sixtyFourths = size / 64; sixtyFourths != 0; sixtyFourths >>= 1) {
    ++bucket;
  }
  return std::min(bucket, format::kBuckets - 1);
}

uint32_t PoolModel::Gap() const {
  const uint64_t heapEnd = uint64_t{header.topSentinel} + format::kSentinelSize;
  return header.chunkFloor > heapEnd ? static_cast<uint32_t>(header.chunkFloor - heapEnd) : 0;
}

const Block* PoolModel::BlockAt(uint32_t address) const {
  const auto found =
      std::lower_bound(blocks.begin(), blocks.end(), address,
                       [](const Block& block, uint32_t wanted) { return block.address < wanted; });
  return found != blocks.end() && found->address == address ? &*found : nullptr;
}

const Block* PoolModel::AllocatedAt(uint32_t payload) const {
  const Block* block = payload >= 8 ? BlockAt(payload - 8) : nullptr;
  if (block == nullptr || block->user == 0) {
    return nullptr;
  }
  const bool sentinel =
      block->address == header.firstSentinel || block->address == header.topSentinel;
  return sentinel ? nullptr : block;
}

const Block* PoolModel::AllocatedAround(uint32_t address) const {
  auto above =
      std::upper_bound(blocks.begin(), blocks.end(), address,
                       [](uint32_t wanted, const Block& block) { return wanted < block.address; });
  if (above == blocks.begin()) {
    return nullptr;
  }
  const Block& block = *(above - 1);
  const bool inPayload = address - block.address >= 8 && address - block.address < block.size;
  return inPayload ? AllocatedAt(block.address + 8) : nullptr;
}

}  // namespace nuvpool
