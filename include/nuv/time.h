/// \file Time values in nanoseconds, and the high-resolution interval counter.
#ifndef NUV_TIME_H
#define NUV_TIME_H

#include <cstdint>

/// A point in time (from the Unix epoch) or a duration, in nanoseconds: a signed 64-bit count
/// kept as two 32-bit words, upper word first, on either byte order. Time-outs are passed as
/// NuvTime*; a null pointer means no limit.
/// Layout (checked in core/layout.cpp): 0 upper word, 4 lower word.
class NuvTime {
 public:
  NuvTime() = default;
  explicit NuvTime(int64_t nanoseconds) { Set(nanoseconds); }

  /// Sets the value to the current time of day; returns gettimeofday's result.
  int loadCurrent();
  /// The value for a time of day given as whole seconds and microseconds.
  static NuvTime FromTimeval(uint32_t seconds, uint32_t microseconds);

  int64_t Nanoseconds() const {
    return static_cast<int64_t>((static_cast<uint64_t>(upperM) << 32) | lowerM);
  }
  void Set(int64_t nanoseconds) {
    upperM = static_cast<uint32_t>(static_cast<uint64_t>(nanoseconds) >> 32);
    lowerM = static_cast<uint32_t>(nanoseconds);
  }

 private:
  friend struct NuvCoreLayout;
  uint32_t upperM = 0;
  uint32_t lowerM = 0;
};

/// Measures short intervals with the processor's free-running counter: the time base on the
/// device, the time-stamp counter on the host. No system call on the measuring path.
class NuvTimeCounter {
 public:
  /// Length of one counter clock in picoseconds; 0 until initCounter() calibrates it, then fixed
  /// for the life of the process.
  static uint64_t HighResPsPerClock;

  /// The free-running 64-bit counter.
  static uint64_t readCounter();
  /// Calibrates HighResPsPerClock once per process, spinning for 50 kernel ticks (yielding the
  /// processor on every pass); later calls return at once.
  static void initCounter();
  /// Clocks from start to now; a start above now (a wrapped counter) gives (2^64-1)-(start-now).
  static uint64_t ClocksBetween(uint64_t start, uint64_t now);

  /// Restarts the interval at the current counter value.
  void Start() { SetStart(readCounter()); }
  /// Sets the start of the interval to a given counter value.
  void SetStart(uint64_t counter) {
    startUpperM = static_cast<uint32_t>(counter >> 32);
    startLowerM = static_cast<uint32_t>(counter);
  }
  uint64_t GetStart() const { return (static_cast<uint64_t>(startUpperM) << 32) | startLowerM; }
  /// Nanoseconds from the start to now: clocks * HighResPsPerClock / 1000 (0 before calibration).
  uint64_t tonsec() const;

 private:
  friend struct NuvCoreLayout;
  uint32_t startUpperM = 0;
  uint32_t startLowerM = 0;
};

#endif  // NUV_TIME_H
