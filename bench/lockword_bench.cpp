/// \file Cost of the hot primitives: an uncontended lock word pair, fadd and a counter read.
#include <nuv/lockword.h>
#include <nuv/time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace {

constexpr int kRuns = 9;
constexpr int kIterations = 1000000;

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
  volatile NuvLock word = 0;
  volatile unsigned counter = 0;
  std::printf("uptrylock+upunlock: %.2f ns\n", MedianNanoseconds([&word] {
                uptrylock(&word);
                upunlock(&word);
              }));
  std::printf("fadd:               %.2f ns\n",
              MedianNanoseconds([&counter] { fadd(&counter, 1); }));
  std::printf("readCounter:        %.2f ns\n",
              MedianNanoseconds([] { static_cast<void>(NuvTimeCounter::readCounter()); }));
  return 0;
}
