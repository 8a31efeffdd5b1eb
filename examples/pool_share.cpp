/// \file Example: two processes share a named pool; one registers a counted object in it by id,
/// both count under the object's lock word, and the other finds the object and releases it.
#include <nuv/assert.h>
#include <nuv/lockword.h>
#include <nuv/logger.h>
#include <nuv/mempool.h>
#include <nuv/registry.h>
#include <nuv/seed.h>
#include <nuv/status.h>

#include <sys/wait.h>
#include <unistd.h>
#include <cstdlib>

#include "examples/example_main.h"

namespace {

constexpr const char* kPoolName = "pool_share";
constexpr const char* kTag = "pool_share";
constexpr unsigned kPoolSize = 64 * 1024;
constexpr int kTallyId = 1;
constexpr unsigned kRounds = 5;

// The shared object: a counter and the lock word that guards it, both inside the pool.
class Tally : public NuvCore {
 public:
  Tally() : NuvCore(NuvMempool::catalog) {}

  // Logged while the lock is held, so that the lines come out in counter order.
  void Count(const char* who) {
    for (unsigned round = 0; round < kRounds; ++round) {
      upsleeplock(&lockM);
      ++counterM;
      NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kTag, "%s took the lock: counter %u",
                     who, counterM);
      upunlock(&lockM);
      yield();  // the other process's turn
    }
  }
  unsigned Counter() const { return counterM; }

 private:
  volatile NuvLock lockM = 0;
  unsigned counterM = 0;
};

void LogFailure(const char* what, unsigned result) {
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::prierr, kTag, "%s failed: %s", what,
                 NuvStatusText(result));
}

// Forked from this same program, the attacher has the creator's virtual tables at the same
// addresses, so it may use the counted object like any other (an independently started program
// could only read its fields).
bool CountAndRelease(NuvMempool* pool) {
  // The registry hands back seeds, and a seed has no virtual functions to check a cast with.
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-static-cast-downcast): the id names a Tally
  ref<Tally> tally(static_cast<Tally*>(pool->GetRegistry()->FindItem(kTallyId)));
  if (!tally) {
    return false;
  }
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kTag, "attacher %d: tally %d at %p",
                 getpid(), kTallyId, static_cast<void*>(tally.get()));
  tally->Count("attacher");
  pool->GetRegistry()->RemoveItem(kTallyId);  // drops the registry's reference
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kTag,
                 "attacher: tally removed, %u references left", tally->GetRefCount());
  return true;  // our reference goes with the ref; the creator's keeps the tally alive
}

// The second process knows the pool only by its name: Attach finds the address in the file.
int RunAttacher(int readyFd) {
  // A forked child starts over with the log connection: keep it on standard output.
  NuvLogger::LogTty(true);
  char ready = 0;
  if (read(readyFd, &ready, 1) != 1) {
    return EXIT_FAILURE;
  }
  NuvMempool* pool = nullptr;
  const unsigned result = NuvMempool::Attach(kPoolName, pool);
  if (result != kNuvOk) {
    LogFailure("attach", result);
    return EXIT_FAILURE;
  }
  const bool counted = CountAndRelease(pool);
  delete pool;  // detaches; the pool file stays
  return counted ? EXIT_SUCCESS : EXIT_FAILURE;
}

bool AttacherSucceeded(pid_t attacher) {
  int status = 0;
  return waitpid(attacher, &status, 0) == attacher && WIFEXITED(status) &&
         WEXITSTATUS(status) == EXIT_SUCCESS;
}

bool IsRight(const Tally& tally, NuvMempoolRegistry* registry) {
  const bool right = tally.Counter() == 2 * kRounds && registry->FindItem(kTallyId) == nullptr;
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kTag,
                 "counter %u, expected %u, tally %s: %s", tally.Counter(), 2 * kRounds,
                 right ? "released" : "still registered", right ? "right" : "wrong");
  return right;
}

// Registers the tally, counts beside the attacher, and checks what both left behind.
bool ShareTally(NuvMempool* pool, pid_t attacher, int readyFd) {
  const ref<Tally> tally(new (pool) Tally());
  pool->GetRegistry()->AddItem(kTallyId, tally.get());
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kTag, "creator %d: tally %d at %p",
                 getpid(), kTallyId, static_cast<void*>(tally.get()));
  write(readyFd, "y", 1);
  tally->Count("creator");
  return AttacherSucceeded(attacher) && IsRight(*tally, pool->GetRegistry());
}  // the last reference goes: the tally deletes itself

int RunCreator(pid_t attacher, int readyFd) {
  NuvMempool* pool = nullptr;
  const unsigned result = NuvMempool::Allocate(kPoolName, kPoolSize, true, nullptr, true, pool);
  if (result != kNuvOk) {
    LogFailure("allocate", result);
    close(readyFd);  // the attacher reads end-of-file and gives up
    AttacherSucceeded(attacher);
    return EXIT_FAILURE;
  }
  const bool right = ShareTally(pool, attacher, readyFd);
  pool->DumpArena(false);
  pool->DumpHighWater();
  delete pool;
  NuvMempool::Clean(kPoolName);
  return right ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main() {
  example::StartExample();
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
