/// \file Running a piece of a test in a child process, with a deadline and its output captured.
#ifndef NUV_TESTS_SUPPORT_CHILD_PROCESS_H
#define NUV_TESTS_SUPPORT_CHILD_PROCESS_H

#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace nuv::test {

/// How a child ended and what it wrote.
struct ChildOutcome {
  int pid = 0;            // its process id
  int status = 0;         // waitpid status
  bool timedOut = false;  // killed at the deadline
  std::string out;        // standard output
  std::string err;        // standard error

  bool Exited() const;
  int ExitCode() const;
  bool Signalled() const;
  int Signal() const;
};

/// A child process started from a test: it runs body with standard output and error sent to
/// files, no core dumps, and a fatal path that ends the process without waiting, then exits 0.
class ChildProcess {
 public:
  explicit ChildProcess(const std::function<void()>& body);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  int Pid() const { return pidM; }
  /// Waits up to deadline (then kills the child with SIGKILL) and collects its output.
  ChildOutcome Finish(std::chrono::milliseconds deadline = std::chrono::seconds(8));

 private:
  // In this order: the capture files exist before the fork.
  FILE* outM;
  FILE* errM;
  int pidM;
};

/// Forks; the child runs body with standard output and error sent to files, no core dumps, and
/// a fatal path that ends the process without waiting, then exits with 0. The parent waits up
/// to deadline, then kills the child with SIGKILL and reports timedOut.
ChildOutcome RunInChild(const std::function<void()>& body,
                        std::chrono::milliseconds deadline = std::chrono::seconds(8));

/// Starts an independent program (fork + exec, through the tests' emulator when they run under
/// one) with its output captured; the same deadline rule as RunInChild.
ChildOutcome RunProgram(const std::string& program, const std::vector<std::string>& args,
                        std::chrono::milliseconds deadline = std::chrono::seconds(8));

/// RunProgram with the environment env ("NAME=value" strings, possibly none) in place of this
/// process's.
ChildOutcome RunProgramWithEnvironment(
    const std::string& program, const std::vector<std::string>& args,
    const std::vector<std::string>& env,
    std::chrono::milliseconds deadline = std::chrono::seconds(8));

/// Starts an independent program as RunProgram does, without waiting for it: its Finish waits.
std::unique_ptr<ChildProcess> StartProgram(const std::string& program,
                                           const std::vector<std::string>& args);

/// The path of a helper program built beside the tests.
std::string HelperPath(const std::string& name);

/// Waits for pid with a deadline; kills it with SIGKILL when the deadline passes.
ChildOutcome WaitWithDeadline(int pid, std::chrono::milliseconds deadline);

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_CHILD_PROCESS_H
