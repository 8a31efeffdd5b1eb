/// \file Child processes for tests: fork, capture, deadline.
#include "support/child_process.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "thread/restart.h"

namespace nuv::test {

namespace {

std::string ReadAll(FILE* file) {
  std::string text;
  rewind(file);
  char buffer[4096];
  size_t count = 0;
  while ((count = fread(buffer, 1, sizeof buffer, file)) > 0) {
    text.append(buffer, count);
  }
  return text;
}

void PrepareChild(FILE* out, FILE* err) {
  dup2(fileno(out), STDOUT_FILENO);
  dup2(fileno(err), STDERR_FILENO);
  const rlimit noCore{0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
  nuv::SetRestartDelayForTesting(0);
}

// Unwritten stdio buffers would otherwise be written twice, once by each process.
int ForkWithFlushedStreams() {
  fflush(nullptr);
  return fork();
}

std::vector<std::string> SplitOnTabs(const std::string& text) {
  std::vector<std::string> words;
  size_t start = 0;
  while (start < text.size()) {
    const size_t end = text.find('\t', start);
    words.push_back(text.substr(start, end - start));
    start = end == std::string::npos ? text.size() : end + 1;
  }
  return words;
}

// The strings' characters as a null-ended vector, for exec.
std::vector<char*> Pointers(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  pointers.reserve(strings.size() + 1);
  for (std::string& text : strings) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

bool ChildOutcome::Exited() const { return !timedOut && WIFEXITED(status); }
int ChildOutcome::ExitCode() const { return WEXITSTATUS(status); }
bool ChildOutcome::Signalled() const { return !timedOut && WIFSIGNALED(status); }
int ChildOutcome::Signal() const { return WTERMSIG(status); }

ChildOutcome WaitWithDeadline(int pid, std::chrono::milliseconds deadline) {
  ChildOutcome outcome;
  outcome.pid = pid;
  const auto giveUp = std::chrono::steady_clock::now() + deadline;
  const timespec poll{0, 1000000};
  while (waitpid(pid, &outcome.status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > giveUp) {
      kill(pid, SIGKILL);
      waitpid(pid, &outcome.status, 0);
      outcome.timedOut = true;
      break;
    }
    nanosleep(&poll, nullptr);
  }
  return outcome;
}

ChildProcess::ChildProcess(const std::function<void()>& body)
    : outM(tmpfile()), errM(tmpfile()), pidM(ForkWithFlushedStreams()) {
  if (pidM == 0) {
    PrepareChild(outM, errM);
    body();
    fflush(nullptr);
    _exit(0);
  }
}

ChildProcess::~ChildProcess() {
  if (pidM > 0) {
    Finish(std::chrono::milliseconds(0));
  }
  fclose(outM);
  fclose(errM);
}

ChildOutcome ChildProcess::Finish(std::chrono::milliseconds deadline) {
  ChildOutcome outcome = WaitWithDeadline(pidM, deadline);
  pidM = -1;
  outcome.out = ReadAll(outM);
  outcome.err = ReadAll(errM);
  return outcome;
}

ChildOutcome RunInChild(const std::function<void()>& body, std::chrono::milliseconds deadline) {
  return ChildProcess(body).Finish(deadline);
}

namespace {

std::vector<std::string> Environment() {
  std::vector<std::string> env;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    env.emplace_back(*variable);
  }
  return env;
}

// The child runs exec at once: it has its own copy of the vectors by then.
std::unique_ptr<ChildProcess> StartProgramWithEnvironment(const std::string& program,
                                                          const std::vector<std::string>& args,
                                                          const std::vector<std::string>& env) {
  std::vector<std::string> words = SplitOnTabs(NUV_TEST_EMULATOR);
  words.push_back(program);
  words.insert(words.end(), args.begin(), args.end());
  std::vector<std::string> variables = env;
  std::vector<char*> argv = Pointers(words);
  std::vector<char*> envp = Pointers(variables);
  return std::make_unique<ChildProcess>([&argv, &envp] {
    execvpe(argv[0], argv.data(), envp.data());
    _exit(127);
  });
}

}  // namespace

ChildOutcome RunProgram(const std::string& program, const std::vector<std::string>& args,
                        std::chrono::milliseconds deadline) {
  return RunProgramWithEnvironment(program, args, Environment(), deadline);
}

ChildOutcome RunProgramWithEnvironment(const std::string& program,
                                       const std::vector<std::string>& args,
                                       const std::vector<std::string>& env,
                                       std::chrono::milliseconds deadline) {
  return StartProgramWithEnvironment(program, args, env)->Finish(deadline);
}

std::unique_ptr<ChildProcess> StartProgram(const std::string& program,
                                           const std::vector<std::string>& args) {
  return StartProgramWithEnvironment(program, args, Environment());
}

std::string HelperPath(const std::string& name) {
  return std::string(NUV_TEST_HELPER_DIR) + "/" + name;
}

}  // namespace nuv::test
