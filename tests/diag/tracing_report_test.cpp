/// \file Page-fault tracing: the lines that Report, a reporting checkpoint and TraceEnd log.
#include <nuv/tracing.h>

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "diag/tracing_fixture.h"

namespace {

using nuv::test::Id;
using Lines = std::vector<std::string>;

constexpr int kA = Id("AAAA");
constexpr int kB = Id("BBBB");

const char* const kPassageLine =
    "AAAA -> BBBB: count 2, shortest [0-9]+ us, longest [0-9]+ us, mean [0-9]+ us, faults 0, "
    "last [0-9]+ us";
const char* const kTableLine =
    "AAAA -> BBBB: count 1, shortest [0-9]+ us, longest [0-9]+ us, mean [0-9]+ us, faults 0";

class TracingReport : public nuv::test::TracingTest {};

TEST_F(TracingReport, ReportWritesOneLinePerEdgeInTableOrderUpToTheFirstFreeRecord) {
  TracingGlobals* tracer = MadeTracer();
  tracer->AddEdge(Id("ABCD"), Id("EFGH"), NuvTime(12'345'678));
  tracer->AddEdge(Id("EFGH"), Id("IJKL"), NuvTime(999));
  tracer->AddEdge(Id("IJKL"), Id("ABCD"), NuvTime(1'000'000));
  TracingGlobals::TraceEdge* slow = tracer->FindEdge(Id("EFGH"), Id("IJKL"));
  slow->count = 2;
  slow->longest = NuvTime(9'000'000'000'000);
  slow->total = NuvTime(9'000'000'000'999);
  TracingGlobals::TraceEdge* counted = tracer->FindEdge(Id("IJKL"), Id("ABCD"));
  counted->count = 4;
  counted->longest = NuvTime(3'000'000);
  counted->total = NuvTime(6'000'000);
  counted->faults = 7;
  const Lines expected = {
      "ABCD -> EFGH: count 1, shortest 12345 us, longest 12345 us, mean 12345 us, faults 0",
      "EFGH -> IJKL: count 2, shortest 0 us, longest 9000000000 us, mean 4500000000 us, faults 0",
      "IJKL -> ABCD: count 4, shortest 1000 us, longest 3000 us, mean 1500 us, faults 7",
  };
  EXPECT_EQ(TracerRecords([tracer] { tracer->Report(); }), expected);
}

TEST_F(TracingReport, ReportEdgeWithAPassageTimeAddsItAtTheEnd) {
  TracingGlobals* tracer = MadeTracer();
  tracer->AddEdge(kA, kB, NuvTime(2'000));
  const Lines records =
      TracerRecords([tracer] { tracer->ReportEdge(tracer->FindEdge(kA, kB), NuvTime(1'234'567)); });
  const Lines expected = {
      "AAAA -> BBBB: count 1, shortest 2 us, longest 2 us, mean 2 us, faults 0, last 1234 us"};
  EXPECT_EQ(records, expected);
}

TEST_F(TracingReport, ReportingCheckPointLogsAnEdgeTakenBeforeWithThisPassagesTime) {
  TracingGlobals* tracer = MadeTracer();
  const Lines records = TracerRecords([] {
    TracingGlobals::TraceStart(true);
    TracingGlobals::CheckPoint(kA, true);
    TracingGlobals::CheckPoint(kB, true);
    TracingGlobals::CheckPoint(kA, false);
    TracingGlobals::CheckPoint(kB, true);
  });
  ASSERT_EQ(records.size(), 1U);
  EXPECT_TRUE(std::regex_match(records[0], std::regex(kPassageLine))) << records[0];
  const TracingGlobals::TraceEdge* edge = tracer->FindEdge(kA, kB);
  ASSERT_NE(edge, nullptr);
  EXPECT_EQ(edge->count, 2);
}

TEST_F(TracingReport, TraceEndWithReportLogsTheTable) {
  MadeTracer();
  const Lines records = TracerRecords([] {
    TracingGlobals::TraceStart(true);
    TracingGlobals::CheckPoint(kA, false);
    TracingGlobals::CheckPoint(kB, false);
    TracingGlobals::TraceEnd(true, true);
  });
  ASSERT_EQ(records.size(), 1U);
  EXPECT_TRUE(std::regex_match(records[0], std::regex(kTableLine))) << records[0];
}

TEST_F(TracingReport, TraceEndWithoutReportLogsNothing) {
  MadeTracer();
  const Lines records = TracerRecords([] {
    TracingGlobals::TraceStart(true);
    TracingGlobals::CheckPoint(kA, false);
    TracingGlobals::CheckPoint(kB, false);
    TracingGlobals::TraceEnd(true, false);
  });
  EXPECT_TRUE(records.empty());
}

}  // namespace
