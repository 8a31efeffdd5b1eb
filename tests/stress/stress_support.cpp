/// \file Shared memory, scenario pools and worker processes of the stress scenarios.
#include <nuv/status.h>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "stress/stress.h"

namespace nuv::stress {

Scale Scale::Quick(const std::string& nuvpool) {
  Scale scale;
  scale.quick = true;
  scale.messagesPerProducer = 2000;
  scale.allocatorOperations = 5000;
  scale.waitersFor = std::chrono::seconds(5);
  scale.sharedLockFor = std::chrono::seconds(5);
  scale.killStormFor = std::chrono::seconds(10);
  scale.nuvpool = nuvpool;
  return scale;
}

Scale Scale::Full(const std::string& nuvpool) {
  Scale scale;
  scale.nuvpool = nuvpool;
  return scale;
}

void* SharedBytes(std::size_t bytes) {
  void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    std::perror("stress: shared memory");
    std::exit(2);
  }
  return memory;
}

ScenarioPool::ScenarioPool(const char* name, unsigned size) : nameM(name) {
  const unsigned made = NuvMempool::Allocate(name, size, true, nullptr, true, poolM);
  if (made != kNuvOk) {
    std::fprintf(stderr, "stress: pool %s: %s\n", name, NuvStatusText(made));
    std::exit(2);
  }
}

ScenarioPool::~ScenarioPool() {
  delete poolM;
  NuvMempool::Clean(nameM.c_str());
}

std::string ScenarioPool::Path() const {
  const char* prefix = std::getenv("NUV_POOL_PREFIX");
  return std::string("/var/tmp/") + (prefix != nullptr ? prefix : "") + nameM;
}

pid_t StartWorker(const std::function<bool()>& body) {
  const pid_t pid = fork();
  if (pid == 0) {
    _exit(body() ? 0 : 1);
  }
  return pid;
}

bool JoinWorkers(const std::vector<pid_t>& workers, std::chrono::seconds deadline,
                 std::string* trouble) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  bool allWell = true;
  for (const pid_t pid : workers) {
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > end) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        *trouble += " worker " + std::to_string(pid) + " hung;";
        allWell = false;
        break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      if (allWell || WIFSIGNALED(status)) {
        *trouble += " worker " + std::to_string(pid) + " failed;";
      }
      allWell = false;
    }
  }
  return allWell;
}

std::string Elapsed(std::chrono::steady_clock::time_point start) {
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", seconds);
  return text;
}

}  // namespace nuv::stress
