/// \file Cost of the hot primitives: an uncontended lock word pair, fadd and a counter read.
#include <nuv/lockword.h>
#include <nuv/time.h>

#include <cstdio>

#include "bench/how_measured.h"
#include "bench/median.h"

int main() {
  nuv::bench::PrintHowMeasured();
  volatile NuvLock word = 0;
  volatile unsigned counter = 0;
  std::printf("uptrylock+upunlock: %.2f ns\n", nuv::bench::MedianNanoseconds([&word] {
                uptrylock(&word);
                upunlock(&word);
              }));
  std::printf("fadd:               %.2f ns\n",
              nuv::bench::MedianNanoseconds([&counter] { fadd(&counter, 1); }));
  std::printf("readCounter:        %.2f ns\n", nuv::bench::MedianNanoseconds([] {
                static_cast<void>(NuvTimeCounter::readCounter());
              }));
  return 0;
}
