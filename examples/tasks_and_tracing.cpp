/// \file Example: a task manager running three tasks of two priorities on its worker thread, and
/// a loop traced checkpoint by checkpoint with its report.
#include <nuv/logger.h>
#include <nuv/mempool.h>
#include <nuv/task_manager.h>
#include <nuv/thread.h>
#include <nuv/tracing.h>

#include <unistd.h>
#include <cstring>
#include <vector>

#include "examples/example_main.h"

namespace {

constexpr const char* kPoolName = "tasks_and_tracing";
constexpr const char* kTag = "tasks_and_tracing";
constexpr unsigned kPoolSize = 256 * 1024;

// Counts down its slices; the manager runs it again until it returns 0.
class Countdown : public NuvTask {
 public:
  Countdown(NuvThread::rtPri priority, const char* name, unsigned slices, volatile int* finished)
      : NuvTask(priority, 0), nameM(name), slicesM(slices), finishedM(finished) {}

  unsigned Run() override {
    slicesM -= 1;
    NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, "NuvTaskManager",
                   "task %s (class %d, serial %u) in worker <%d>: %u slices left", nameM,
                   static_cast<int>(GetPriority()), GetSerial(), getpid(), slicesM);
    if (slicesM == 0) {
      *finishedM += 1;
    }
    return slicesM;
  }

 private:
  const char* nameM;
  unsigned slicesM;
  volatile int* finishedM;
};

// The two tasks of the higher class take turns; the lower one runs once both are done.
// How many tasks have finished, in the pool that the worker shares.
struct Finished {
  volatile int count;
};

void RunTasks(NuvMempool* pool) {
  auto* finished = new (pool->Malloc(sizeof(Finished), NuvMempool::unknown)) Finished{0};
  ref<NuvTaskManager> manager(new (pool) NuvTaskManager);
  manager->Add(new (pool) Countdown(NuvThread::viewer, "render", 3, &finished->count));
  manager->Add(new (pool) Countdown(NuvThread::viewer, "decode", 3, &finished->count));
  manager->Add(new (pool) Countdown(NuvThread::standard, "housekeeping", 2, &finished->count));
  while (finished->count < 3) {
    usleep(1000);
  }
  manager->Shutdown();
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kTag, "all three tasks finished");
  pool->Free(finished);
}

// Four-character checkpoint names.
constexpr int kTop = 0x544f5020;   // "TOP "
constexpr int kFill = 0x46494c4c;  // "FILL"
constexpr int kSum = 0x53554d20;   // "SUM "
constexpr int kRounds = 5;
constexpr size_t kBufferBytes = 256 * 1024;

// Each round fills a fresh buffer and adds it up; the tracer times both steps and counts the
// major page faults (pages read from disk) they take, and its report lists the edges
// TOP -> FILL, FILL -> SUM and SUM -> TOP.
void RunTracedLoop() {
  TracingGlobals::Create();
  TracingGlobals::SetPageFaults(true);
  TracingGlobals::TraceStart(true);
  unsigned long total = 0;
  for (int round = 0; round < kRounds; ++round) {
    TracingGlobals::CheckPoint(kTop, false);
    std::vector<unsigned char> buffer(kBufferBytes);
    memset(buffer.data(), round + 1, buffer.size());
    TracingGlobals::CheckPoint(kFill, false);
    for (const unsigned char byte : buffer) {
      total += byte;
    }
    TracingGlobals::CheckPoint(kSum, false);
  }
  TracingGlobals::CheckPoint(kTop, false);
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kTag,
                 "traced loop done (sum %lu); the tracer's report:", total);
  TracingGlobals::TraceEnd(true, true);
}

}  // namespace

int main() {
  return example::RunAsMainThread(kPoolName, kPoolSize, kTag, [](NuvMempool* pool) {
    RunTasks(pool);
    RunTracedLoop();
  });
}
