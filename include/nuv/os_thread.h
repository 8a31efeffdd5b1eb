/// \file NuvOsThread: the process layer of threads (fork, signal dispositions, reaping), real-time
/// scheduling helpers and the names threads show to the system.
#ifndef NUV_OS_THREAD_H
#define NUV_OS_THREAD_H

#include <nuv/fd_set.h>
#include <nuv/time.h>

#include <csetjmp>

class NuvMempool;
class NuvSema;
class NuvThread;

/// One private mapping of the process (a pool block of user "nuv").
/// Layout (checked in thread/layout.cpp): 0 start, 4 end, 8 next; 12 bytes.
struct NuvPrivateMapping {
  unsigned start;
  unsigned end;
  NuvPrivateMapping* next;
};

/// Static operations only: the thread object carries the process id and the channel.
class NuvOsThread {
 public:
  NuvOsThread() = delete;

  /// Wait's result when waitpid failed, and when the time-out ran out first.
  static constexpr int kWaitFailed = -1;
  static constexpr int kWaitTimedOut = -2;

  /// Forks a thread process that runs entry(arg) once startSema (when not null) is posted.
  /// Stores the child's id in pid in both processes. 0, or kNuvProcessFailed when fork failed
  /// ("fork" and the system's message on standard error, nothing left open).
  static int Launch(int (*entry)(long), long arg, bool shared, bool report, const char* name,
                    NuvThread* thread, NuvSema* startSema, int& pid);
  static int GetCurrentId();
  static int GetParentId();
  /// kill with SIGKILL, SIGSTOP and SIGCONT; the result of kill.
  static int Kill(int pid);
  static int Freeze(int pid);
  static int UnFreeze(int pid);
  /// 0 when the process exists; kNuvNotActive when pid is below 1 or kill(pid, 0) fails.
  static unsigned Alive(int pid);
  /// Reaps the child: its wait status, kWaitFailed, or kWaitTimedOut when timeout (1 ms or
  /// more; null or less waits without limit) ran out first, the child then left as it is.
  static int Wait(int pid, NuvTime* timeout);
  /// A thread process's signal dispositions: SIGUSR1, SIGALRM, SIGWINCH, SIGIO and SIGURG
  /// ignored; SIGINT, SIGTERM, SIGCHLD and SIGABRT as they were; every other signal to the
  /// fatal handler.
  static void SetupInterrupts();
  /// For a process that starts threads but is not one: SIGUSR1, SIGALRM, SIGCHLD and SIGWINCH
  /// ignored.
  static void ParentSetup();
  /// Closes this process's end of the thread's command channel, if it asked for one.
  static void CloseCommandChannel(NuvThread* thread);

  /// Locks the process's private mappings into memory; pool holds the temporary list.
  static void LockPrivateData(NuvMempool* pool);
  /// Sets the name that the calling process shows in process listings.
  static void ExternalizeName(const char* name);
  /// The first argument of process pid's command line into buf (which must hold len + 1
  /// characters), or the pid as decimal text when there is none.
  static void GetExternalName(int pid, char* buf, int len);
};

/// The start of a thread process (after fork), given the launch record; ends the process with
/// the entry's result as its exit code.
void LinuxThreadEntry(void* record);
/// The jump buffer of the thread's entry, one per process: a siglongjmp to it ends the thread
/// with exit code 1. The library itself never jumps to it.
extern sigjmp_buf deathState;
/// The fatal path with pseudo-signal -1: a thread that could not start.
void ThreadStarting();
/// SIGALRM handler of NuvOsThread::Wait's time-out.
void WaitHandler(int signal);
/// The one place through which shared threads enter their code: entry(arg).
int NuvThreadEntryHook(int (*entry)(long), long arg);
/// A SIGCHLD handler for applications: reaps one child and, when reportThread is set, says on
/// standard error how a thread ended that did not exit with 0.
void _threadevent_(int signal);
extern int reportThread;

/// The private mappings of the process from /proc/self/maps, in file order, allocated in pool;
/// null when the file cannot be opened or holds none.
NuvPrivateMapping* buildmap(NuvMempool* pool);
/// The kernel route of ExternalizeName; non-zero when the device's kernel took the name.
int newExternalize(const char* name);

#endif  // NUV_OS_THREAD_H
