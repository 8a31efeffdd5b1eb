/// \file Cost of an uncontended psema+vsema pair beside sem_wait+sem_post on a shared sem_t.
#include <nuv/semaphore.h>

#include <semaphore.h>
#include <sys/mman.h>

#include <cstdio>
#include <cstdlib>

#include "bench/how_measured.h"
#include "bench/median.h"
#include "bench/private_pool.h"

namespace {

constexpr unsigned kPoolSize = 64 * 1024;

// A pair that never waits: P on a count of 1, then V.
double MedianPoolPair(NuvMempool* pool) {
  auto* sema = new (pool) NuvSema(NuvMempool::nuv);
  sema->init(1, false);
  const double nanoseconds = nuv::bench::MedianNanoseconds([sema] {
    sema->psema(nullptr);
    sema->vsema();
  });
  sema->DeleteThis();
  return nanoseconds;
}

// The same pair on a POSIX semaphore set up for use between processes, in shared memory.
double MedianPosixPair() {
  void* memory =
      mmap(nullptr, sizeof(sem_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    return -1;
  }
  auto* sem = static_cast<sem_t*>(memory);
  sem_init(sem, 1, 1);
  const double nanoseconds = nuv::bench::MedianNanoseconds([sem] {
    sem_wait(sem);
    sem_post(sem);
  });
  sem_destroy(sem);
  munmap(memory, sizeof(sem_t));
  return nanoseconds;
}

}  // namespace

int main() {
  nuv::bench::PrintHowMeasured();
  NuvMempool* pool = nuv::bench::MakePrivatePool(kPoolSize);
  if (pool == nullptr) {
    return EXIT_FAILURE;
  }
  std::printf("psema+vsema:        %.2f ns\n", MedianPoolPair(pool));
  std::printf("sem_wait+sem_post:  %.2f ns\n", MedianPosixPair());
  delete pool;
  return EXIT_SUCCESS;
}
