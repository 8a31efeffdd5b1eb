/// \file NuvThread: construction, names and accessors; NuvThreadGroup; the ways into the fatal
/// path from code.
#include <nuv/fatal.h>
#include <nuv/messenger.h>
#include <nuv/semaphore.h>
#include <nuv/thread.h>

#include <pthread.h>
#include <unistd.h>
#include <csignal>
#include <cstring>

#include "core/current_thread.h"
#include "core/kernel.h"

NuvThread* pCurrentThreadG = nullptr;

namespace {

int CurrentThreadId() { return pCurrentThreadG != nullptr ? pCurrentThreadG->GetId() : 0; }

// A process forked by other means than a thread's launch runs no library thread: it must not
// wait, or report, under its parent's thread. The launch sets its child's thread after the fork.
void ForgetCurrentThread() { pCurrentThreadG = nullptr; }

bool InstallThreadIdSource() noexcept {
  nuv::SetCurrentThreadIdSource(CurrentThreadId);
  return pthread_atfork(nullptr, nullptr, ForgetCurrentThread) == 0;
}

// Waits queue the current thread's id from the moment the thread layer is part of the program.
const bool threadIdSourceInstalled = InstallThreadIdSource();

constexpr int kStandardDescriptors = 3;

}  // namespace

NuvThreadGroup::NuvThreadGroup() : NuvCore(NuvMempool::nuv) {}

NuvThreadGroup::~NuvThreadGroup() {
  if (tracerM != nullptr) {
    tracerM->DownRef();
  }
}

void NuvThreadGroup::SetTracer(NuvCore* tracer) {
  if (tracer != nullptr) {
    tracer->UpRef();
  }
  if (tracerM != nullptr) {
    tracerM->DownRef();
  }
  tracerM = tracer;
}

NuvThread::NuvThread(int (*entry)(long), const char* name)
    : NuvCore(NuvMempool::nuv), entryM(entry), parentM(pCurrentThreadG) {
  CommonInit(name);
}

NuvThread::NuvThread(const char* name)
    : NuvCore(NuvMempool::nuv),
      groupM(new (GetPool()) NuvThreadGroup),
      stateM(kRunning),
      pidM(getpid()),
      queueIdM(pidM + kQueueIdBase) {
  CommonInit(name);
  // A second adoption of the process in this pool shares the queue that the first one made.
  GetPool()->GetMessenger()->CreateNamedQueue(queueIdM, kQueueDepth);
  groupM->UpRef();
}

void NuvThread::CommonInit(const char* name) {
  (void)threadIdSourceInstalled;
  SetName(name);
  holdM = nullptr;
  exitM = nullptr;
  blockM = nullptr;
  exitStatusM = 0;
  childrenM = new (GetPool()) NuvSema(NuvMempool::nuv);
  childrenM->init(0, false);
  childCountM = 0;
  commandChannelM = 0;
  preserveM.Zero();
  for (int fd = 0; fd < kStandardDescriptors; ++fd) {
    preserveM.Set(fd);
  }
  rtPriM = standard;
}

void NuvThread::SetName(const char* name) {
  strncpy(nameM, name, kNameLength);
  nameM[kNameLength - 1] = '\0';
}

// A negative count does not sleep: converted to useconds_t it would ask for over an hour.
void NuvThread::Sleep(int ticks) {
  if (ticks < 0) {
    return;
  }
  // An interrupted sleep ends early, as it always has.
  nuv::kernel::Ignore(
      nuv::kernel::Make(
          nuv::kernel::Call{"usleep", -1, 0, false},
          [ticks] { return usleep(static_cast<useconds_t>(ticks) * kTickMicroseconds); }),
      "a signal ends the sleep early");
}

NuvThread* NuvThread::PParent() const {
  if (parentM != nullptr) {
    parentM->UpRef();
  }
  return parentM;
}

void NuvThread::traceStatus() { stateM |= kReport; }

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): a member by contract.
void NuvThread::abort() { _stray_(0, nullptr); }

// A thread that is already gone cannot report: nothing to do.
void _killthread_(NuvThread* thread) {
  const int pid = thread->GetId();
  nuv::kernel::Ignore(nuv::kernel::Make(nuv::kernel::Call{"kill", -1, ESRCH, false},
                                        [pid] { return kill(pid, SIGQUIT); }),
                      "a thread already gone has nothing to report");
}
