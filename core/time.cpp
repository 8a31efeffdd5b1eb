/// \file NuvTime and NuvTimeCounter.
#include <nuv/time.h>

#include <sched.h>
#include <sys/time.h>
#include <sys/times.h>

#include "arch/timebase.h"
#include "core/kernel.h"

namespace {

constexpr clock_t kCalibrationTicks = 50;
constexpr uint64_t kPicosecondsPerMicrosecond = 1000000;

uint64_t UnsignedProduct(uint32_t a, uint32_t b) { return static_cast<uint64_t>(a) * b; }

uint64_t AtLeastOne(uint64_t value) { return value == 0 ? 1 : value; }

constexpr nuv::kernel::Call kGettimeofday{"gettimeofday", -1, 0, false};
// Failure is (clock_t)-1; the calibration's loop compares ticks, and a failing clock ends it.
constexpr nuv::kernel::Call kTimes{"times", -1, 0, false};
constexpr nuv::kernel::Call kSchedYield{"sched_yield", -1, 0, false};

clock_t Ticks() {
  tms ticks{};
  return static_cast<clock_t>(nuv::kernel::Make(kTimes, [&ticks] { return times(&ticks); }).value);
}

}  // namespace

uint64_t NuvTimeCounter::HighResPsPerClock = 0;

NuvTime NuvTime::FromTimeval(uint32_t seconds, uint32_t microseconds) {
  return NuvTime(static_cast<int64_t>(UnsignedProduct(seconds, 1000000000U) +
                                      UnsignedProduct(microseconds, 1000U)));
}

int NuvTime::loadCurrent() {
  timeval now{};
  const auto result = static_cast<int>(
      nuv::kernel::Make(kGettimeofday, [&now] { return gettimeofday(&now, nullptr); }).value);
  *this = FromTimeval(static_cast<uint32_t>(now.tv_sec), static_cast<uint32_t>(now.tv_usec));
  return result;
}

uint64_t NuvTimeCounter::readCounter() { return nuv::arch::ReadTimeBase(); }

uint64_t NuvTimeCounter::ClocksBetween(uint64_t start, uint64_t now) {
  // A wrapped counter is taken as the complement, one clock short of the modular difference;
  // this is the counter's long-standing arithmetic and is kept.
  return now >= start ? now - start : ~uint64_t{0} - (start - now);
}

void NuvTimeCounter::initCounter() {
  if (HighResPsPerClock != 0) {
    return;
  }
  const clock_t t0 = Ticks();
  NuvTime start;
  start.loadCurrent();
  const uint64_t c0 = readCounter();
  while (Ticks() < t0 + kCalibrationTicks) {
    nuv::kernel::Ignore(nuv::kernel::Make(kSchedYield, [] { return sched_yield(); }),
                        "only a courtesy to other processes while the ticks pass");
  }
  const uint64_t c1 = readCounter();
  NuvTime end;
  end.loadCurrent();

  const uint64_t clocks = ClocksBetween(c0, c1);
  const auto microseconds = static_cast<int32_t>((end.Nanoseconds() - start.Nanoseconds()) / 1000);
  // Both divisions truncate: exact only for a whole number of megahertz dividing 10^6. Kept.
  // A clock stepped backwards or a counter below 1 MHz would divide by zero: count them as 1.
  const uint64_t clocksPerMicrosecond = clocks / AtLeastOne(static_cast<uint64_t>(microseconds));
  HighResPsPerClock = kPicosecondsPerMicrosecond / AtLeastOne(clocksPerMicrosecond);
}

uint64_t NuvTimeCounter::tonsec() const {
  return ClocksBetween(GetStart(), readCounter()) * HighResPsPerClock / 1000;
}
