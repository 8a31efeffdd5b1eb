/// \file Figures derived from a pool: free space, fragmentation and the pool size that its
/// high-water marks call for.
#ifndef NUV_TOOLS_NUVPOOL_FIGURES_H
#define NUV_TOOLS_NUVPOOL_FIGURES_H

#include "pool_model.h"

#include <cstdint>

namespace nuvpool {

struct FreeSpace {
  uint32_t blocks = 0;        // free blocks in the heap
  uint32_t bytes = 0;         // their bytes, headers included
  uint32_t largestBlock = 0;  // the largest of them
  uint32_t gap = 0;           // between the top sentinel and the chunk floor
  uint32_t largest = 0;       // the largest free piece, block or gap
  double fragmentation = 0;   // 1 - largest / (bytes + gap); 0 when nothing is free
};

FreeSpace MeasureFreeSpace(const PoolModel& model);

/// The size to give Allocate for a pool that holds the high-water marks with a quarter to
/// spare: headers, sentinels, block headers, chunks and the reserve, rounded up to pages.
uint32_t SuggestedPoolSize(const PoolModel& model);

}  // namespace nuvpool

#endif  // NUV_TOOLS_NUVPOOL_FIGURES_H
