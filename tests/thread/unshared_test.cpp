/// \file Unshared threads: a process of its own pool, its own descriptors and no parent.
#include <nuv/mempool.h>
#include <nuv/os_mempool.h>
#include <nuv/os_thread.h>
#include <nuv/thread.h>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>
#include <string>

#include "support/child_process.h"
#include "support/pool_usage.h"
#include "support/shared_memory.h"
#include "thread/thread_pool.h"

namespace {

using nuv::test::RunInChild;
using nuv::test::SharedObject;
using nuv::test::SizeOfAPoolAskedFor;
using nuv::test::ThreadPoolTest;

// What an unshared thread saw of itself, in memory that outlives its leaving every pool.
struct Seen {
  NuvMempool* pool;
  unsigned poolSize;
  NuvThread* parent;
  int pid;
  unsigned state;
  char name[NuvThread::kNameLength];
  volatile int done;
};

Seen* SeenOf(long arg) { return reinterpret_cast<Seen*>(arg); }

int LookAtItself(long arg) {
  Seen* seen = SeenOf(arg);
  seen->pool = pCurrentThreadG->GetPool();
  seen->poolSize = seen->pool->GetSize();
  seen->parent = pCurrentThreadG->PParent();
  seen->pid = pCurrentThreadG->GetId();
  seen->state = pCurrentThreadG->GetState();
  snprintf(seen->name, sizeof seen->name, "%s", pCurrentThreadG->GetName());
  seen->done = 1;
  return 0;
}

int Leak(long /*arg*/) {
  pCurrentThreadG->GetPool()->Malloc(100, NuvMempool::unknown);
  return 0;
}

class Unshared : public ThreadPoolTest {};

TEST_F(Unshared, RunsInAPoolOfItsOwnAtTheAlternateAddressWithNoParent) {
  SharedObject<Seen> seen;
  NuvThread* thread = MakeThread(LookAtItself, "loner");
  ASSERT_EQ(thread->StartUnshared(reinterpret_cast<long>(&*seen), "lonerpool", 32 * 1024), 0U);
  const int status = NuvOsThread::Wait(thread->GetId(), nullptr);
  ASSERT_TRUE(WIFEXITED(status));
  ASSERT_EQ(seen->done, 1);
  // The pool follows the mapping's two header words.
  EXPECT_EQ(reinterpret_cast<char*>(seen->pool), NuvOsMempool::GetAlternatePoolAddress() + 8);
  EXPECT_EQ(seen->poolSize, SizeOfAPoolAskedFor(32 * 1024));
  EXPECT_EQ(seen->parent, nullptr);
  EXPECT_EQ(seen->pid, thread->GetId());
  EXPECT_EQ(seen->state, NuvThread::kRunning);
  EXPECT_EQ(std::string(seen->name), "loner");
  EXPECT_EQ(thread->PParent(), nullptr) << "StartUnshared clears the parent";
  EXPECT_EQ(thread->GetState(), 0U) << "an unshared thread stays created in its parent's object";
  thread->DownRef();
}

TEST_F(Unshared, LeakingThreadGetsALeakReportOfItsPoolAtExit) {
  const nuv::test::ChildOutcome outcome = RunInChild([this] {
    NuvThread* thread = MakeThread(Leak, "leaker");
    thread->StartUnshared(0, "leakypool", 0);
    NuvOsThread::Wait(thread->GetId(), nullptr);
  });
  EXPECT_NE(outcome.err.find("leak:  100 bytes at "), std::string::npos) << outcome.err;
  EXPECT_NE(outcome.err.find("user unknown, pool leakypool\n"), std::string::npos) << outcome.err;
}

TEST_F(Unshared, BackgroundThreadWithPoolSizeZeroGivesTheChildAPoolOf1024Bytes) {
  SharedObject<Seen> seen;
  int pid = 0;
  EXPECT_EQ(
      NuvThread::BackgroundThread(LookAtItself, reinterpret_cast<long>(&*seen), "bg", 0, &pid), 0U);
  ASSERT_GT(pid, 0);
  ASSERT_TRUE(WIFEXITED(NuvOsThread::Wait(pid, nullptr)));
  ASSERT_EQ(seen->done, 1);
  EXPECT_EQ(seen->pid, pid);
  EXPECT_EQ(seen->poolSize, SizeOfAPoolAskedFor(1024));
  EXPECT_EQ(std::string(seen->name), "bg");
}

TEST_F(Unshared, BackgroundThreadsObjectLivesUntilTheChildHasBegunThenGoes) {
  SharedObject<Seen> seen;
  const std::vector<unsigned> before = nuv::test::InUse(Pool());
  int pid = 0;
  ASSERT_EQ(
      NuvThread::BackgroundThread(LookAtItself, reinterpret_cast<long>(&*seen), "brief", 0, &pid),
      0U);
  ASSERT_TRUE(WIFEXITED(NuvOsThread::Wait(pid, nullptr)));
  EXPECT_EQ(seen->done, 1);
  EXPECT_EQ(nuv::test::InUse(Pool()), before) << "the child released the object it was started on";
}

TEST_F(Unshared, BackgroundThreadWithoutACurrentThreadUsesATemporaryPool) {
  SharedObject<Seen> seen;
  int pid = 0;
  pCurrentThreadG = nullptr;
  const std::vector<unsigned> before = nuv::test::InUse(Pool());
  EXPECT_EQ(
      NuvThread::BackgroundThread(LookAtItself, reinterpret_cast<long>(&*seen), "bare", 0, &pid),
      0U);
  pCurrentThreadG = Tester();
  ASSERT_TRUE(WIFEXITED(NuvOsThread::Wait(pid, nullptr)));
  EXPECT_EQ(seen->done, 1);
  EXPECT_EQ(nuv::test::InUse(Pool()), before) << "nothing of it was made in the test's pool";
}

TEST_F(Unshared, PoolThatCannotBeMadeStopsAtAssertion375OfUnsharedEntry) {
  const nuv::test::ChildOutcome outcome = RunInChild([] {
    pCurrentThreadG = nullptr;
    int pid = 0;
    NuvThread::BackgroundThread(LookAtItself, 0, "toobig", 0xf0000000U, &pid);
    NuvOsThread::Wait(pid, nullptr);
  });
  EXPECT_NE(outcome.err.find("Nuv Assertion Failure: \n    UnsharedEntry, line 375 ()\n"),
            std::string::npos)
      << outcome.err;
}

}  // namespace
