/// \file Threads: start and join of a shared thread with an empty entry (fork, the hold
/// semaphore's hand-off, the queue, the exit semaphore and the reaping) beside a bare fork,
/// _exit and waitpid, interleaved in one run.
#include <nuv/os_thread.h>
#include <nuv/thread.h>

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "bench/how_measured.h"
#include "bench/median.h"
#include "bench/shared_pool.h"

namespace {

constexpr unsigned kPoolSize = 256 * 1024;
constexpr int kRuns = 15;
constexpr int kStartsPerRun = 100;

int Empty(long /*arg*/) { return 0; }

void StartAndJoin(NuvMempool* pool) {
  auto* thread = new (pool) NuvThread(Empty, "empty");
  thread->UpRef();
  if (thread->Start(0) != 0) {
    std::fprintf(stderr, "start failed\n");
    std::exit(EXIT_FAILURE);
  }
  thread->Join();
  // The parent's last reference reaps the thread's process.
  thread->DownRef();
}

void ForkExitWait() {
  const pid_t pid = fork();
  if (pid == 0) {
    _exit(0);
  }
  int status = 0;
  waitpid(pid, &status, 0);
}

}  // namespace

int main() {
  nuv::bench::PrintHowMeasured();
  const nuv::bench::SharedPool shared("threadbench", kPoolSize);
  NuvMempool* pool = shared.Get();
  if (pool == nullptr) {
    return EXIT_FAILURE;
  }
  auto* self = new (pool) NuvThread("bench");
  self->UpRef();
  pCurrentThreadG = self;
  std::fflush(nullptr);
  const auto timings = nuv::bench::Interleaved(
      kRuns, kStartsPerRun, [pool] { StartAndJoin(pool); }, ForkExitWait);
  nuv::bench::PrintBeside("start and join of a shared thread with an empty entry",
                          std::array<const char*, 2>{"Start+Join+release", "fork+_exit+waitpid"},
                          timings, true);
  std::printf("  ratio: %.2fx the bare fork (target: within 3x)\n",
              timings[0].Median() / timings[1].Median());
  pCurrentThreadG = nullptr;
  self->DownRef();
  return EXIT_SUCCESS;
}
