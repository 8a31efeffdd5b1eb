/// \file Example: two processes map one named pool at one address and count under its lock word.
#include <nuv/assert.h>
#include <nuv/lockword.h>
#include <nuv/logger.h>
#include <nuv/os_mempool.h>
#include <nuv/status.h>

#include <sys/wait.h>
#include <unistd.h>
#include <cstdlib>
#include <string>

namespace {

constexpr const char* kPoolName = "pool_share";
constexpr const char* kTag = "pool_share";
constexpr unsigned kRounds = 5;

// What the two processes share, at the start of the pool.
struct Shared {
  NuvLock lock;
  unsigned counter;
};

// Logged while the lock is held, so that the lines come out in counter order.
void Count(Shared* shared, const char* who) {
  for (unsigned round = 0; round < kRounds; ++round) {
    upsleeplock(&shared->lock);
    ++shared->counter;
    NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kTag, "%s took the lock: counter %u", who,
                   shared->counter);
    upunlock(&shared->lock);
    yield();  // the other process's turn
  }
}

// The second process knows the pool only by its name: Attach finds the address in the file.
int RunAttacher(int readyFd) {
  // A forked child starts over with the log connection: keep it on standard output.
  NuvLogger::LogTty(true);
  char ready = 0;
  if (read(readyFd, &ready, 1) != 1) {
    return EXIT_FAILURE;
  }
  char* base = nullptr;
  unsigned length = 0;
  int fd = -1;
  const unsigned result = NuvOsMempool::Attach(kPoolName, base, length, fd);
  if (result != kNuvOk) {
    NuvLogger::Log(NuvLogger::facnuv, NuvLogger::prierr, kTag, "attach failed: %s",
                   NuvStatusText(result));
    return EXIT_FAILURE;
  }
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kTag, "attacher %d: pool at %p", getpid(),
                 static_cast<void*>(base));
  Count(reinterpret_cast<Shared*>(base), "attacher");
  NuvOsMempool::Free(base, length, fd);
  return EXIT_SUCCESS;
}

bool AttacherSucceeded(pid_t attacher) {
  int status = 0;
  return waitpid(attacher, &status, 0) == attacher && WIFEXITED(status) &&
         WEXITSTATUS(status) == EXIT_SUCCESS;
}

// A new pool's bytes are not ours to trust: lay out the shared fields before anyone uses them.
Shared* LayOut(char* base) {
  auto* shared = reinterpret_cast<Shared*>(base);
  shared->lock = 0;
  shared->counter = 0;
  return shared;
}

bool CounterIsRight(const Shared* shared) {
  const bool right = shared->counter == 2 * kRounds;
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kTag, "counter %u, expected %u: %s",
                 shared->counter, 2 * kRounds, right ? "right" : "wrong");
  return right;
}

int RunCreator(pid_t attacher, int readyFd) {
  char* base = nullptr;
  unsigned length = 0;
  int fd = -1;
  const unsigned result =
      NuvOsMempool::Allocate(kPoolName, sizeof(Shared), true, base, length, fd, true);
  if (result != kNuvOk) {
    NuvLogger::Log(NuvLogger::facnuv, NuvLogger::prierr, kTag, "allocate failed: %s",
                   NuvStatusText(result));
    close(readyFd);  // the attacher reads end-of-file and gives up
    AttacherSucceeded(attacher);
    return EXIT_FAILURE;
  }
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kTag, "creator %d: pool at %p", getpid(),
                 static_cast<void*>(base));
  Shared* shared = LayOut(base);
  write(readyFd, "y", 1);
  Count(shared, "creator");
  const bool right = AttacherSucceeded(attacher) && CounterIsRight(shared);
  NuvOsMempool::Free(base, length, fd);
  NuvOsMempool::Clean(kPoolName);
  return right ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main() {
  if (getenv("NUV_POOL_PREFIX") == nullptr) {
    setenv("NUV_POOL_PREFIX", ("nuv_example_" + std::to_string(getpid()) + "_").c_str(), 1);
  }
  NuvLogger::LogTty(true);
  // Forked before the pool exists, so the second process inherits no mapping of it.
  int ready[2];
  if (pipe(ready) != 0) {
    return EXIT_FAILURE;
  }
  const pid_t attacher = fork();
  if (attacher < 0) {
    return EXIT_FAILURE;
  }
  if (attacher == 0) {
    close(ready[1]);
    _exit(RunAttacher(ready[0]));
  }
  close(ready[0]);
  return RunCreator(attacher, ready[1]);
}
