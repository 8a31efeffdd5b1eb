/// \file Cost of a message round trip between two processes: a pool's messenger beside POSIX
/// message queues.
#include <nuv/mempool.h>
#include <nuv/messenger.h>
#include <nuv/status.h>
#include <nuv/time.h>

#include <fcntl.h>
#include <mqueue.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/how_measured.h"
#include "bench/median.h"

namespace {

constexpr int kRuns = 9;
constexpr int kRoundTripsPerRun = 2000;
constexpr unsigned kPoolSize = 256 * 1024;
constexpr const char* kPoolName = "messenger_bench";
constexpr int kQueueDepth = 10;
// The message type that ends the echoing process.
constexpr unsigned kStop = 0xFFFFFFFF;
// A receiver's bounded wait: a sender looks at the receive semaphore without its lock word, so
// a wake-up can be missed by design; the receiver then looks at the queue again.
constexpr int64_t kPatienceNs = 20000000;

// Runs echo in a child process; returns its pid.
template <typename Echo>
int StartEcho(Echo echo) {
  std::fflush(nullptr);
  const int pid = fork();
  if (pid == 0) {
    echo();
    _exit(EXIT_SUCCESS);
  }
  return pid;
}

// Takes the next message, counting the passes that ran into their time-out.
void Receive(NuvMessenger* queues, int number, NuvMessage& message, unsigned* misses) {
  NuvTime patience(kPatienceNs);
  while (queues->irecv(number, message, 0, &patience) == kNuvReceiveTimedOut) {
    ++*misses;
  }
}

// Answers every message on ping with itself on pong until the stop message.
void EchoMessages(NuvMessenger* queues, int ping, int pong) {
  unsigned misses = 0;
  NuvMessage message{};
  for (;;) {
    Receive(queues, ping, message, &misses);
    if (message.type == kStop) {
      break;
    }
    queues->isend(pong, message, 0, nullptr);
  }
  if (misses != 0) {
    std::printf("echo: %u receives ran into their time-out\n", misses);
  }
}

bool BenchMessenger(NuvMessenger* queues) {
  const int ping = queues->CreateQueue(kQueueDepth);
  const int pong = queues->CreateQueue(kQueueDepth);
  const int echo = StartEcho([queues, ping, pong] { EchoMessages(queues, ping, pong); });
  if (echo < 0) {
    return false;
  }
  unsigned misses = 0;
  NuvMessage message{1, {2, 3, 4, 5, 6, 7}};
  const double median = nuv::bench::MedianNanoseconds(
      [queues, ping, pong, &message, &misses] {
        queues->isend(ping, message, 0, nullptr);
        Receive(queues, pong, message, &misses);
      },
      kRuns, kRoundTripsPerRun);
  NuvMessage stop{kStop, {}};
  queues->isend(ping, stop, 0, nullptr);
  waitpid(echo, nullptr, 0);
  queues->DestroyQueue(ping);
  queues->DestroyQueue(pong);
  std::printf("messenger round trip: %.1f us (%u receives ran into their time-out)\n",
              median / 1000, misses);
  return true;
}

// Answers every message on ping with itself on pong until the stop message.
void EchoPosix(mqd_t ping, mqd_t pong) {
  NuvMessage message{};
  while (mq_receive(ping, reinterpret_cast<char*>(&message), sizeof message, nullptr) ==
             static_cast<ssize_t>(sizeof message) &&
         message.type != kStop) {
    mq_send(pong, reinterpret_cast<const char*>(&message), sizeof message, 0);
  }
}

mqd_t OpenPosixQueue(const std::string& name) {
  mq_attr attributes{};
  attributes.mq_maxmsg = kQueueDepth;
  attributes.mq_msgsize = sizeof(NuvMessage);
  return mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600, &attributes);
}

bool BenchPosix() {
  const std::string prefix = "/nuv_bench_" + std::to_string(getpid());
  const mqd_t ping = OpenPosixQueue(prefix + "_ping");
  const mqd_t pong = OpenPosixQueue(prefix + "_pong");
  mq_unlink((prefix + "_ping").c_str());
  mq_unlink((prefix + "_pong").c_str());
  if (ping == static_cast<mqd_t>(-1) || pong == static_cast<mqd_t>(-1)) {
    std::perror("mq_open");
    return false;
  }
  const int echo = StartEcho([ping, pong] { EchoPosix(ping, pong); });
  if (echo < 0) {
    return false;
  }
  NuvMessage message{1, {2, 3, 4, 5, 6, 7}};
  const double median = nuv::bench::MedianNanoseconds(
      [ping, pong, &message] {
        mq_send(ping, reinterpret_cast<const char*>(&message), sizeof message, 0);
        mq_receive(pong, reinterpret_cast<char*>(&message), sizeof message, nullptr);
      },
      kRuns, kRoundTripsPerRun);
  const NuvMessage stop{kStop, {}};
  mq_send(ping, reinterpret_cast<const char*>(&stop), sizeof stop, 0);
  waitpid(echo, nullptr, 0);
  mq_close(ping);
  mq_close(pong);
  std::printf("POSIX mq round trip:  %.1f us\n", median / 1000);
  return true;
}

}  // namespace

int main() {
  nuv::bench::PrintHowMeasured();
  // As in thread processes: a wake-up or time-out that arrives outside a wait is lost harmlessly.
  signal(SIGUSR1, SIG_IGN);
  signal(SIGALRM, SIG_IGN);
  // The pool file gets a name of this run's own, and is removed at the end.
  const std::string prefix = "nuvbench_" + std::to_string(getpid()) + "_";
  setenv("NUV_POOL_PREFIX", prefix.c_str(), 1);
  NuvMempool* pool = nullptr;
  const unsigned result = NuvMempool::Allocate(kPoolName, kPoolSize, true, nullptr, true, pool);
  if (result != kNuvOk) {
    std::fprintf(stderr, "pool allocation failed: %s\n", NuvStatusText(result));
    return EXIT_FAILURE;
  }
  const bool messengerDone = BenchMessenger(pool->GetMessenger());
  delete pool;
  NuvMempool::Clean(kPoolName);
  const bool posixDone = BenchPosix();
  return messengerDone && posixDone ? EXIT_SUCCESS : EXIT_FAILURE;
}
