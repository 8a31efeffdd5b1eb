/// \file The fatal path of thread processes: the report names the thread and its pid.
#include <nuv/os_thread.h>
#include <nuv/thread.h>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <cstdio>
#include <string>

#include "support/child_process.h"
#include "support/polling.h"
#include "thread/thread_pool.h"

namespace {

using nuv::test::RunInChild;
using nuv::test::ThreadPoolTest;

std::string FatalLine(const std::string& name, int pid, int signal) {
  return "Nuv Fatal Error: Thread " + name + " <" + std::to_string(pid) + "> died due to signal " +
         std::to_string(signal) + "\n";
}

// How the thread's process ended and what its pid was, as the child that started it saw.
struct Ending {
  int status = 0;
  int pid = 0;
  std::string err;
};

// Starts a thread with entry in a child of the test (whose standard error is captured), waits
// for it, and prints its wait status and pid.
Ending RunThreadToItsEnd(NuvMempool* pool, int (*entry)(long), const char* name,
                         void (*whileRunning)(NuvThread*) = nullptr) {
  const nuv::test::ChildOutcome outcome = RunInChild([&] {
    pCurrentThreadG = nullptr;
    auto* thread = new (pool) NuvThread(entry, name);
    thread->Start(0);
    if (whileRunning != nullptr) {
      whileRunning(thread);
    }
    const int status = NuvOsThread::Wait(thread->GetId(), nullptr);
    printf("ended: %d %d\n", status, thread->GetId());
  });
  Ending ending;
  ending.err = outcome.err;
  const size_t at = outcome.out.find("ended: ");
  if (at != std::string::npos) {
    sscanf(outcome.out.c_str() + at, "ended: %d %d", &ending.status, &ending.pid);
  }
  return ending;
}

int Abort(long /*arg*/) {
  pCurrentThreadG->abort();
  return 0;
}

int Fault(long /*arg*/) {
  raise(SIGSEGV);
  return 0;
}

// Set by the thread once its own dispositions are in place.
volatile int* readyFlag = nullptr;

int WaitToBeKilled(long /*arg*/) {
  *readyFlag = 1;
  for (;;) {
    pause();
  }
}

void KillWhenReady(NuvThread* thread) {
  nuv::test::WaitUntil([] { return *readyFlag == 1; });
  _killthread_(thread);
}

class ThreadFatal : public ThreadPoolTest {};

TEST_F(ThreadFatal, AbortInAThreadReportsTheThreadAndItsPid) {
  const Ending ending = RunThreadToItsEnd(Pool(), Abort, "aborter");
  ASSERT_GT(ending.pid, 0) << ending.err;
  EXPECT_EQ(ending.err.rfind(FatalLine("aborter", ending.pid, 0), 0), 0U) << ending.err;
  ASSERT_TRUE(WIFEXITED(ending.status));
  EXPECT_EQ(WEXITSTATUS(ending.status), EXIT_FAILURE);
}

TEST_F(ThreadFatal, UnexpectedSignalInAThreadReportsItWithTheRegisters) {
  const Ending ending = RunThreadToItsEnd(Pool(), Fault, "faulter");
  ASSERT_GT(ending.pid, 0) << ending.err;
  EXPECT_EQ(ending.err.rfind(FatalLine("faulter", ending.pid, SIGSEGV), 0), 0U) << ending.err;
  EXPECT_NE(ending.err.find("\nNIP "), std::string::npos) << ending.err;
  ASSERT_TRUE(WIFSIGNALED(ending.status));
  EXPECT_EQ(WTERMSIG(ending.status), SIGSEGV);
}

TEST_F(ThreadFatal, KillthreadMakesTheTargetThreadNotTheCallerReportSignalThree) {
  readyFlag = Shared<int>();
  const Ending ending = RunThreadToItsEnd(Pool(), WaitToBeKilled, "victim", KillWhenReady);
  ASSERT_GT(ending.pid, 0) << ending.err;
  EXPECT_EQ(ending.err.rfind(FatalLine("victim", ending.pid, SIGQUIT), 0), 0U) << ending.err;
  ASSERT_TRUE(WIFSIGNALED(ending.status));
  EXPECT_EQ(WTERMSIG(ending.status), SIGQUIT);
}

}  // namespace
