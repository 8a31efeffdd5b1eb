/// \file execCmd: running a program to completion.
#include <nuv/assert.h>
#include <nuv/status.h>

#include <sys/wait.h>
#include <unistd.h>

#include "core/kernel.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): POSIX leaves it undeclared.

namespace {

constexpr int kExecFailedStatus = 127;

constexpr nuv::kernel::Call kFork{"fork", -1, 0, false};
constexpr nuv::kernel::Call kExecve{"execve", -1, 0, false};
// A signal that interrupts the wait does not end it.
constexpr nuv::kernel::Call kWaitpid{"waitpid", -1, 0, true};

}  // namespace

unsigned execCmd(char** argv) {
  const nuv::kernel::Result forked = nuv::kernel::Make(kFork, [] { return fork(); });
  if (forked.Failed()) {
    return kNuvProcessFailed;
  }
  const auto pid = static_cast<pid_t>(forked.value);
  if (pid == 0) {
    nuv::kernel::Ignore(
        nuv::kernel::Make(kExecve, [argv] { return execve(argv[0], argv, environ); }),
        "the exit status 127 tells the parent");
    _exit(kExecFailedStatus);
  }
  int status = 0;
  if (nuv::kernel::Make(kWaitpid, [pid, &status] { return waitpid(pid, &status, 0); }).Failed()) {
    return kNuvProcessFailed;
  }
  const unsigned low = static_cast<unsigned>(status) & 0xffffU;
  if ((low & 0x7fU) != 0 || low > 0xffU) {
    return kNuvProcessFailed;
  }
  return kNuvOk;
}
