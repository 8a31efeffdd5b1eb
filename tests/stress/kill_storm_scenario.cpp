/// \file Workers doing pool, queue and semaphore work, killed with SIGKILL at random moments and
/// replaced. A kill inside a critical section leaves its lock word held for good: nuvpool must
/// name that word, and the round ends there. Where no word was left held, the survivors go on:
/// when the round ends, after a few kills, every message whose send returned reaches the
/// consumer, once and in order.
#include <nuv/mempool.h>
#include <nuv/messenger.h>
#include <nuv/semaphore.h>
#include <nuv/status.h>

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "stress/stress.h"
#include "support/json.h"

namespace nuv::stress {
namespace {

constexpr unsigned kWorkers = 6;
constexpr unsigned kIncarnations = 8192;  // workers started in one run, at most
constexpr unsigned kDataType = 1;
constexpr unsigned kInFlight = 64;
// A round ends after this many kills, so that most rounds end with no word held and the
// survivors' messages are counted; about one kill in five lands inside the pool's lock.
constexpr unsigned kKillsPerRound = 4;
// Offsets of the lock words in their objects (checked at compile time by the library).
constexpr unsigned kPoolLock = 112, kMessengerLock = 8, kMessengerQueues = 16, kQueueLock = 24;
constexpr unsigned kSemaphoreLock = 24, kQueueBlocksLock = 8, kQueueBlocksOffset = 32;

uint32_t WordAt(const void* object, unsigned offset) {
  uint32_t word = 0;
  std::memcpy(&word, static_cast<const char*>(object) + offset, sizeof word);
  return word;
}

// What the processes of one run share.
struct StormState {
  std::atomic<uint32_t> stop;
  std::atomic<uint32_t> confirmed[kIncarnations];  // sends that returned, per incarnation
  std::atomic<uint32_t> received[kIncarnations];   // messages the consumer took
  std::atomic<uint32_t> misordered;
};

// The lock words of the round's pool, named as nuvpool names them.
struct Watched {
  const char* name;
  const volatile uint32_t* word;
};

class Round {
 public:
  Round(StormState* state, unsigned* nextIncarnation)
      : poolM("storm", 2 * 1024 * 1024), stateM(state), nextM(nextIncarnation) {
    NuvMempool* pool = poolM.Get();
    queueM = pool->GetMessenger()->CreateQueue(10);
    semaM = new (pool) NuvSema(NuvMempool::catalog);
    semaM->init(0, false);
    const auto* messenger = reinterpret_cast<const char*>(pool->GetMessenger());
    const auto* base = reinterpret_cast<const char*>(pool);
    const auto queue = static_cast<uintptr_t>(WordAt(messenger, kMessengerQueues));
    const auto stock = static_cast<uintptr_t>(WordAt(base, kQueueBlocksOffset));
    watchedM = {{{"pool", Word(base + kPoolLock)},
                 {"messenger", Word(messenger + kMessengerLock)},
                 {"queue blocks", Word(reinterpret_cast<const char*>(stock) + kQueueBlocksLock)},
                 {"queue", Word(reinterpret_cast<const char*>(queue) + kQueueLock)},
                 {"semaphore", Word(reinterpret_cast<const char*>(semaM) + kSemaphoreLock)}}};
    consumerM = StartWorker([this] { return Consume(); });
    for (pid_t& worker : workersM) {
      worker = Start();
    }
  }

  /// Kills a random worker, and tells which word it left held (null when none).
  const char* KillOne(Random& random) {
    pid_t& victim = workersM[random.Below(kWorkers)];
    kill(victim, SIGKILL);
    waitpid(victim, nullptr, 0);
    const char* held = StuckWord();
    victim = held == nullptr ? Start() : 0;
    return held;
  }

  /// Whether nuvpool lists a held word at the address of the one named, under that name.
  bool NuvpoolNames(const std::string& nuvpool, const char* name) const {
    uintptr_t address = 0;
    for (const Watched& watched : watchedM) {
      address = std::strcmp(watched.name, name) == 0 ? reinterpret_cast<uintptr_t>(watched.word)
                                                     : address;
    }
    std::string error;
    const test::Json report = test::Json::Parse(NuvpoolReport(nuvpool), &error);
    const test::Json& held = report["heldLocks"];
    for (std::size_t i = 0; i < held.Size(); ++i) {
      if (held[i]["address"].Int() == static_cast<int64_t>(address) &&
          held[i]["lock"].String().rfind(name, 0) == 0) {
        return true;
      }
    }
    return false;
  }

  /// Ends a round where no word was left held: the workers stop, the consumer drains the queue.
  bool Finish(std::string* trouble) {
    stateM->stop = 1;
    std::vector<pid_t> all(workersM.begin(), workersM.end());
    bool clean = JoinWorkers(all, std::chrono::seconds(30), trouble);
    NuvMessage last{kDataType + 1, {}};
    poolM.Get()->GetMessenger()->isend(queueM, last, 0, nullptr);
    clean = JoinWorkers({consumerM}, std::chrono::seconds(30), trouble) && clean;
    stateM->stop = 0;
    return clean;
  }

  /// Ends a round whose pool is stuck: every process of it goes.
  void Abandon() {
    for (const pid_t pid : workersM) {
      if (pid > 0) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
      }
    }
    kill(consumerM, SIGKILL);
    waitpid(consumerM, nullptr, 0);
  }

 private:
  static const volatile uint32_t* Word(const char* at) {
    return reinterpret_cast<const volatile uint32_t*>(at);
  }

