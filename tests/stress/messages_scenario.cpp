/// \file 8 producers and 2 consumers on one message queue: every message arrives once, in its
/// producer's order, with all seven words as sent.
#include <nuv/messenger.h>
#include <nuv/status.h>

#include <atomic>
#include <string>
#include <vector>

#include "stress/stress.h"

namespace nuv::stress {
namespace {

constexpr unsigned kProducers = 8;
constexpr unsigned kConsumers = 2;
constexpr unsigned kDataType = 1;
constexpr unsigned kStopType = 2;
// A queued message takes one 32-byte block; the pool holds every message at once, as when the
// consumers fall behind for the whole run, and room for the queues besides.
constexpr unsigned kBytesPerQueuedMessage = 40;
constexpr unsigned kPoolBaseBytes = 1024 * 1024;

// The payload words of message seq from producer: each depends on both, so a torn or mixed
// message shows.
unsigned PayloadWord(unsigned producer, unsigned seq, unsigned word) {
  return (seq * 2654435761U) ^ (producer << 24) ^ (word * 0x9e3779b9U);
}

NuvMessage MakeMessage(unsigned producer, unsigned seq) {
  NuvMessage message{kDataType, {producer, seq, 0, 0, 0, 0}};
  for (unsigned word = 2; word < 6; ++word) {
    message.payload[word] = PayloadWord(producer, seq, word);
  }
  return message;
}

bool Intact(const NuvMessage& message) {
  const unsigned producer = message.payload[0];
  if (producer >= kProducers) {
    return false;
  }
  for (unsigned word = 2; word < 6; ++word) {
    if (message.payload[word] != PayloadWord(producer, message.payload[1], word)) {
      return false;
    }
  }
  return true;
}

// Counters that the consumers fill: arrivals per message, and the faults they saw.
struct Tally {
  std::atomic<uint32_t> damaged;
  std::atomic<uint32_t> outOfOrder;
  std::atomic<uint32_t> received;
};

bool Consume(NuvMessenger* messenger, int queue, unsigned perProducer, Tally* tally,
             std::atomic<uint8_t>* arrivals) {
  std::vector<int64_t> last(kProducers, -1);
  for (;;) {
    NuvMessage message{};
    if (messenger->irecv(queue, message, 0, nullptr) != kNuvOk) {
      return false;
    }
    if (message.type == kStopType) {
      return true;
    }
    if (!Intact(message) || message.payload[1] >= perProducer) {
      ++tally->damaged;
      continue;
    }
    const unsigned producer = message.payload[0];
    const unsigned seq = message.payload[1];
    if (static_cast<int64_t>(seq) <= last[producer]) {
      ++tally->outOfOrder;
    }
    last[producer] = seq;
    ++arrivals[producer * perProducer + seq];
    ++tally->received;
  }
}

}  // namespace

Outcome RunMessages(const Scale& scale) {
  const auto start = std::chrono::steady_clock::now();
  const unsigned perProducer = scale.messagesPerProducer;
  ScenarioPool pool("messages", kPoolBaseBytes + kProducers * perProducer * kBytesPerQueuedMessage);
  NuvMessenger* messenger = pool.Get()->GetMessenger();
  const int queue = messenger->CreateQueue(10);
  auto* tally = SharedArray<Tally>(1);
  auto* arrivals = SharedArray<std::atomic<uint8_t>>(kProducers * perProducer);
  std::vector<pid_t> consumers;
  for (unsigned c = 0; c < kConsumers; ++c) {
    consumers.push_back(
        StartWorker([&] { return Consume(messenger, queue, perProducer, tally, arrivals); }));
  }
  std::vector<pid_t> producers;
  for (unsigned p = 0; p < kProducers; ++p) {
    producers.push_back(StartWorker([&, p] {
      for (unsigned seq = 0; seq < perProducer; ++seq) {
        NuvMessage message = MakeMessage(p, seq);
        if (messenger->isend(queue, message, 0, nullptr) != kNuvOk) {
          return false;
        }
      }
      return true;
    }));
  }
  const auto limit = std::chrono::seconds(scale.quick ? 120 : 3600);
  std::string trouble;
  bool passed = JoinWorkers(producers, limit, &trouble);
  for (unsigned c = 0; c < kConsumers; ++c) {
    NuvMessage stop{kStopType, {}};
    messenger->isend(queue, stop, 0, nullptr);
  }
  passed = JoinWorkers(consumers, limit, &trouble) && passed;
  unsigned lost = 0;
  unsigned duplicated = 0;
  for (unsigned i = 0; i < kProducers * perProducer; ++i) {
    lost += arrivals[i] == 0 ? 1 : 0;
    duplicated += arrivals[i] > 1 ? 1 : 0;
  }
  passed = passed && lost == 0 && duplicated == 0 && tally->damaged == 0 && tally->outOfOrder == 0;
  return {passed,
          std::to_string(kProducers) + " producers x " + std::to_string(perProducer) + ", " +
              std::to_string(kConsumers) + " consumers: " + std::to_string(tally->received.load()) +
              " received, " + std::to_string(lost) + " lost, " + std::to_string(duplicated) +
              " duplicated, " + std::to_string(tally->outOfOrder.load()) + " out of order, " +
              std::to_string(tally->damaged.load()) + " damaged, in " + Elapsed(start) + trouble};
}

}  // namespace nuv::stress
