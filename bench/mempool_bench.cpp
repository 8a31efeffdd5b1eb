/// \file Cost of a pool's Malloc(64) and Free beside the C library's malloc(64) and free.
#include <nuv/mempool.h>
#include <nuv/status.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr int kRuns = 9;
constexpr int kIterations = 1000000;
constexpr unsigned kBlockSize = 64;
constexpr unsigned kPoolSize = 1024 * 1024;

// Median over kRuns of the nanoseconds one call of op takes.
template <typename Op>
double MedianNanoseconds(Op op) {
  std::vector<double> runs;
  for (int run = 0; run < kRuns; ++run) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kIterations; ++i) {
      op();
    }
    const std::chrono::duration<double, std::nano> spent = std::chrono::steady_clock::now() - start;
    runs.push_back(spent.count() / kIterations);
  }
  std::sort(runs.begin(), runs.end());
  return runs[kRuns / 2];
}

}  // namespace

int main() {
  NuvMempool* pool = nullptr;
  const unsigned result = NuvMempool::Allocate("bench", kPoolSize, false, nullptr, false, pool);
  if (result != kNuvOk) {
    std::fprintf(stderr, "pool allocation failed: %s\n", NuvStatusText(result));
    return EXIT_FAILURE;
  }
  // Each block is stored where the compiler must assume it is read, so no pair is left out.
  void* volatile sink = nullptr;
  std::printf("pool Malloc(64)+Free: %.2f ns\n", MedianNanoseconds([pool, &sink] {
                sink = pool->Malloc(kBlockSize, NuvMempool::unknown);
                pool->Free(sink);
              }));
  std::printf("malloc(64)+free:      %.2f ns\n", MedianNanoseconds([&sink] {
                sink = std::malloc(kBlockSize);
                std::free(sink);
              }));
  delete pool;
  return EXIT_SUCCESS;
}
