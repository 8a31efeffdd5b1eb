/// \file Assertion reports: the library's NuvAssertFail, assert() in code built against the
/// library, and the library's own numbered invariant checks.
#undef NDEBUG
#include <cassert>

#include <nuv/assert.h>

#include <gtest/gtest.h>

#include <cstdlib>

#include "core/assert_at.h"
#include "support/fatal_report.h"

namespace {

using nuv::test::FatalReport;
using nuv::test::RunToFatalReport;

int assertLine = 0;
const char* assertFunction = nullptr;

__attribute__((noinline)) void CheckValue(int value) {
  assertFunction = __PRETTY_FUNCTION__;
  assertLine = __LINE__ + 1;
  assert(value == 2);
}

std::string DeathLine(const FatalReport& report, int signal) {
  return "Nuv Fatal Error: Thread " + std::to_string(report.pid) + " <" +
         std::to_string(report.pid) + "> died due to signal " + std::to_string(signal);
}

TEST(NuvAssertFail, ReportsExpressionFunctionLineAndFileThenSignalZero) {
  const FatalReport report =
      RunToFatalReport([] { NuvAssertFail("x > 0", "widget.cpp", 12, "Check"); });
  ASSERT_EQ(report.assertionRecords.size(), 1U) << report.outcome.out;
  EXPECT_EQ(report.assertionRecords[0], "x > 0 (Check, line 12 (widget.cpp))");
  ASSERT_GE(report.errLines.size(), 3U);
  EXPECT_EQ(report.errLines[0], "Nuv Assertion Failure: x > 0");
  EXPECT_EQ(report.errLines[1], "    Check, line 12 (widget.cpp)");
  EXPECT_EQ(report.errLines[2], DeathLine(report, 0));
  ASSERT_FALSE(report.records.empty());
  EXPECT_EQ(report.records[0], DeathLine(report, 0));
  EXPECT_TRUE(report.outcome.Exited());
  EXPECT_EQ(report.outcome.ExitCode(), EXIT_FAILURE);
}

TEST(Assert, FailedAssertInApplicationCodeReportsSignalMinusTwo) {
  CheckValue(2);  // a passing call records the function name and line for the expectations
  const FatalReport report = RunToFatalReport([] { CheckValue(3); });
  const std::string where =
      std::string(assertFunction) + ", line " + std::to_string(assertLine) + " (" + __FILE__ + ")";
  ASSERT_EQ(report.assertionRecords.size(), 1U) << report.outcome.out;
  EXPECT_EQ(report.assertionRecords[0], "value == 2 (" + std::string(assertFunction) + ", line " +
                                            std::to_string(assertLine) + " (" + __FILE__ + "))");
  ASSERT_GE(report.errLines.size(), 3U);
  EXPECT_EQ(report.errLines[0], "Nuv Assertion Failure: value == 2");
  EXPECT_EQ(report.errLines[1], "    " + where);
  EXPECT_EQ(report.errLines[2], DeathLine(report, -2));
  ASSERT_FALSE(report.records.empty());
  EXPECT_EQ(report.records[0], DeathLine(report, -2));
  EXPECT_TRUE(report.outcome.Exited());
}

TEST(Assert, PassingAssertDoesNothing) {
  const FatalReport report = RunToFatalReport([] { CheckValue(2); });
  EXPECT_TRUE(report.outcome.Exited() && report.outcome.ExitCode() == 0) << report.outcome.err;
  EXPECT_EQ(report.outcome.err, "");
  EXPECT_TRUE(report.assertionRecords.empty()) << report.outcome.out;
}

TEST(Assert, LibraryInvariantReportHasEmptyExpressionAndFile) {
  const FatalReport report = RunToFatalReport([] { NUV_ASSERT_AT(false, 586, "Free"); });
  ASSERT_EQ(report.assertionRecords.size(), 1U) << report.outcome.out;
  EXPECT_EQ(report.assertionRecords[0], " (Free, line 586 ())");
  ASSERT_GE(report.errLines.size(), 3U);
  EXPECT_EQ(report.errLines[0], "Nuv Assertion Failure: ");
  EXPECT_EQ(report.errLines[1], "    Free, line 586 ()");
  EXPECT_EQ(report.errLines[2], DeathLine(report, -2));
}

TEST(Assert, ReportRecordsCloseWithTheRestartRecord) {
  const FatalReport report = RunToFatalReport([] { NuvAssertFail("e", "f", 1, "g"); });
  ASSERT_EQ(report.records.size(), 4U) << report.outcome.out;
  EXPECT_EQ(report.records[2], "Nuv Fatal Error: Thread died due to signal 0");
  EXPECT_EQ(report.records[3], "Invoking rule 834: rebooting system");
}

}  // namespace
