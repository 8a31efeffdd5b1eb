/// \file Page-fault tracing: the group's tracer, its start and stop, and the edges that
/// checkpoints record, from one process and from several threads of a group.
#include <nuv/thread.h>
#include <nuv/tracing.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "diag/tracing_fixture.h"
#include "support/pool_usage.h"

namespace {

using nuv::test::Id;
using Edge = TracingGlobals::TraceEdge;

constexpr int kA = Id("AAAA");
constexpr int kB = Id("BBBB");
constexpr int kC = Id("CCCC");

class Tracing : public nuv::test::TracingTest {};

// The tracer's bytes, to tell that an operation left every field as it was.
std::vector<unsigned char> BytesOf(const TracingGlobals* tracer) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(tracer);
  return {bytes, bytes + sizeof(TracingGlobals)};
}

TEST_F(Tracing, Chid2StrOf0x41424344IsABCD) {
  char text[5] = "????";
  Chid2Str(text, 0x41424344);
  EXPECT_STREQ(text, "ABCD");
}

TEST_F(Tracing, CreatedTracerIsEmptyInactiveAndCountsNoPageFaults) {
  const TracingGlobals* tracer = MadeTracer();
  ASSERT_NE(tracer, nullptr);
  EXPECT_FALSE(TracingGlobals::FActive());
  EXPECT_FALSE(tracer->FPageFaults());
  for (int index = 0; index < TracingGlobals::kEdges; ++index) {
    EXPECT_EQ(tracer->EdgeAt(index).count, 0) << index;
  }
  EXPECT_EQ(tracer->SumFaults(), 0U);
}

TEST_F(Tracing, CreateAgainReleasesTheEarlierTracer) {
  TracingGlobals* first = MadeTracer();
  first->UpRef();
  TracingGlobals::Create();
  EXPECT_NE(GroupTracer(), first);
  EXPECT_EQ(first->GetRefCount(), 1U);
  first->DownRef();
}

TEST_F(Tracing, FirstCheckPointAfterTraceStartRecordsNoEdge) {
  const TracingGlobals* tracer = MadeTracer();
  TracingGlobals::TraceStart(true);
  EXPECT_TRUE(TracingGlobals::FActive());
  TracingGlobals::CheckPoint(kA, false);
  EXPECT_EQ(tracer->EdgeAt(0).count, 0);
}

TEST_F(Tracing, SecondCheckPointRecordsTheEdgeOnceWithEqualShortestLongestAndTotal) {
  const TracingGlobals* tracer = MadeTracer();
  TracingGlobals::TraceStart(true);
  TracingGlobals::CheckPoint(kA, false);
  TracingGlobals::CheckPoint(kB, false);
  const Edge& edge = tracer->EdgeAt(0);
  EXPECT_EQ(edge.from, kA);
  EXPECT_EQ(edge.to, kB);
  EXPECT_EQ(edge.count, 1);
  EXPECT_EQ(edge.faults, 0U);
  EXPECT_EQ(edge.shortest.Nanoseconds(), edge.longest.Nanoseconds());
  EXPECT_EQ(edge.total.Nanoseconds(), edge.longest.Nanoseconds());
  EXPECT_EQ(tracer->EdgeAt(1).count, 0);
}

TEST_F(Tracing, EdgeTakenAgainKeepsItsShortestLongestAndTotalTime) {
  constexpr std::chrono::milliseconds kSlowPassage{20};
  TracingGlobals* tracer = MadeTracer();
  TracingGlobals::TraceStart(true);
  TracingGlobals::CheckPoint(kA, false);
  TracingGlobals::CheckPoint(kB, false);
  TracingGlobals::CheckPoint(kA, false);
  std::this_thread::sleep_for(kSlowPassage);
  TracingGlobals::CheckPoint(kB, false);
  const Edge* edge = tracer->FindEdge(kA, kB);
  ASSERT_NE(edge, nullptr);
  EXPECT_EQ(edge->count, 2);
  EXPECT_LT(edge->shortest.Nanoseconds(), edge->longest.Nanoseconds());
  EXPECT_GE(edge->longest.Nanoseconds(), std::chrono::nanoseconds(kSlowPassage).count());
  EXPECT_EQ(edge->total.Nanoseconds(), edge->shortest.Nanoseconds() + edge->longest.Nanoseconds());
  ASSERT_NE(tracer->FindEdge(kB, kA), nullptr);
  EXPECT_EQ(tracer->FindEdge(kB, kA)->count, 1);
}

