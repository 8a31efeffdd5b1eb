/// \file NuvOsThread: forking a thread process, its start in the child, and the plain process
/// operations.
#include <nuv/fatal.h>
#include <nuv/mempool.h>
#include <nuv/os_thread.h>
#include <nuv/semaphore.h>
#include <nuv/status.h>
#include <nuv/thread.h>

#include <unistd.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/assert_at.h"
#include "core/kernel.h"
#include "core/signals.h"
#include "thread/command_channel.h"
#include "thread/launch.h"

sigjmp_buf deathState;

namespace {

nuv::LaunchRecord launchRecord{};

constexpr int kFirstClosedFd = 3;
constexpr int kLastClosedFd = 29;

constexpr nuv::kernel::Call kFork{"fork", -1, 0, false};
constexpr nuv::kernel::Call kPipe{"pipe", -1, 0, false};
constexpr nuv::kernel::Call kKill{"kill", -1, 0, false};

void CloseQuietly(int fd, const char* reason) {
  nuv::kernel::Ignore(nuv::kernel::Close(fd), reason);
}

void FillLaunchRecord(int (*entry)(long), long arg, bool shared, bool report, const char* name,
                      const NuvThread* thread, NuvSema* startSema) {
  launchRecord.entry = entry;
  launchRecord.arg = arg;
  launchRecord.shared = shared ? 1 : 0;
  launchRecord.report = report ? 1 : 0;
  launchRecord.startSema = startSema;
  if (thread != nullptr) {
    thread->GetPreserveFds(launchRecord.preserve);
  } else {
    launchRecord.preserve.Zero();
  }
  strncpy(launchRecord.name, name, sizeof launchRecord.name);
  launchRecord.name[sizeof launchRecord.name - 1] = '\0';
}

// In the child, right after the fork: it keeps the read end, its parent the write end.
void TakeChildEnd(NuvThread* thread, const int (&channel)[2]) {
  CloseQuietly(channel[1], "the child's copy of the parent's end is not used");
  nuv::channel::ForgetAllBut(thread);
  nuv::channel::Remember(thread, channel[0], -1);
}

void TakeParentEnd(NuvThread* thread, const int (&channel)[2]) {
  // The parent's copy of the read end stays open, unrecorded, as the device's threads expect.
  nuv::channel::Remember(thread, -1, channel[1]);
}

void TakeStartSemaphore(NuvSema* startSema) {
  if (startSema != nullptr) {
    startSema->psema(nullptr);
    startSema->DeleteThis();
  }
}

// Only the first word of the preserved set counts: 30 and above are never closed.
void CloseUnpreservedFds(const NuvFdSet& preserve) {
  for (int fd = kFirstClosedFd; fd <= kLastClosedFd; ++fd) {
    if ((preserve.Word(0) & (1U << static_cast<unsigned>(fd))) == 0) {
      CloseQuietly(fd, "most of these descriptors are not open");
    }
  }
}

void IgnoreChildExits() {
  sigset_t none;
  sigemptyset(&none);
  nuv::kernel::Ignore(nuv::signals::Install(SIGCHLD, SIG_IGN, none, 0, nullptr),
                      "a valid signal and action");
}

}  // namespace

const nuv::LaunchRecord& nuv::CurrentLaunchRecord() { return launchRecord; }

int NuvOsThread::Launch(int (*entry)(long), long arg, bool shared, bool report, const char* name,
                        NuvThread* thread, NuvSema* startSema, int& pid) {
  const bool channelWanted = thread != nullptr && thread->isOpenCommandChannel() > 0;
  FillLaunchRecord(entry, arg, shared, report, name, thread, startSema);
  int channel[2] = {-1, -1};
  if (channelWanted && nuv::kernel::Make(kPipe, [&channel] { return pipe(channel); }).Failed()) {
    perror("pipe");
    return static_cast<int>(kNuvProcessFailed);
  }
  // Output still buffered here would be written a second time by the child's exit.
  fflush(nullptr);
  const nuv::kernel::Result forked = nuv::kernel::Make(kFork, [] { return fork(); });
  if (forked.Failed()) {
    perror("fork");
    if (channelWanted) {
      CloseQuietly(channel[0], "nothing is left open after a failed start");
      CloseQuietly(channel[1], "nothing is left open after a failed start");
    }
    return static_cast<int>(kNuvProcessFailed);
  }
  if (forked.value == 0) {
    pCurrentThreadG = thread;
    pid = getpid();
    if (channelWanted) {
      TakeChildEnd(thread, channel);
      thread->readFdM = channel[0];
    }
    LinuxThreadEntry(&launchRecord);
    NUV_ASSERT_AT(false, 762, "Launch");
  }
  if (channelWanted) {
    TakeParentEnd(thread, channel);
    thread->writeFdM = channel[1];
  }
  pid = static_cast<int>(forked.value);
  return 0;
}

void LinuxThreadEntry(void* record) {
  const auto& launch = *static_cast<const nuv::LaunchRecord*>(record);
  TakeStartSemaphore(launch.startSema);
  NuvOsThread::ExternalizeName(launch.name);
  if (launch.shared == 0) {
    CloseUnpreservedFds(launch.preserve);
  }
  NuvMempool::ActivateMempoolLocal();
  NuvOsThread::SetupInterrupts();
  IgnoreChildExits();
  NuvThread::MakeRTThread(NuvThread::standard);
  // NOLINTNEXTLINE(cert-err52-cpp): the thread's way out is a jump, by design.
  if (sigsetjmp(deathState, 0) == 0) {
    exit(launch.entry(launch.arg));
  }
  exit(1);
}

int NuvOsThread::GetCurrentId() { return getpid(); }

int NuvOsThread::GetParentId() { return getppid(); }

int NuvOsThread::Kill(int pid) {
  return static_cast<int>(nuv::kernel::Make(kKill, [pid] { return kill(pid, SIGKILL); }).value);
}

int NuvOsThread::Freeze(int pid) {
  return static_cast<int>(nuv::kernel::Make(kKill, [pid] { return kill(pid, SIGSTOP); }).value);
}

int NuvOsThread::UnFreeze(int pid) {
  return static_cast<int>(nuv::kernel::Make(kKill, [pid] { return kill(pid, SIGCONT); }).value);
}

// Every failure of the probe, a refused permission included, counts as no such process.
unsigned NuvOsThread::Alive(int pid) {
  if (pid < 1) {
    return kNuvNotActive;
  }
  return nuv::kernel::Make(kKill, [pid] { return kill(pid, 0); }).Failed() ? kNuvNotActive : kNuvOk;
}

int NuvThreadEntryHook(int (*entry)(long), long arg) { return entry(arg); }

void ThreadStarting() { _stray_(-1, nullptr); }
