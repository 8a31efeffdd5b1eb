/// \file nuv_stress [--quick] [SCENARIO...]: runs the stress scenarios (all by default) and
/// prints one line per scenario with its figures; exit status 0 only when every one passed.
#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/log_socket.h"
#include "stress/stress.h"
#include "thread/restart.h"

namespace {

using nuv::stress::Outcome;
using nuv::stress::Scale;

struct Scenario {
  const char* name;
  Outcome (*run)(const Scale&);
};

constexpr Scenario kScenarios[] = {{"messages", nuv::stress::RunMessages},
                                   {"allocator", nuv::stress::RunAllocator},
                                   {"waiters", nuv::stress::RunSemaphoreWaiters},
                                   {"shared-lock", nuv::stress::RunSharedLock},
                                   {"kill-storm", nuv::stress::RunKillStorm}};

// The inspector, run through the same emulator as this program.
std::string NuvpoolCommand() {
  std::string command;
  for (const char* word = NUV_STRESS_EMULATOR; *word != '\0';) {
    const std::size_t length = std::strcspn(word, "\t");
    command.append(word, length).append(" ");
    word += length + (word[length] == '\t' ? 1 : 0);
  }
  return command + NUV_STRESS_NUVPOOL;
}

// The figures keep standard output; the library's log, which falls back on standard output
// when it finds no log socket, goes to standard error with the scenarios' other messages.
FILE* TakeStandardOutputForFigures() {
  nuv::SetLogSocketPathsForTesting("/dev/null/log", "/dev/null/log");
  FILE* figures = fdopen(dup(STDOUT_FILENO), "w");
  if (figures == nullptr) {
    return stdout;
  }
  dup2(STDERR_FILENO, STDOUT_FILENO);
  return figures;
}

}  // namespace

int main(int argc, char** argv) {
  bool quick = false;
  std::vector<std::string> wanted;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--quick") == 0) {
      quick = true;
    } else {
      wanted.emplace_back(argv[i]);
    }
  }
  // A failed check in a worker ends it at once rather than after the log's five seconds.
  nuv::SetRestartDelayForTesting(0);
  FILE* figures = TakeStandardOutputForFigures();
  const std::string prefix = "nuvstress_" + std::to_string(getpid()) + "_";
  setenv("NUV_POOL_PREFIX", prefix.c_str(), 1);
  const Scale scale = quick ? Scale::Quick(NuvpoolCommand()) : Scale::Full(NuvpoolCommand());
  int failed = 0;
  int ran = 0;
  for (const Scenario& scenario : kScenarios) {
    bool chosen = wanted.empty();
    for (const std::string& name : wanted) {
      chosen = chosen || name == scenario.name;
    }
    if (chosen) {
      const Outcome outcome = scenario.run(scale);
      std::fprintf(figures, "%-12s %s: %s\n", scenario.name, outcome.passed ? "ok" : "FAILED",
                   outcome.line.c_str());
      std::fflush(figures);
      failed += outcome.passed ? 0 : 1;
      ++ran;
    }
  }
  if (ran == 0) {
    std::fprintf(stderr,
                 "usage: nuv_stress [--quick] [messages|allocator|waiters|shared-lock|"
                 "kill-storm]...\n");
    return 2;
  }
  return failed == 0 ? 0 : 1;
}
