/// \file The benchmarks' measures: the cost of one call over several timed repetitions, alone or
/// interleaved with the nearest equivalent of the C library, POSIX or the kernel.
#ifndef NUV_BENCH_MEDIAN_H
#define NUV_BENCH_MEDIAN_H

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <vector>

namespace nuv::bench {

/// Nanoseconds per call of op over iterations calls.
template <typename Op>
double NanosecondsPerCall(Op& op, int iterations) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < iterations; ++i) {
    op();
  }
  const std::chrono::duration<double, std::nano> spent = std::chrono::steady_clock::now() - start;
  return spent.count() / iterations;
}

/// The nanoseconds per call of each repetition.
class Repetitions {
 public:
  void Add(double nanoseconds) { perCallM.push_back(nanoseconds); }
  double Median() const {
    std::vector<double> sorted = perCallM;
    std::sort(sorted.begin(), sorted.end());
    return sorted[sorted.size() / 2];
  }
  double Slowest() const { return *std::max_element(perCallM.begin(), perCallM.end()); }

 private:
  std::vector<double> perCallM;
};

/// Median over runs of the nanoseconds one call of op takes, each run timing iterations calls.
template <typename Op>
double MedianNanoseconds(Op op, int runs = 9, int iterations = 1000000) {
  Repetitions repetitions;
  for (int run = 0; run < runs; ++run) {
    repetitions.Add(NanosecondsPerCall(op, iterations));
  }
  return repetitions.Median();
}

/// Times each operation in turn, runs times, iterations calls a repetition: whatever the machine
/// does meanwhile falls on all of them alike. The repetitions of each, in the order given.
template <typename... Ops>
std::array<Repetitions, sizeof...(Ops)> Interleaved(int runs, int iterations, Ops... ops) {
  std::array<Repetitions, sizeof...(Ops)> result;
  for (int run = 0; run < runs; ++run) {
    size_t index = 0;
    (result[index++].Add(NanosecondsPerCall(ops, iterations)), ...);
  }
  return result;
}

/// One line per operation: its median and slowest repetition (and how many medians that is), in
/// microseconds when micro is set, and for each after the first how many of its medians the
/// first one's median is.
template <size_t N>
void PrintBeside(const char* what, const std::array<const char*, N>& names,
                 const std::array<Repetitions, N>& timings, bool micro) {
  const double scale = micro ? 1000.0 : 1.0;
  const char* unit = micro ? "us" : "ns";
  std::printf("%s\n", what);
  for (size_t i = 0; i < N; ++i) {
    const Repetitions& timing = timings[i];
    std::printf("  %-28s %9.2f %s, slowest %9.2f (%.2fx the median)", names[i],
                timing.Median() / scale, unit, timing.Slowest() / scale,
                timing.Slowest() / timing.Median());
    if (i > 0) {
      std::printf("; %s takes %.2fx this", names[0], timings[0].Median() / timing.Median());
    }
    std::printf("\n");
  }
}

}  // namespace nuv::bench

#endif  // NUV_BENCH_MEDIAN_H
