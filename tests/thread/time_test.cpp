/// \file NuvTime values and the high-resolution interval counter.
#include <nuv/time.h>

#include <gtest/gtest.h>

#include <sys/time.h>
#include <cstdint>
#include <cstring>

namespace {

constexpr uint64_t kAllOnes = ~uint64_t{0};

class TimeCounter : public ::testing::Test {
 protected:
  void TearDown() override { NuvTimeCounter::HighResPsPerClock = savedM; }

 private:
  uint64_t savedM = NuvTimeCounter::HighResPsPerClock;
};

TEST(NuvTimeValue, OneAndAHalfSecondsAfterTheEpochIsOneAndAHalfBillion) {
  EXPECT_EQ(NuvTime::FromTimeval(1, 500000).Nanoseconds(), 1500000000);
}

TEST(NuvTimeValue, SecondsBeyondThirtyTwoBitsOfNanosecondsCarryIntoTheUpperWord) {
  EXPECT_EQ(NuvTime::FromTimeval(4000000000U, 999999).Nanoseconds(),
            4000000000LL * 1000000000LL + 999999000LL);
}

TEST(NuvTimeValue, IsTwoWordsUpperWordFirst) {
  const NuvTime value(0x0000000100000002LL);
  static_assert(sizeof(NuvTime) == 8, "two 32-bit words");
  uint32_t words[2];
  memcpy(words, &value, sizeof words);
  EXPECT_EQ(words[0], 1U);
  EXPECT_EQ(words[1], 2U);
}

TEST(NuvTimeValue, NegativeDurationsRoundTrip) { EXPECT_EQ(NuvTime(-5).Nanoseconds(), -5); }

// Bounded by the same clock, read just before and after: time() reads a coarser clock that can
// lag the time of day by up to a tick, and so could lie a second behind a value read before it.
TEST(NuvTimeValue, LoadCurrentReadsTheTimeOfDay) {
  NuvTime now;
  timeval before{};
  timeval after{};
  gettimeofday(&before, nullptr);
  EXPECT_EQ(now.loadCurrent(), 0);
  gettimeofday(&after, nullptr);
  const int64_t microseconds = now.Nanoseconds() / 1000;
  EXPECT_GE(microseconds, int64_t{before.tv_sec} * 1000000 + before.tv_usec);
  EXPECT_LE(microseconds, int64_t{after.tv_sec} * 1000000 + after.tv_usec);
}

TEST_F(TimeCounter, TonsecOfACounterStartingNowIsZero) {
  const uint64_t now = NuvTimeCounter::readCounter();
  EXPECT_EQ(NuvTimeCounter::ClocksBetween(now, now), 0U);
}

TEST_F(TimeCounter, StartAboveNowYieldsAVeryLargeInterval) {
  EXPECT_EQ(NuvTimeCounter::ClocksBetween(10, 5), kAllOnes - 5);
  NuvTimeCounter::HighResPsPerClock = 1;
  NuvTimeCounter counter;
  counter.SetStart(NuvTimeCounter::readCounter() + 1000000000000ULL);
  EXPECT_GT(counter.tonsec(), kAllOnes / 1000 - 2000000000ULL);
}

TEST_F(TimeCounter, TonsecIsZeroBeforeCalibration) {
  NuvTimeCounter::HighResPsPerClock = 0;
  NuvTimeCounter counter;
  counter.SetStart(0);
  EXPECT_EQ(counter.tonsec(), 0U);
}

TEST_F(TimeCounter, ReadCounterNeverGoesBackwards) {
  const uint64_t first = NuvTimeCounter::readCounter();
  const uint64_t second = NuvTimeCounter::readCounter();
  EXPECT_GE(second, first);
}

TEST_F(TimeCounter, StartIsKeptUpperWordFirst) {
  NuvTimeCounter counter;
  counter.SetStart(0x0000000300000004ULL);
  uint32_t words[2];
  memcpy(words, &counter, sizeof words);
  EXPECT_EQ(words[0], 3U);
  EXPECT_EQ(words[1], 4U);
  EXPECT_EQ(counter.GetStart(), 0x0000000300000004ULL);
}

TEST_F(TimeCounter, CalibratedCounterMeasuresASleep) {
  NuvTimeCounter::HighResPsPerClock = 0;
  NuvTimeCounter::initCounter();
  const uint64_t calibrated = NuvTimeCounter::HighResPsPerClock;
  ASSERT_GT(calibrated, 0U);
  NuvTimeCounter::initCounter();
  EXPECT_EQ(NuvTimeCounter::HighResPsPerClock, calibrated) << "calibrated twice";

  NuvTimeCounter counter;
  counter.Start();
  const timespec pause{0, 20000000};
  nanosleep(&pause, nullptr);
  // Truncated calibration may under-read by a clock's worth of picoseconds per clock.
  EXPECT_GE(counter.tonsec(), 18000000U);
}

}  // namespace
