/// \file Running code that ends in the fatal path in a child, and reading its report.
#ifndef NUV_TESTS_SUPPORT_FATAL_REPORT_H
#define NUV_TESTS_SUPPORT_FATAL_REPORT_H

#include <functional>
#include <string>
#include <vector>

#include "support/child_process.h"

namespace nuv::test {

/// Priority value of the fatal path's records: facility "facnuv" (local0), priority "prialert".
constexpr int kAlertRecordValue = 129;

/// What a child that went through the fatal path left behind.
struct FatalReport {
  ChildOutcome outcome;
  int pid = 0;
  /// Texts of the child's "prialert" records under the tag, in order.
  std::vector<std::string> records;
  /// Texts of the child's assertion records (tag "NuvAssertionFailure").
  std::vector<std::string> assertionRecords;
  /// The child's standard error, line by line.
  std::vector<std::string> errLines;
};

/// Runs body in a child whose log entries go to standard output; tag is the name the records
/// carry (the current thread's name, or empty for the child's pid).
FatalReport RunToFatalReport(const std::function<void()>& body, const std::string& tag = "");

/// The report of a child that has ended, whose log entries went to its standard output.
FatalReport ReadFatalReport(const ChildOutcome& outcome, const std::string& tag = "");

/// Checks that the child failed the library's check number line of function: the lines
/// "Nuv Assertion Failure: " and "    Function, line N ()" on standard error, the one assertion
/// record, and the end of the process that every failed check brings.
void ExpectLibraryAssertion(const FatalReport& report, const std::string& function, int line);

/// Sends signal to the fatal handler (SA_SIGINFO with SA_NODEFER), as thread processes do.
void RouteSignalToFatalHandler(int signal);

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_FATAL_REPORT_H
