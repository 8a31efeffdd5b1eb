/// \file A message round trip between two processes with untimed receives: a pool's messenger
/// beside two POSIX message queues and beside the bare signals that its waits are built on.
#include <nuv/mempool.h>
#include <nuv/messenger.h>

#include <fcntl.h>
#include <mqueue.h>
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

constexpr int kRuns = 15;
constexpr int kRoundTripsPerRun = 2000;
constexpr unsigned kPoolSize = 256 * 1024;
constexpr int kQueueDepth = 10;
// The message type that ends the echoing process.
constexpr unsigned kStop = 0xFFFFFFFF;

// Answers every message on ping with itself on pong until the stop message.
void EchoMessages(NuvMessenger* queues, int ping, int pong) {
  NuvMessage message{};
  while (queues->irecv(ping, message, 0, nullptr) == kNuvMessageDone && message.type != kStop) {
    queues->isend(pong, message, 0, nullptr);
  }
}

void EchoPosix(mqd_t ping, mqd_t pong) {
  NuvMessage message{};
  while (mq_receive(ping, reinterpret_cast<char*>(&message), sizeof message, nullptr) ==
             static_cast<ssize_t>(sizeof message) &&
         message.type != kStop) {
    mq_send(pong, reinterpret_cast<const char*>(&message), sizeof message, 0);
  }
}

// A queue pair of this run's own; the names go at once, the queues with their descriptors.
struct PosixQueues {
  mqd_t ping;
  mqd_t pong;
};

mqd_t OpenPosixQueue(const std::string& name) {
  mq_attr attributes{};
  attributes.mq_maxmsg = kQueueDepth;
  attributes.mq_msgsize = sizeof(NuvMessage);
  const mqd_t queue = mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600, &attributes);
  mq_unlink(name.c_str());
  return queue;
}

bool OpenPosixQueues(PosixQueues& queues) {
  const std::string prefix = "/nuv_bench_" + std::to_string(getpid());
  queues.ping = OpenPosixQueue(prefix + "_ping");
  queues.pong = OpenPosixQueue(prefix + "_pong");
  if (queues.ping == static_cast<mqd_t>(-1) || queues.pong == static_cast<mqd_t>(-1)) {
    std::perror("mq_open");
    return false;
  }
  return true;
}

void Bench(NuvMessenger* queues, const PosixQueues& posix, const char* placement) {
  const int ping = queues->CreateQueue(kQueueDepth);
  const int pong = queues->CreateQueue(kQueueDepth);
  const int messengerEcho = nuv::bench::StartChild([=] { EchoMessages(queues, ping, pong); });
  const int posixEcho = nuv::bench::StartChild([posix] { EchoPosix(posix.ping, posix.pong); });
  const nuv::bench::SignalPingPong signals;
  NuvMessage message{1, {2, 3, 4, 5, 6, 7}};
  NuvMessage posixMessage = message;
  const std::string what = std::string("message round trip, ") + placement;
  nuv::bench::PrintBeside(
      what.c_str(), {"isend + untimed irecv", "two POSIX message queues", "bare kill + sigsuspend"},
      nuv::bench::Interleaved(
          kRuns, kRoundTripsPerRun,
          [=, &message] {
            queues->isend(ping, message, 0, nullptr);
            queues->irecv(pong, message, 0, nullptr);
          },
          [posix, &posixMessage] {
            auto* bytes = reinterpret_cast<char*>(&posixMessage);
            mq_send(posix.ping, bytes, sizeof posixMessage, 0);
            mq_receive(posix.pong, bytes, sizeof posixMessage, nullptr);
          },
          [&signals] { signals.RoundTrip(); }),
      true);
  NuvMessage stop{kStop, {}};
  queues->isend(ping, stop, 0, nullptr);
  mq_send(posix.ping, reinterpret_cast<const char*>(&stop), sizeof stop, 0);
  waitpid(messengerEcho, nullptr, 0);
  waitpid(posixEcho, nullptr, 0);
  queues->DestroyQueue(ping);
  queues->DestroyQueue(pong);
}

}  // namespace

int main() {
  nuv::bench::PrintHowMeasured();
  const nuv::bench::SharedPool pool("messenger_bench", kPoolSize);
  PosixQueues posix{};
  if (pool.Get() == nullptr || !OpenPosixQueues(posix)) {
    return EXIT_FAILURE;
  }
  nuv::bench::OnEachPlacement([&pool, &posix](const char* placement) {
    Bench(pool.Get()->GetMessenger(), posix, placement);
  });
  mq_close(posix.ping);
  mq_close(posix.pong);
  return EXIT_SUCCESS;
}