TEST_F(Tracing, FiveHundredThirteenthDistinctEdgeIsNotRecorded) {
  TracingGlobals* tracer = MadeTracer();
  TracingGlobals::TraceStart(true);
  for (int id = 1; id <= TracingGlobals::kEdges + 2; ++id) {
    TracingGlobals::CheckPoint(id, false);
  }
  for (int index = 0; index < TracingGlobals::kEdges; ++index) {
    EXPECT_EQ(tracer->EdgeAt(index).from, index + 1);
    EXPECT_EQ(tracer->EdgeAt(index).count, 1);
  }
  EXPECT_EQ(tracer->FindEdge(TracingGlobals::kEdges + 1, TracingGlobals::kEdges + 2), nullptr);
}

TEST_F(Tracing, WithoutACurrentThreadNothingIsMadeOrStarted) {
  pCurrentThreadG = nullptr;
  TracingGlobals::Create();
  TracingGlobals::TraceStart(true);
  TracingGlobals::CheckPoint(kA, false);
  TracingGlobals::SetPageFaults(true);
  EXPECT_EQ(TracingGlobals::Get(), nullptr);
  EXPECT_FALSE(TracingGlobals::FActive());
  pCurrentThreadG = Tester();
  EXPECT_EQ(TracingGlobals::Get(), nullptr);
}

TEST_F(Tracing, CheckPointWithoutATracerChangesNothing) {
  const std::vector<unsigned> before = nuv::test::InUse(Pool());
  TracingGlobals::TraceStart(true);
  TracingGlobals::CheckPoint(kA, false);
  TracingGlobals::CheckPoint(kB, true);
  TracingGlobals::TraceEnd(true, true);
  EXPECT_EQ(TracingGlobals::Get(), nullptr);
  EXPECT_EQ(nuv::test::InUse(Pool()), before);
}

TEST_F(Tracing, CheckPointOnAnInactiveTracerChangesNothing) {
  const TracingGlobals* tracer = MadeTracer();
  TracingGlobals::SetPageFaults(true);
  const std::vector<unsigned char> before = BytesOf(tracer);
  TracingGlobals::CheckPoint(kA, false);
  TracingGlobals::CheckPoint(kB, true);
  EXPECT_EQ(BytesOf(tracer), before);
}

TEST_F(Tracing, TraceStartOnAnActiveTracerChangesNothing) {
  TracingGlobals* tracer = MadeTracer();
  TracingGlobals::TraceStart(true);
  TracingGlobals::CheckPoint(kA, false);
  const std::vector<unsigned char> before = BytesOf(tracer);
  TracingGlobals::TraceStart(true);
  EXPECT_EQ(BytesOf(tracer), before);
  TracingGlobals::CheckPoint(kB, false);
  EXPECT_NE(tracer->FindEdge(kA, kB), nullptr);
}

TEST_F(Tracing, TraceStartAndTraceEndWithOnFalseDoNothing) {
  MadeTracer();
  TracingGlobals::TraceStart(false);
  EXPECT_FALSE(TracingGlobals::FActive());
  TracingGlobals::TraceStart(true);
  TracingGlobals::TraceEnd(false, false);
  EXPECT_TRUE(TracingGlobals::FActive());
}

TEST_F(Tracing, TableSurvivesAStopAndStartAndTheFirstCheckPointAfterTheStartOpensNoEdge) {
  TracingGlobals* tracer = MadeTracer();
  TracingGlobals::TraceStart(true);
  TracingGlobals::CheckPoint(kA, false);
  TracingGlobals::CheckPoint(kB, false);
  TracingGlobals::TraceEnd(true, false);
  EXPECT_FALSE(TracingGlobals::FActive());
  TracingGlobals::TraceStart(true);
  TracingGlobals::CheckPoint(kC, false);
  EXPECT_EQ(tracer->FindEdge(kB, kC), nullptr);
  EXPECT_EQ(tracer->EdgeAt(0).count, 1);
  EXPECT_EQ(tracer->EdgeAt(0).to, kB);
  TracingGlobals::CheckPoint(kA, false);
  EXPECT_NE(tracer->FindEdge(kC, kA), nullptr);
}

TEST_F(Tracing, SetPageFaultsSwitchesTheGroupTracersFlag) {
  const TracingGlobals* tracer = MadeTracer();
  TracingGlobals::SetPageFaults(true);
  EXPECT_TRUE(tracer->FPageFaults());
  TracingGlobals::SetPageFaults(false);
  EXPECT_FALSE(tracer->FPageFaults());
}

}  // namespace