  std::string NuvpoolReport(const std::string& nuvpool) const {
    const std::string command = nuvpool + " show --json " + poolM.Path() + " 2>/dev/null";
    // NOLINTNEXTLINE(cert-env33-c): the command is this program's own, with a path of its own.
    FILE* output = popen(command.c_str(), "r");
    std::string json;
    char buffer[4096];
    size_t got = 0;
    while (output != nullptr && (got = fread(buffer, 1, sizeof buffer, output)) > 0) {
      json.append(buffer, got);
    }
    if (output != nullptr) {
      pclose(output);
    }
    return json;
  }

  // A word held in every look over 300 ms is held by nobody who will release it.
  const char* StuckWord() const {
    std::array<bool, 5> held{};
    for (std::size_t i = 0; i < watchedM.size(); ++i) {
      held[i] = *watchedM[i].word != 0;
    }
    for (int look = 0; look < 300; ++look) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      for (std::size_t i = 0; i < watchedM.size(); ++i) {
        held[i] = held[i] && *watchedM[i].word != 0;
      }
    }
    for (std::size_t i = 0; i < watchedM.size(); ++i) {
      if (held[i]) {
        return watchedM[i].name;
      }
    }
    return nullptr;
  }

  pid_t Start() {
    const unsigned incarnation = (*nextM)++ % kIncarnations;
    stateM->confirmed[incarnation] = 0;
    stateM->received[incarnation] = 0;
    return StartWorker([this, incarnation] { return Work(incarnation); });
  }

  bool Work(unsigned incarnation) {
    NuvMempool* pool = poolM.Get();
    NuvMessenger* messenger = pool->GetMessenger();
    Random random(static_cast<uint32_t>(getpid()));
    for (unsigned seq = 0; stateM->stop == 0;) {
      pool->Free(pool->Malloc(1 + random.Below(4096), NuvMempool::catalog));
      // The consumer keeps up: a worker has at most kInFlight messages queued.
      NuvMessage message{kDataType, {incarnation, seq, 0, 0, 0, 0}};
      if (seq - stateM->received[incarnation] < kInFlight &&
          messenger->isend(queueM, message, 0, nullptr) == kNuvOk) {
        stateM->confirmed[incarnation] = ++seq;
      }
      semaM->vsema();
      semaM->psema(nullptr);
    }
    return true;
  }

  bool Consume() {
    NuvMessenger* messenger = poolM.Get()->GetMessenger();
    for (;;) {
      NuvMessage message{};
      if (messenger->irecv(queueM, message, 0, nullptr) != kNuvOk) {
        return false;
      }
      if (message.type != kDataType) {
        return true;
      }
      const unsigned incarnation = message.payload[0] % kIncarnations;
      if (message.payload[1] != stateM->received[incarnation]) {
        ++stateM->misordered;
      }
      ++stateM->received[incarnation];
    }
  }

  ScenarioPool poolM;
  StormState* stateM;
  unsigned* nextM;
  int queueM = 0;
  NuvSema* semaM = nullptr;
  std::array<Watched, 5> watchedM{};
  pid_t consumerM = 0;
  std::array<pid_t, kWorkers> workersM{};
};

// Every send of the incarnation that returned arrived; at most the one that a kill interrupted
// arrived unconfirmed.
bool LostAny(const StormState& state, unsigned incarnation) {
  const uint32_t confirmed = state.confirmed[incarnation % kIncarnations];
  const uint32_t received = state.received[incarnation % kIncarnations];
  return received < confirmed || received > confirmed + 1;
}

}  // namespace

Outcome RunKillStorm(const Scale& scale) {
  const auto start = std::chrono::steady_clock::now();
  auto* state = SharedArray<StormState>(1);
  Random random(static_cast<uint32_t>(getpid()));
  unsigned incarnations = 0;
  unsigned kills = 0;
  unsigned held = 0;
  unsigned named = 0;
  unsigned rounds = 0;
  unsigned finished = 0;
  unsigned delivered = 0;
  unsigned lost = 0;
  std::map<std::string, unsigned> heldWords;
  std::string trouble;
  bool clean = true;
  while (std::chrono::steady_clock::now() - start < scale.killStormFor) {
    ++rounds;
    const unsigned first = incarnations;
    Round round(state, &incarnations);
    const char* stuck = nullptr;
    for (unsigned killed = 0; stuck == nullptr && killed < kKillsPerRound &&
                              std::chrono::steady_clock::now() - start < scale.killStormFor;
         ++killed) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10 + random.Below(91)));
      ++kills;
      stuck = round.KillOne(random);
    }
    if (stuck != nullptr) {
      ++held;
      ++heldWords[stuck];
      named += round.NuvpoolNames(scale.nuvpool, stuck) ? 1 : 0;
      round.Abandon();
      continue;
    }
    ++finished;
    clean = round.Finish(&trouble) && clean;
    for (unsigned i = first; i < incarnations; ++i) {
      lost += LostAny(*state, i) ? 1 : 0;
      delivered += state->received[i % kIncarnations];
    }
  }
  const bool passed = clean && named == held && lost == 0 && state->misordered == 0;
  std::string words;
  for (const auto& [word, times] : heldWords) {
    words += (words.empty() ? " (" : ", ") + word + " " + std::to_string(times);
  }
  words += words.empty() ? "" : ")";
  return {passed,
          std::to_string(kills) + " kills in " + Elapsed(start) + " (" + std::to_string(rounds) +
              " rounds): " + std::to_string(held) + " left a lock word held" + words +
              ", nuvpool named " + std::to_string(named) + "; " + std::to_string(finished) +
              " rounds drained, " + std::to_string(delivered) +
              " messages delivered; survivors lost messages of " + std::to_string(lost) +
              " workers, " + std::to_string(state->misordered.load()) + " out of order" + trouble};
}

}  // namespace nuv::stress
