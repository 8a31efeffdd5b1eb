/// \file Tests of page-fault tracing: the thread fixture with the tester's group, identifiers
/// written as text, and the tracer's records read in a child's log.
#ifndef NUV_TESTS_DIAG_TRACING_FIXTURE_H
#define NUV_TESTS_DIAG_TRACING_FIXTURE_H

#include <nuv/logger.h>
#include <nuv/tracing.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/log_lines.h"
#include "thread/thread_pool.h"

namespace nuv::test {

/// Priority value of the tracer's records: facility "facnuv" (local0), priority "priinfo".
constexpr int kInfoRecordValue = (16 * 8) | 6;

/// The identifier whose four characters are text: Id("ABCD") is 0x41424344.
constexpr int Id(const char (&text)[5]) {
  return static_cast<int>((static_cast<unsigned>(static_cast<unsigned char>(text[0])) << 24) |
                          (static_cast<unsigned>(static_cast<unsigned char>(text[1])) << 16) |
                          (static_cast<unsigned>(static_cast<unsigned char>(text[2])) << 8) |
                          static_cast<unsigned>(static_cast<unsigned char>(text[3])));
}

class TracingTest : public ThreadPoolTest {
 protected:
  /// The tester's group's tracer, made now; the group holds it.
  static TracingGlobals* MadeTracer() {
    TracingGlobals::Create();
    return GroupTracer();
  }

  /// The group's tracer without a reference of the caller's, or null.
  static TracingGlobals* GroupTracer() {
    TracingGlobals* tracer = TracingGlobals::Get();
    if (tracer != nullptr) {
      tracer->DownRef();
    }
    return tracer;
  }

  /// Runs body in a child that logs to standard output; the texts of the tracer's records.
  static std::vector<std::string> TracerRecords(const std::function<void()>& body) {
    // A forked child starts with no current thread: this one acts for the test's own, in its
    // group.
    NuvThread* current = pCurrentThreadG;
    ChildProcess child([&body, current] {
      pCurrentThreadG = current;
      NuvLogger::LogTty(true);
      body();
    });
    const int pid = child.Pid();
    const ChildOutcome outcome = child.Finish();
    EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.err;
    return LogRecords(outcome.out, kInfoRecordValue, "TracingGlobals", pid);
  }
};

}  // namespace nuv::test

#endif  // NUV_TESTS_DIAG_TRACING_FIXTURE_H
