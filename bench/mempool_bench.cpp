/// \file Cost of a pool's Malloc(64) and Free beside the C library's malloc(64) and free.
#include <nuv/mempool.h>

#include <cstdio>
#include <cstdlib>

#include "bench/how_measured.h"
#include "bench/median.h"
#include "bench/private_pool.h"

namespace {

constexpr unsigned kBlockSize = 64;
constexpr unsigned kPoolSize = 1024 * 1024;

}  // namespace

int main() {
  nuv::bench::PrintHowMeasured();
  NuvMempool* pool = nuv::bench::MakePrivatePool(kPoolSize);
  if (pool == nullptr) {
    return EXIT_FAILURE;
  }
  // Each block is stored where the compiler must assume it is read, so no pair is left out.
  void* volatile sink = nullptr;
  std::printf("pool Malloc(64)+Free: %.2f ns\n", nuv::bench::MedianNanoseconds([pool, &sink] {
                sink = pool->Malloc(kBlockSize, NuvMempool::unknown);
                pool->Free(sink);
              }));
  std::printf("malloc(64)+free:      %.2f ns\n", nuv::bench::MedianNanoseconds([&sink] {
                sink = std::malloc(kBlockSize);
                std::free(sink);
              }));
  delete pool;
  return EXIT_SUCCESS;
}
