/// \file NuvString::Format: the estimate that sizes its buffer, the formatted strings, and the
/// assertion when a result outruns the estimate.
#include <nuv/string.h>

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdint>
#include <string>

#include "base/format_estimate.h"
#include "support/fatal_report.h"
#include "support/private_pool.h"

namespace {

using nuv::test::BlockPayload;
using nuv::test::ExpectLibraryAssertion;
using nuv::test::InUse;
using nuv::test::RunToFatalReport;

unsigned Estimate(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
unsigned Estimate(const char* fmt, ...) {
  va_list args;  // NOLINT(cppcoreguidelines-init-variables): va_start initializes it
  va_start(args, fmt);
  const unsigned estimate = nuv::FormatEstimate(fmt, args);
  va_end(args);
  return estimate;
}

// Each line: the format's length, then per directive the increment less the directive's
// length, then 10.
TEST(FormatEstimate, WorkedExampleCountsTwelveForTheNumberAndTheNameItself) {
  EXPECT_EQ(Estimate("id=%d name=%s", 7, "abc"), 13U + (12 - 2) + (3 - 2) + 10);
  EXPECT_EQ(Estimate("id=%d name=%s", 7, "abc"), 34U);
}

TEST(FormatEstimate, PercentSignCountsAHundred) {
  EXPECT_EQ(Estimate("%%"), 2U + 98 + 10);
  EXPECT_EQ(Estimate("%%"), 110U);
  EXPECT_EQ(Estimate("%%%%"), 4U + 98 + 98 + 10);
}

TEST(FormatEstimate, TextWithoutDirectivesCountsItsLengthAndTen) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-zero-length"  // the empty format is the case tested
  EXPECT_EQ(Estimate(""), 10U);
#pragma GCC diagnostic pop
  EXPECT_EQ(Estimate("hello"), 15U);
}

TEST(FormatEstimate, NumbersCountTheirWidthOrTwelveAndHexEight) {
  EXPECT_EQ(Estimate("%d", 1), 2U + (12 - 2) + 10);
  EXPECT_EQ(Estimate("%i", 1), 2U + (12 - 2) + 10);
  EXPECT_EQ(Estimate("%5d", 1), 3U + (5 - 3) + 10);
  EXPECT_EQ(Estimate("%-7i", 1), 4U + (7 - 4) + 10);
  EXPECT_EQ(Estimate("%x", 1U), 2U + (8 - 2) + 10);
  EXPECT_EQ(Estimate("%08x", 1U), 4U + (8 - 4) + 10);
  EXPECT_EQ(Estimate("%3x", 1U), 3U + (3 - 3) + 10);
  EXPECT_EQ(Estimate("%ld", 1L), 3U + (12 - 3) + 10);
  EXPECT_EQ(Estimate("%lx", 1UL), 3U + (8 - 3) + 10);
}

TEST(FormatEstimate, StringsCountTheirLengthWhateverTheWidthOrPrecision) {
  EXPECT_EQ(Estimate("%s", "abcdef"), 2U + (6 - 2) + 10);
  EXPECT_EQ(Estimate("%-10s", "ab"), 5U + (2 - 5) + 10);
  EXPECT_EQ(Estimate("%.3s", "abcdef"), 4U + (6 - 4) + 10);
  EXPECT_EQ(Estimate("%s", ""), 2U + (0 - 2) + 10);
}

TEST(FormatEstimate, NullStringCountsTheLengthOfWhatPrintfPrints) {
  const char* none = nullptr;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-overflow"  // the null string is the case tested
  EXPECT_EQ(Estimate("%s", none), 2U + (6 - 2) + 10);
#pragma GCC diagnostic pop
}

TEST(FormatEstimate, CharacterCountsOneAndTakesNoArgument) {
  EXPECT_EQ(Estimate("%c", 'q'), 2U + (1 - 2) + 10);
  EXPECT_EQ(Estimate("<%c>", 'q'), 4U + (1 - 2) + 10);
}

TEST(FormatEstimate, OtherConversionsCountAHundred) {
  EXPECT_EQ(Estimate("%u", 1U), 110U);
  EXPECT_EQ(Estimate("%o", 1U), 110U);
  EXPECT_EQ(Estimate("%X", 1U), 110U);
  EXPECT_EQ(Estimate("%f", 1.0), 110U);
  EXPECT_EQ(Estimate("%e", 1.0), 110U);
  EXPECT_EQ(Estimate("%g", 1.0), 110U);
  EXPECT_EQ(Estimate("%p", static_cast<void*>(nullptr)), 110U);
  EXPECT_EQ(Estimate("%12u", 1U), 4U + (100 - 4) + 10);
}

TEST(FormatEstimate, WalkStopsAtTheFirstCharacterAfterTheWidth) {
  // "%5." is the directive (100); "2f" is text.
  EXPECT_EQ(Estimate("%5.2f", 1.0), 5U + (100 - 3) + 10);
  // One 'l' is skipped: "%ll" is the directive (100); "d" is text.
  EXPECT_EQ(Estimate("%lld", 1LL), 4U + (100 - 3) + 10);
  // '*' is the directive (100).
  EXPECT_EQ(Estimate("%*d", 4, 1), 3U + (100 - 2) + 10);
}

TEST(FormatEstimate, StringAfterAnUncountedConversionMeasuresTheEstimatorsArgument) {
  // The estimator's cursor skips the %u's argument: the first %s measures the %u's argument (not a
  // string: 0), the second measures the first string.
  EXPECT_EQ(Estimate("%u%s%s", 7U, "abcd", "xy"), 6U + (100 - 2) + (0 - 2) + (4 - 2) + 10);
  EXPECT_EQ(Estimate("%u%s%s", 7U, "abcd", "a longer second string"),
            Estimate("%u%s%s", 7U, "abcd", "xy"));
  EXPECT_EQ(Estimate("%c%s%s", 'c', "abcdef", "xy"), 6U + (1 - 2) + (0 - 2) + (6 - 2) + 10);
}

TEST(FormatEstimate, StringsAreFoundPastArgumentsOfEveryWidth) {
  // The estimator's third and fourth %s measure the first two strings; reaching them passes a
  // double and a long long.
  EXPECT_EQ(Estimate("%f%lld%s%s%s%s", 1.5, 2LL, "one", "three", "x", "y"),
            14U + (100 - 2) + (100 - 3) + (0 - 2) + (0 - 2) + (3 - 2) + (5 - 2) + 10);
  // Past a long double, a char, a size and an intmax_t, the fourth %s measures "ab" and the
  // sixth "cdef".
  EXPECT_EQ(Estimate("%Lf%hhd%zu%s%jd%s%s%s%s%s", 1.5L, 1, sizeof(int), "ab",
                     static_cast<intmax_t>(1), "cdef", "g", "h", "i", "j"),
            25U + (100 - 2) + (100 - 2) + (100 - 2) + (0 - 2) + (100 - 2) + (0 - 2) + (0 - 2) +
                (2 - 2) + (0 - 2) + (4 - 2) + 10);
  // A '*' width and precision take two int arguments ahead of the double.
  EXPECT_EQ(Estimate("%*.*f%s%s%s%s", 3, 1, 2.0, "abc", "de", "f", "g"),
            13U + (100 - 2) + (0 - 2) + (0 - 2) + (0 - 2) + (3 - 2) + 10);
}

class Format : public nuv::test::PrivatePoolTest {};

TEST_F(Format, WorkedExampleFormatsIntoAThirtyFiveByteBuffer) {
  const unsigned before = NuvBytes();
  const ref<NuvString> s = NuvString::Format(Pool(), "id=%d name=%s", 7, "abc");
  EXPECT_STREQ(s->Utf8(), "id=7 name=abc");
  EXPECT_EQ(NuvBytes() - before, sizeof(NuvString) + BlockPayload(35));
  EXPECT_EQ(s->GetRefCount(), 1U);
}

TEST_F(Format, PercentSignEstimatesAHundredAndTenAndAllocatesOneMore) {
  const unsigned before = NuvBytes();
  const ref<NuvString> s = NuvString::Format(Pool(), "%%");
  EXPECT_STREQ(s->Utf8(), "%");
  EXPECT_EQ(NuvBytes() - before, sizeof(NuvString) + BlockPayload(111));
}

TEST_F(Format, BufferIsTheEstimatePlusOneByte) {
  // 112 is a multiple of the block granule, so the extra byte shows as a larger block.
  EXPECT_EQ(Estimate("%%ab"), 112U);
  ASSERT_GT(BlockPayload(113), BlockPayload(112));
  const unsigned before = NuvBytes();
  const ref<NuvString> s = NuvString::Format(Pool(), "%%ab");
  EXPECT_STREQ(s->Utf8(), "%ab");
  EXPECT_EQ(NuvBytes() - before, sizeof(NuvString) + BlockPayload(113));
}

TEST_F(Format, ResultAdoptsTheBufferAsItsOnlyForm) {
  {
    const ref<NuvString> s = NuvString::Format(Pool(), "%s=%x", "key", 255U);
    EXPECT_STREQ(s->Utf8(), "key=ff");
    EXPECT_EQ(s->Length(), 6U);
  }
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(Format, NullStringFormatsAsPrintfDoes) {
  const char* none = nullptr;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-overflow"  // the null string is the case tested
  EXPECT_STREQ(NuvString::Format(Pool(), "[%s]", none)->Utf8(), "[(null)]");
#pragma GCC diagnostic pop
}

TEST_F(Format, ResultOneByteShorterThanTheEstimateFits) {
  // "%u%s": 4 + 98 - 2 + 10 = 110, the string not being measured.
  EXPECT_EQ(Estimate("%u%s", 7U, ""), 110U);
  const std::string text(108, 'x');
  EXPECT_EQ(NuvString::Format(Pool(), "%u%s", 7U, text.c_str())->Utf8(), "7" + text);
}

TEST_F(Format, ResultAsLongAsTheEstimateFailsItsAssertion) {
  const std::string text(109, 'x');
  ExpectLibraryAssertion(
      RunToFatalReport([&] { NuvString::Format(Pool(), "%u%s", 7U, text.c_str()); }), "Format",
      110);
}

TEST_F(Format, ResultFarBeyondTheEstimateFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] { NuvString::Format(Pool(), "%f", 1e200); }),
                         "Format", 110);
}

}  // namespace
