/// \file A named pool of a benchmark run's own, shared with the processes that the run forks.
#ifndef NUV_BENCH_SHARED_POOL_H
#define NUV_BENCH_SHARED_POOL_H

#include <nuv/mempool.h>
#include <nuv/status.h>

#include <unistd.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace nuv::bench {

/// Creates the pool under a prefix of this run's own and removes its file at the end. Outside
/// a wait the run ignores the wake-up and time-out signals, as library threads do, and so do the
/// processes it forks.
class SharedPool {
 public:
  SharedPool(const char* name, unsigned size) : nameM(name) {
    signal(SIGUSR1, SIG_IGN);
    signal(SIGALRM, SIG_IGN);
    const std::string prefix = "nuvbench_" + std::to_string(getpid()) + "_";
    setenv("NUV_POOL_PREFIX", prefix.c_str(), 1);
    const unsigned result = NuvMempool::Allocate(name, size, true, nullptr, true, poolM);
    if (result != kNuvOk) {
      std::fprintf(stderr, "pool allocation failed: %s\n", NuvStatusText(result));
      poolM = nullptr;
    }
  }
  ~SharedPool() {
    delete poolM;
    NuvMempool::Clean(nameM);
  }
  SharedPool(const SharedPool&) = delete;
  SharedPool& operator=(const SharedPool&) = delete;

  /// Null when the pool could not be made (the reason is on standard error).
  NuvMempool* Get() const { return poolM; }

 private:
  const char* nameM;
  NuvMempool* poolM = nullptr;
};

/// Runs body in a forked child that then ends; returns the child's pid (-1 if fork failed).
template <typename Body>
int StartChild(Body body) {
  std::fflush(nullptr);
  const int pid = fork();
  if (pid == 0) {
    body();
    _exit(EXIT_SUCCESS);
  }
  return pid;
}

}  // namespace nuv::bench

#endif  // NUV_BENCH_SHARED_POOL_H
