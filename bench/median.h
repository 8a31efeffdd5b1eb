/// \file The benchmarks' one measure: the median cost of one call over several timed runs.
#ifndef NUV_BENCH_MEDIAN_H
#define NUV_BENCH_MEDIAN_H

#include <algorithm>
#include <chrono>
#include <vector>

namespace nuv::bench {

/// Median over runs of the nanoseconds one call of op takes, each run timing iterations calls.
template <typename Op>
double MedianNanoseconds(Op op, int runs = 9, int iterations = 1000000) {
  std::vector<double> perCall;
  perCall.reserve(static_cast<size_t>(runs));
  for (int run = 0; run < runs; ++run) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < iterations; ++i) {
      op();
    }
    const std::chrono::duration<double, std::nano> spent = std::chrono::steady_clock::now() - start;
    perCall.push_back(spent.count() / iterations);
  }
  std::sort(perCall.begin(), perCall.end());
  return perCall[perCall.size() / 2];
}

}  // namespace nuv::bench

#endif  // NUV_BENCH_MEDIAN_H
