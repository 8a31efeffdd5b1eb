/// \file Free space and the suggested pool size.
#include "figures.h"

#include <algorithm>

namespace nuvpool {

namespace {

constexpr uint64_t kPage = 4096;
constexpr uint64_t kBlockHeader = 8;
constexpr uint64_t kFixed =
    format::kFileHeaderSize + format::kPoolHeaderSize + 2 * uint64_t{format::kSentinelSize};

}  // namespace

FreeSpace MeasureFreeSpace(const PoolModel& model) {
  FreeSpace space;
  for (const Block& block : model.blocks) {
    if (block.user == 0) {
      ++space.blocks;
      space.bytes += block.size;
      space.largestBlock = std::max(space.largestBlock, block.size);
    }
  }
  space.gap = model.Gap();
  space.largest = std::max(space.largestBlock, space.gap);
  const uint64_t total = uint64_t{space.bytes} + space.gap;
  space.fragmentation =
      total == 0 ? 0.0 : 1.0 - static_cast<double>(space.largest) / static_cast<double>(total);
  return space;
}

uint32_t SuggestedPoolSize(const PoolModel& model) {
  const Usage& high = model.statistics.totals;
  const uint64_t needed = kFixed + high.bytesHigh + kBlockHeader * high.blocksHigh +
                          high.chunkBytesHigh + model.header.reserve;
  const uint64_t spared = needed + needed / 4;
  const uint64_t mapping = (spared + kPage - 1) / kPage * kPage;
  return static_cast<uint32_t>(std::min<uint64_t>(mapping, UINT32_MAX) - format::kFileHeaderSize);
}

}  // namespace nuvpool
