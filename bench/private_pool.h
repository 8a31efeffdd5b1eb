/// \file A pool private to a benchmark process.
#ifndef NUV_BENCH_PRIVATE_POOL_H
#define NUV_BENCH_PRIVATE_POOL_H

#include <nuv/mempool.h>
#include <nuv/status.h>

#include <cstdio>

namespace nuv::bench {

/// An anonymous pool of size bytes, or null after saying why on standard error.
inline NuvMempool* MakePrivatePool(unsigned size) {
  NuvMempool* pool = nullptr;
  const unsigned result = NuvMempool::Allocate("bench", size, false, nullptr, false, pool);
  if (result != kNuvOk) {
    std::fprintf(stderr, "pool allocation failed: %s\n", NuvStatusText(result));
    return nullptr;
  }
  return pool;
}

}  // namespace nuv::bench

#endif  // NUV_BENCH_PRIVATE_POOL_H
