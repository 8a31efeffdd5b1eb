/// \file Where a benchmark's processes run: a hand-off between two processes costs far more when
/// the woken one must be fetched onto another processor, so each is measured both ways.
#ifndef NUV_BENCH_PLACEMENT_H
#define NUV_BENCH_PLACEMENT_H

#include <sched.h>

namespace nuv::bench {

/// Calls measure(placement) twice: with this process and those it forks free to run on any
/// processor, then with all of them on the processor this process runs on.
template <typename Measure>
void OnEachPlacement(Measure measure) {
  measure("free to run on any processor");
  cpu_set_t all;
  CPU_ZERO(&all);
  sched_getaffinity(0, sizeof all, &all);
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  sched_setaffinity(0, sizeof one, &one);
  measure("all on one processor");
  sched_setaffinity(0, sizeof all, &all);
}

}  // namespace nuv::bench

#endif  // NUV_BENCH_PLACEMENT_H
