/// \file Task manager: the time from an Add that wakes an idle worker until the task's Run
/// starts, beside a semaphore wake-up between two processes (a V until the waiter runs again),
/// interleaved in one run.
#include <nuv/semaphore.h>
#include <nuv/task_manager.h>

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "bench/how_measured.h"
#include "bench/median.h"
#include "bench/shared_pool.h"

namespace {

constexpr unsigned kPoolSize = 256 * 1024;
constexpr int kRuns = 15;
constexpr int kWakeUpsPerRun = 40;
// Time for the woken side to go back to sleep before the next wake-up.
constexpr useconds_t kSettleMicroseconds = 2000;

// When the woken side began, in nanoseconds of CLOCK_MONOTONIC, in memory both processes see.
struct Stamp {
  volatile long long woke;
  volatile int stop;
};

long long Now() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000000000LL + now.tv_nsec;
}

class StampingTask : public NuvTask {
 public:
  explicit StampingTask(Stamp* stamp) : NuvTask(NuvThread::standard, 0), stampM(stamp) {}
  unsigned Run() override {
    stampM->woke = Now();
    return 0;
  }

 private:
  Stamp* stampM;
};

// Nanoseconds from the start until the woken side stamped.
template <typename Wake>
double TimeOneWakeUp(Stamp* stamp, Wake wake) {
  usleep(kSettleMicroseconds);
  stamp->woke = 0;
  const long long start = Now();
  wake();
  while (stamp->woke == 0) {
  }
  return static_cast<double>(stamp->woke - start);
}

void StampOnEachWakeUp(NuvSema* sema, Stamp* stamp) {
  while (stamp->stop == 0) {
    sema->psema(nullptr);
    stamp->woke = Now();
  }
}

}  // namespace

int main() {
  nuv::bench::PrintHowMeasured();
  const nuv::bench::SharedPool shared("taskbench", kPoolSize);
  NuvMempool* pool = shared.Get();
  if (pool == nullptr) {
    return EXIT_FAILURE;
  }
  auto* self = new (pool) NuvThread("bench");
  self->UpRef();
  pCurrentThreadG = self;
  auto* stamp = new (pool->Malloc(sizeof(Stamp), NuvMempool::unknown)) Stamp{};
  auto* sema = new (pool) NuvSema(NuvMempool::nuv);
  sema->init(0, false);
  const int waiter = nuv::bench::StartChild([sema, stamp] { StampOnEachWakeUp(sema, stamp); });
  auto* manager = new (pool) NuvTaskManager;
  manager->UpRef();
  auto* task = new (pool) StampingTask(stamp);
  task->UpRef();

  std::array<nuv::bench::Repetitions, 2> timings;
  for (int run = 0; run < kRuns; ++run) {
    for (int i = 0; i < kWakeUpsPerRun; ++i) {
      timings[0].Add(TimeOneWakeUp(stamp, [manager, task] { manager->Add(task); }));
      timings[1].Add(TimeOneWakeUp(stamp, [sema] { sema->vsema(); }));
    }
  }
  nuv::bench::PrintBeside(
      "dispatch of one task run to an idle worker",
      std::array<const char*, 2>{"Add until Run starts", "vsema until the waiter runs"}, timings,
      true);
  std::printf("  ratio: %.2fx a semaphore wake-up\n", timings[0].Median() / timings[1].Median());
  stamp->stop = 1;
  sema->vsema();
  waitpid(waiter, nullptr, 0);
  manager->DownRef();
  task->DownRef();
  pCurrentThreadG = nullptr;
  self->DownRef();
  return EXIT_SUCCESS;
}
