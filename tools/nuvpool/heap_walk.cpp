/// \file The block heap: the walk from the first sentinel to the top sentinel by block sizes,
/// and the free lists of the buckets.
#include "pool_reader.h"

#include <algorithm>
#include <set>

namespace nuvpool {

namespace {

constexpr uint32_t kSizeMask = 0x00ffffff;
constexpr uint32_t kNuvUser = 3;

Block ReadBlock(const PoolImage& image, uint32_t address) {
  const uint32_t word = image.Word(address);
  return {address, word & kSizeMask, word >> 24};
}

void CheckFreePattern(const PoolImage& image, const Block& block, PoolModel* model) {
  // Header, previous size and the two links come first; the rest holds the pattern. A size that
  // runs past the file is reported by the walk; here the words end with the file.
  const uint64_t end = std::min<uint64_t>(uint64_t{block.address} + block.size, image.End());
  for (uint64_t at = uint64_t{block.address} + 16; at + 4 <= end; at += 4) {
    const uint32_t word = image.Word(static_cast<uint32_t>(at));
    if (word != format::kDeadBeef) {
      Note(model, static_cast<uint32_t>(at),
           "free block at 0x%08x holds 0x%08x where freed memory holds 0x%08x", block.address, word,
           format::kDeadBeef);
      return;
    }
  }
}

void CheckBlock(const PoolImage& image, const Block& checked, const Block& below,
                PoolModel* model) {
  const uint32_t previousSize = image.Word(checked.address + 4);
  if (checked.address - previousSize != below.address) {
    Note(model, checked.address + 4,
         "block's previous size %u leads to 0x%08x, not to the block below at 0x%08x", previousSize,
         checked.address - previousSize, below.address);
  }
  if (checked.user != 0) {
    return;
  }
  if (checked.size < format::kMinBlock) {
    Note(model, checked.address, "free block of %u bytes, below the least block of %u",
         checked.size, format::kMinBlock);
  }
  if (below.user == 0) {
    Note(model, checked.address, "free block beside the free block at 0x%08x: they were not merged",
         below.address);
  }
  CheckFreePattern(image, checked, model);
}

// A block that the walk can step over: at least a sentinel's size, and ending by the limit.
bool FitsBelow(const Block& block, uint64_t limit) {
  return block.size >= format::kSentinelSize && uint64_t{block.address} + block.size <= limit;
}

void CheckTopSentinel(const Block& top, PoolModel* model) {
  if (top.user != kNuvUser || top.size != format::kSentinelSize) {
    Note(model, top.address, "top sentinel reads user %u and size %u, not user 3 and size 8",
         top.user, top.size);
  }
}

}  // namespace

void WalkHeap(const PoolImage& image, PoolModel* model) {
  const Header& h = model->header;
  const uint64_t limit = std::min<uint64_t>(h.topSentinel, image.End());
  Block block = ReadBlock(image, h.firstSentinel);
  if (!image.Holds(h.firstSentinel, format::kSentinelSize) || !FitsBelow(block, limit)) {
    Note(model, model->Pool() + 12, "first sentinel 0x%08x is not a block below the top 0x%08x",
         h.firstSentinel, h.topSentinel);
    return;
  }
  model->blocks.push_back(block);
  // Each step moves up by at least 8 bytes and never past the limit: the walk ends.
  while (block.address != h.topSentinel) {
    const Block above = ReadBlock(image, block.address + block.size);
    CheckBlock(image, above, block, model);
    if (above.address != h.topSentinel && !FitsBelow(above, limit)) {
      Note(model, above.address, "block of %u bytes (user %u) runs past the top sentinel 0x%08x",
           above.size, above.user, h.topSentinel);
      return;
    }
    model->blocks.push_back(above);
    block = above;
  }
  CheckTopSentinel(block, model);
}

void WalkBuckets(const PoolImage& image, PoolModel* model) {
  std::set<uint32_t> listed;
  const uint32_t heads = model->Pool() + 616;
  for (unsigned bucket = 0; bucket < format::kBuckets; ++bucket) {
    uint32_t previous = 0;
    for (uint32_t at = image.Word(heads + 4 * bucket); at != 0; at = image.Word(at + 12)) {
      const Block* block = model->BlockAt(at);
      const bool seen = listed.count(at) != 0;
      if (block == nullptr || block->user != 0 || seen) {
        Note(model, at, "bucket %u lists 0x%08x, %s", bucket, at,
             seen ? "which is already on a list" : "which is not a free block of the heap");
        break;
      }
      listed.insert(at);
      if (image.Word(at + 8) != previous) {
        Note(model, at + 8, "free block's back link is 0x%08x, not 0x%08x", image.Word(at + 8),
             previous);
      }
      if (BucketOf(block->size) != bucket) {
        Note(model, at, "free block of %u bytes is listed in bucket %u, not %u", block->size,
             bucket, BucketOf(block->size));
      }
      Bucket& figures = model->buckets[bucket];
      ++figures.blocks;
      figures.bytes += block->size;
      figures.largest = std::max(figures.largest, block->size);
      previous = at;
    }
  }
  for (const Block& block : model->blocks) {
    if (block.user == 0 && listed.count(block.address) == 0) {
      Note(model, block.address, "free block of %u bytes is on no bucket list", block.size);
    }
  }
}

}  // namespace nuvpool
