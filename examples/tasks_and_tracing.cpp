/// \file Example: a task manager running three tasks of two priorities on its worker thread, and
/// a loop traced checkpoint by checkpoint with its report.
#include <nuv/logger.h>
#include <nuv/mempool.h>
#include <nuv/status.h>
#include <nuv/task_manager.h>
#include <nuv/thread.h>

#include <unistd.h>
#include <cstdlib>
#include <string>

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

}  // namespace

int main() {
  if (getenv("NUV_POOL_PREFIX") == nullptr) {
    setenv("NUV_POOL_PREFIX", ("nuv_example_" + std::to_string(getpid()) + "_").c_str(), 1);
  }
  NuvLogger::LogTty(true);
  NuvMempool* pool = nullptr;
  const unsigned made = NuvMempool::Allocate(kPoolName, kPoolSize, true, nullptr, true, pool);
  if (made != kNuvOk) {
    NuvLogger::Log(NuvLogger::facnuv, NuvLogger::prierr, kTag, "pool: %s", NuvStatusText(made));
    return EXIT_FAILURE;
  }
  auto* self = new (pool) NuvThread("main");
  self->UpRef();
  pCurrentThreadG = self;
  RunTasks(pool);
  pCurrentThreadG = nullptr;
  self->DownRef();
  delete pool;
  NuvMempool::Clean(kPoolName);
  return EXIT_SUCCESS;
}
