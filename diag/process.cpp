/// \file execCmd: running a program to completion.
#include <nuv/assert.h>
#include <nuv/status.h>

#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <ctime>

extern char** environ;  // NOLINT(readability-redundant-declaration): POSIX leaves it undeclared.

namespace {

constexpr int kExecFailedStatus = 127;

}  // namespace

unsigned execCmd(char** argv) {
  const pid_t pid = fork();
  if (pid < 0) {
    return kNuvProcessFailed;
  }
  if (pid == 0) {
    execve(argv[0], argv, environ);
    _exit(kExecFailedStatus);
  }
  int status = 0;
  pid_t reaped = 0;
  do {
    reaped = waitpid(pid, &status, 0);
  } while (reaped < 0 && errno == EINTR);
  if (reaped < 0) {
    return kNuvProcessFailed;
  }
  const unsigned low = static_cast<unsigned>(status) & 0xffffU;
  if ((low & 0x7fU) != 0 || low > 0xffU) {
    return kNuvProcessFailed;
  }
  return kNuvOk;
}
