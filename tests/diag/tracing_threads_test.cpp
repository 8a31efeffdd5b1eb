/// \file Page-fault tracing across processes: the threads of one group add to one table.
#include <nuv/lockword.h>
#include <nuv/thread.h>
#include <nuv/tracing.h>

#include <gtest/gtest.h>

#include <sched.h>
#include <vector>

#include "diag/tracing_fixture.h"
#include "support/polling.h"

namespace {

using nuv::test::Id;

constexpr int kPing = Id("PING");
constexpr int kPong = Id("PONG");
constexpr int kRounds = 200;
constexpr int kPasses = 3;

// Lets the threads of a test begin their checkpoints at one moment, so that they contend.
struct Gate {
  volatile unsigned waiting;
  volatile int open;
};

class TracingThreads : public nuv::test::TracingTest {
 protected:
  // Starts one thread per entry of args and joins them.
  void RunAll(int (*entry)(long), const std::vector<long>& args) {
    std::vector<NuvThread*> threads;
    for (const long arg : args) {
      threads.push_back(MakeThread(entry, "tracer"));
      ASSERT_EQ(threads.back()->Start(arg), 0U);
    }
    for (NuvThread* thread : threads) {
      thread->Join();
      thread->DownRef();
    }
  }
};

// Waits at the gate, then passes from "PING" to "PONG" and back, giving way to the others after
// every checkpoint, so that their checkpoints come in between.
int PingPong(long arg) {
  auto* gate = reinterpret_cast<Gate*>(arg);
  fadd(&gate->waiting, 1);
  while (gate->open == 0) {
    sched_yield();
  }
  for (int round = 0; round < kRounds; ++round) {
    TracingGlobals::CheckPoint(kPing, false);
    sched_yield();
    TracingGlobals::CheckPoint(kPong, false);
    sched_yield();
  }
  return 0;
}

// One pass from "PING" to "PONG".
int PingPongOnce(long /*arg*/) {
  TracingGlobals::CheckPoint(kPing, false);
  TracingGlobals::CheckPoint(kPong, false);
  return 0;
}

// "FR_1", "TO_1" for thread 1 and so on.
int FromOf(long n) { return Id("FR_0") + static_cast<int>(n); }
int ToOf(long n) { return Id("TO_0") + static_cast<int>(n); }

// Thread n passes from its own "from" checkpoint to its own "to" checkpoint and back.
int OwnEdge(long n) {
  for (int pass = 0; pass < kPasses; ++pass) {
    TracingGlobals::CheckPoint(FromOf(n), false);
    TracingGlobals::CheckPoint(ToOf(n), false);
  }
  return 0;
}

TEST_F(TracingThreads, ConcurrentThreadsOfOneGroupCountEveryPassageInOneTable) {
  constexpr int kThreads = 3;
  TracingGlobals* tracer = MadeTracer();
  TracingGlobals::TraceStart(true);
  auto* gate = Shared<Gate>();
  std::vector<NuvThread*> threads;
  for (int n = 0; n < kThreads; ++n) {
    threads.push_back(MakeThread(PingPong, "pingpong"));
    ASSERT_EQ(threads.back()->Start(reinterpret_cast<long>(gate)), 0U);
  }
  // The gate opens whatever the wait gives, so that every started thread ends and is joined.
  EXPECT_TRUE(
      nuv::test::WaitUntil([gate] { return gate->waiting == static_cast<unsigned>(kThreads); }));
  gate->open = 1;
  for (NuvThread* thread : threads) {
    thread->Join();
    thread->DownRef();
  }
  int passages = 0;
  for (int index = 0; index < TracingGlobals::kEdges && tracer->EdgeAt(index).count > 0; ++index) {
    const TracingGlobals::TraceEdge& edge = tracer->EdgeAt(index);
    EXPECT_TRUE(edge.from == kPing || edge.from == kPong) << index;
    EXPECT_TRUE(edge.to == kPing || edge.to == kPong) << index;
    passages += edge.count;
  }
  // Every checkpoint but the group's first closes an edge.
  EXPECT_EQ(passages, kThreads * kRounds * 2 - 1);
  ASSERT_NE(tracer->FindEdge(kPing, kPong), nullptr);
}

TEST_F(TracingThreads, ThreadsOneAfterAnotherLeaveTheirEdgesInTheStartersTable) {
  TracingGlobals* tracer = MadeTracer();
  TracingGlobals::TraceStart(true);
  for (long n = 1; n <= 2; ++n) {
    RunAll(OwnEdge, {n});
  }
  for (long n = 1; n <= 2; ++n) {
    ASSERT_NE(tracer->FindEdge(FromOf(n), ToOf(n)), nullptr) << n;
    EXPECT_EQ(tracer->FindEdge(FromOf(n), ToOf(n))->count, kPasses) << n;
    ASSERT_NE(tracer->FindEdge(ToOf(n), FromOf(n)), nullptr) << n;
    EXPECT_EQ(tracer->FindEdge(ToOf(n), FromOf(n))->count, kPasses - 1) << n;
  }
  ASSERT_NE(tracer->FindEdge(ToOf(1), FromOf(2)), nullptr);
  EXPECT_EQ(tracer->FindEdge(ToOf(1), FromOf(2))->count, 1);
  EXPECT_EQ(tracer->EdgeAt(5).count, 0);
}

TEST_F(TracingThreads, WithThePageFaultFlagEachCheckingProcessHasItsOwnEntry) {
  TracingGlobals* tracer = MadeTracer();
  TracingGlobals::SetPageFaults(true);
  TracingGlobals::TraceStart(true);
  TracingGlobals::CheckPoint(kPing, false);
  NuvThread* thread = MakeThread(PingPongOnce, "faults");
  ASSERT_EQ(thread->Start(0), 0U);
  thread->Join();
  EXPECT_EQ(tracer->ProcessAt(0).pid, Tester()->GetId());
  EXPECT_EQ(tracer->ProcessAt(1).pid, thread->GetId());
  EXPECT_EQ(tracer->ProcessAt(2).pid, 0);
  thread->DownRef();
}

TEST_F(TracingThreads, WithoutThePageFaultFlagNoProcessEntryIsTaken) {
  TracingGlobals* tracer = MadeTracer();
  TracingGlobals::TraceStart(true);
  TracingGlobals::CheckPoint(kPing, false);
  RunAll(PingPongOnce, {0});
  EXPECT_EQ(tracer->ProcessAt(0).pid, 0);
}

}  // namespace
