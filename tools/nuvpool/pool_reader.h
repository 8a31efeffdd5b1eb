/// \file Reading a whole pool file into a PoolModel, noting as findings whatever a sound pool
/// would not show. Every walk is bounded by the file and stops at the first address it has
/// already seen.
#ifndef NUV_TOOLS_NUVPOOL_POOL_READER_H
#define NUV_TOOLS_NUVPOOL_POOL_READER_H

#include "pool_image.h"
#include "pool_model.h"

namespace nuvpool {

/// Reads image, which Open has accepted.
PoolModel ReadPool(const PoolImage& image);

// The parts of ReadPool, in the order it calls them.
void ReadHeader(const PoolImage& image, PoolModel* model);
void ReadStatistics(const PoolImage& image, PoolModel* model);
void WalkHeap(const PoolImage& image, PoolModel* model);
void WalkBuckets(const PoolImage& image, PoolModel* model);
void CompareCounts(PoolModel* model);
void WalkChunks(const PoolImage& image, PoolModel* model);
void ReadObjects(const PoolImage& image, PoolModel* model);

/// Adds a finding: "what" at address, formatted like printf.
void Note(PoolModel* model, uint32_t address, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace nuvpool

#endif  // NUV_TOOLS_NUVPOOL_POOL_READER_H
