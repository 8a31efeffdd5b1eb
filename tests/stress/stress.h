/// \file The stress scenarios and what they share: their scale, shared memory that outlives the
/// processes that write it, worker processes with deadlines, and one result line per scenario.
#ifndef NUV_TESTS_STRESS_STRESS_H
#define NUV_TESTS_STRESS_STRESS_H

#include <nuv/mempool.h>

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace nuv::stress {

/// How hard a run presses: the release figures, or the quick ones for CI.
struct Scale {
  bool quick = false;
  unsigned messagesPerProducer = 100000;
  unsigned allocatorOperations = 100000;
  std::chrono::seconds waitersFor{60};
  std::chrono::seconds sharedLockFor{60};
  std::chrono::seconds killStormFor{60};
  std::string nuvpool;  // the inspector's path, for the kill storm

  static Scale Quick(const std::string& nuvpool);
  static Scale Full(const std::string& nuvpool);
};

/// What a scenario found: its line for the summary and whether it passed.
struct Outcome {
  bool passed = false;
  std::string line;
};

Outcome RunMessages(const Scale& scale);
Outcome RunAllocator(const Scale& scale);
Outcome RunSemaphoreWaiters(const Scale& scale);
Outcome RunSharedLock(const Scale& scale);
Outcome RunKillStorm(const Scale& scale);

/// Memory shared with every process forked after it is made: an anonymous shared mapping.
template <typename T>
T* SharedArray(std::size_t count);
void* SharedBytes(std::size_t bytes);

/// A named pool for one scenario, with a file of the run's own, removed at the end.
class ScenarioPool {
 public:
  ScenarioPool(const char* name, unsigned size);
  ~ScenarioPool();
  ScenarioPool(const ScenarioPool&) = delete;
  ScenarioPool& operator=(const ScenarioPool&) = delete;
  ScenarioPool(ScenarioPool&&) = delete;
  ScenarioPool& operator=(ScenarioPool&&) = delete;

  NuvMempool* Get() const { return poolM; }
  std::string Path() const;

 private:
  std::string nameM;
  NuvMempool* poolM = nullptr;
};

/// Forks a worker that runs body and exits 0 (1 when body returns false).
pid_t StartWorker(const std::function<bool()>& body);
/// Waits for every worker until deadline; kills those still running. True when all exited 0.
bool JoinWorkers(const std::vector<pid_t>& workers, std::chrono::seconds deadline,
                 std::string* trouble);

/// Seconds since start, as text with one decimal.
std::string Elapsed(std::chrono::steady_clock::time_point start);
/// A small fast random generator, seeded per process.
class Random {
 public:
  explicit Random(uint32_t seed) : stateM(seed * 2654435761U + 1) {}
  uint32_t Next() {
    stateM ^= stateM << 13;
    stateM ^= stateM >> 17;
    stateM ^= stateM << 5;
    return stateM;
  }
  uint32_t Below(uint32_t bound) { return Next() % bound; }

 private:
  uint32_t stateM;
};

template <typename T>
T* SharedArray(std::size_t count) {
  return static_cast<T*>(SharedBytes(sizeof(T) * count));
}

}  // namespace nuv::stress

#endif  // NUV_TESTS_STRESS_STRESS_H
