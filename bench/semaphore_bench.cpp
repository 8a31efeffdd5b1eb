/// \file Semaphores: an uncontended psema+vsema pair beside sem_wait+sem_post, and a ping-pong
/// between two processes (sssema on both sides) beside two process-shared sem_t and beside the
/// bare signals that every wait of the library is built on.
#include <nuv/semaphore.h>

#include <semaphore.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/how_measured.h"
#include "bench/median.h"
#include "bench/placement.h"
#include "bench/shared_pool.h"
#include "bench/signal_floor.h"

namespace {

constexpr unsigned kPoolSize = 64 * 1024;
constexpr int kPairRuns = 15;
constexpr int kPairsPerRun = 1000000;
constexpr int kPingPongRuns = 15;
constexpr int kRoundTripsPerRun = 2000;

// POSIX semaphores for use between processes, with the ping-pong's stop flag, in memory that
// forked children share.
struct PosixSide {
  sem_t pair;
  sem_t ping;
  sem_t pong;
  volatile bool stop;
};

PosixSide* NewPosixSide() {
  void* memory =
      mmap(nullptr, sizeof(PosixSide), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    return nullptr;
  }
  auto* side = new (memory) PosixSide{};
  sem_init(&side->pair, 1, 1);
  sem_init(&side->ping, 1, 0);
  sem_init(&side->pong, 1, 0);
  return side;
}

NuvSema* NewSema(NuvMempool* pool, int count) {
  auto* sema = new (pool) NuvSema(NuvMempool::nuv);
  sema->init(count, false);
  return sema;
}

// Pairs that never wait: P on a count of 1, then V.
void BenchPairs(NuvMempool* pool, PosixSide* posix) {
  NuvSema* sema = NewSema(pool, 1);
  sem_t* sem = &posix->pair;
  nuv::bench::PrintBeside("uncontended pair", {"psema+vsema", "sem_wait+sem_post"},
                          nuv::bench::Interleaved(
                              kPairRuns, kPairsPerRun,
                              [sema] {
                                sema->psema(nullptr);
                                sema->vsema();
                              },
                              [sem] {
                                sem_wait(sem);
                                sem_post(sem);
                              }),
                          false);
  sema->DeleteThis();
}

// The other side of each ping-pong: waits for ping, then answers each ping with pong and waits
// for the next one in a single step, until the stop flag.
void ReturnSemaphores(NuvSema* ping, NuvSema* pong, const volatile bool* stop) {
  ping->psema(nullptr);
  while (!*stop) {
    ping->sssema(pong, nullptr);
  }
}

void ReturnPosix(PosixSide* side) {
  sem_wait(&side->ping);
  while (!side->stop) {
    sem_post(&side->pong);
    sem_wait(&side->ping);
  }
}

void BenchPingPong(NuvMempool* pool, PosixSide* posix, const char* placement) {
  NuvSema* ping = NewSema(pool, 0);
  NuvSema* pong = NewSema(pool, 0);
  posix->stop = false;
  const int semaphores =
      nuv::bench::StartChild([=] { ReturnSemaphores(ping, pong, &posix->stop); });
  const int semTs = nuv::bench::StartChild([posix] { ReturnPosix(posix); });
  const nuv::bench::SignalPingPong signals;
  const std::string what = std::string("ping-pong round trip, ") + placement;
  nuv::bench::PrintBeside(
      what.c_str(), {"sssema", "two sem_t", "bare kill + sigsuspend"},
      nuv::bench::Interleaved(
          kPingPongRuns, kRoundTripsPerRun, [ping, pong] { pong->sssema(ping, nullptr); },
          [posix] {
            sem_post(&posix->ping);
            sem_wait(&posix->pong);
          },
          [&signals] { signals.RoundTrip(); }),
      true);
  posix->stop = true;
  ping->vsema();
  sem_post(&posix->ping);
  waitpid(semaphores, nullptr, 0);
  waitpid(semTs, nullptr, 0);
  ping->DeleteThis();
  pong->DeleteThis();
}

}  // namespace

int main() {
  nuv::bench::PrintHowMeasured();
  const nuv::bench::SharedPool pool("semaphore_bench", kPoolSize);
  PosixSide* posix = NewPosixSide();
  if (pool.Get() == nullptr || posix == nullptr) {
    return EXIT_FAILURE;
  }
  BenchPairs(pool.Get(), posix);
  nuv::bench::OnEachPlacement(
      [&pool, posix](const char* placement) { BenchPingPong(pool.Get(), posix, placement); });
  return EXIT_SUCCESS;
}
