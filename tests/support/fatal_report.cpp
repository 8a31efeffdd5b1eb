/// \file Fatal reports of child processes.
#include "support/fatal_report.h"

#include <nuv/fatal.h>
#include <nuv/logger.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

#include "support/log_lines.h"

namespace nuv::test {

FatalReport RunToFatalReport(const std::function<void()>& body, const std::string& tag) {
  ChildProcess child([&body] {
    NuvLogger::LogTty(true);
    body();
  });
  return ReadFatalReport(child.Finish(), tag);
}

FatalReport ReadFatalReport(const ChildOutcome& outcome, const std::string& tag) {
  FatalReport report;
  report.pid = outcome.pid;
  report.outcome = outcome;
  const std::string name = tag.empty() ? std::to_string(report.pid) : tag;
  report.records = LogRecords(report.outcome.out, kAlertRecordValue, name, report.pid);
  report.assertionRecords =
      LogRecords(report.outcome.out, kAlertRecordValue, "NuvAssertionFailure", report.pid);
  report.errLines = Lines(report.outcome.err);
  return report;
}

void ExpectLibraryAssertion(const FatalReport& report, const std::string& function, int line) {
  const std::string where = function + ", line " + std::to_string(line) + " ()";
  ASSERT_GE(report.errLines.size(), 2U) << report.outcome.err;
  EXPECT_EQ(report.errLines[0], "Nuv Assertion Failure: ");
  EXPECT_EQ(report.errLines[1], "    " + where);
  ASSERT_EQ(report.assertionRecords.size(), 1U) << report.outcome.out;
  EXPECT_EQ(report.assertionRecords[0], " (" + where + ")");
  EXPECT_TRUE(report.outcome.Exited() && report.outcome.ExitCode() == EXIT_FAILURE)
      << report.outcome.err;
}

void RouteSignalToFatalHandler(int signal) {
  struct sigaction action {};
  action.sa_sigaction = NuvStraySignalHandler;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

}  // namespace nuv::test
