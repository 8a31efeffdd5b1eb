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

}  // namespace

bool ChildOutcome::Exited() const { return !timedOut && WIFEXITED(status); }
int ChildOutcome::ExitCode() const { return WEXITSTATUS(status); }
bool ChildOutcome::Signalled() const { return !timedOut && WIFSIGNALED(status); }
int ChildOutcome::Signal() const { return WTERMSIG(status); }

ChildOutcome WaitWithDeadline(int pid, std::chrono::milliseconds deadline) {
  ChildOutcome outcome;
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

ChildOutcome RunProgram(const std::string& program, const std::vector<std::string>& args,
                        std::chrono::milliseconds deadline) {
  std::vector<std::string> words = SplitOnTabs(NUV_TEST_EMULATOR);
  words.push_back(program);
  words.insert(words.end(), args.begin(), args.end());
  std::vector<char*> argv;
  argv.reserve(words.size() + 1);
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  return ChildProcess([&argv] {
           execvp(argv[0], argv.data());
           _exit(127);
         })
      .Finish(deadline);
}

std::string HelperPath(const std::string& name) {
  return std::string(NUV_TEST_HELPER_DIR) + "/" + name;
}

}  // namespace nuv::test
