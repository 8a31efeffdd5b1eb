/// \file NuvThread: the library's thread, one process; NuvThreadGroup, shared by the threads of
/// one family.
#ifndef NUV_THREAD_H
#define NUV_THREAD_H

#include <nuv/current_thread.h>
#include <nuv/fd_set.h>
#include <nuv/lockword.h>
#include <nuv/seed.h>
#include <nuv/time.h>

class NuvSema;
struct NuvMessage;

/// Twelve words, all zero at creation, shared by reference between the threads of a family.
/// The first holds the family's page-fault tracer (a counted reference to a TracingGlobals,
/// <nuv/tracing.h>), the second the lock word that guards it; the other ten are reserved.
/// Layout (checked in thread/layout.cpp): 0 core, 12 tracer, 16 tracer lock word,
/// 20 reserved (10 words); 60 bytes.
class NuvThreadGroup : public NuvCore {
 public:
  static constexpr int kReservedWords = 10;

  /// Made in the pool of the thread that adopts its process (user "nuv").
  NuvThreadGroup();
  /// Drops the tracer's reference.
  ~NuvThreadGroup() override;
  NuvThreadGroup(const NuvThreadGroup&) = delete;
  NuvThreadGroup& operator=(const NuvThreadGroup&) = delete;
  NuvThreadGroup(NuvThreadGroup&&) = delete;
  NuvThreadGroup& operator=(NuvThreadGroup&&) = delete;

  /// The tracer, with no reference added; read it with the tracer lock word held.
  NuvCore* GetTracer() const { return tracerM; }
  /// Replaces the tracer (a reference is taken on the new one, the old one's is dropped); with
  /// the tracer lock word held.
  void SetTracer(NuvCore* tracer);
  volatile NuvLock* TracerLock() { return &tracerLockM; }

 private:
  friend struct NuvThreadLayout;
  NuvCore* tracerM = nullptr;
  volatile NuvLock tracerLockM = 0;
  unsigned reservedM[kReservedWords] = {};
};

/// A library thread: a pool object that stands for one process. The parent that started it and
/// the thread itself see the same object through their shared pool.
/// Layout (checked in thread/layout.cpp): 0 core, 12 and 16 references, 20 task serials, 24 group,
/// 28 name (32), 60 state lock word, 64 state, 68 process id, 72 queue id, 76 exit status,
/// 80 command-channel word, 84 read and 88 write descriptor, 92 entry, 96 hold semaphore,
/// 100 exit semaphore, 104 block semaphore, 108 preserved descriptors (132), 240 child count,
/// 244 child-count lock word, 248 children semaphore, 252 parent, 256 real-time class;
/// 260 bytes.
class NuvThread : public NuvCore {
 public:
  /// Real-time classes; each maps to a scheduling level of the process (docs/design.md).
  enum rtPri { standard = 0, viewer = 1, pipeline = 2, groupmaster = 3, switcher = 4 };

  /// State bits.
  static constexpr unsigned kRunning = 1;
  static constexpr unsigned kDead = 2;
  static constexpr unsigned kReport = 4;
  /// Message queues of threads are numbered process id + kQueueIdBase.
  static constexpr int kQueueIdBase = 0x60000000;
  static constexpr int kQueueDepth = 10;
  static constexpr int kNameLength = 32;
  /// Microseconds of a tick of Sleep: one sixtieth of a second.
  static constexpr unsigned kTickMicroseconds = 16666;

  /// A thread to be started with Start or StartUnshared; its parent is the current thread.
  NuvThread(int (*entry)(long), const char* name);
  /// Adopts the calling process: running, its process id, its queue, a new group, no parent.
  explicit NuvThread(const char* name);
  /// Waits until every thread that this one started is gone, then reaps this thread's process
  /// (when it is another process and this thread has a parent) and releases what it owns.
  ~NuvThread() override;
  NuvThread(const NuvThread&) = delete;
  NuvThread& operator=(const NuvThread&) = delete;
  NuvThread(NuvThread&&) = delete;
  NuvThread& operator=(NuvThread&&) = delete;

  /// The part of both constructors: name, children semaphore, descriptors 0 to 2 preserved.
  void CommonInit(const char* name);

  /// Starts a shared thread (all pools and descriptors of this process); 0 or the result of
  /// NuvOsThread::Launch. A thread starts once: a second Start stops at assertion 237 of
  /// "Start".
  unsigned Start(long arg);
  /// Starts an unshared thread: it closes descriptors 3 to 29 that are not preserved, detaches
  /// every pool and runs in a pool of its own (poolName, poolSize) at the alternate address.
  unsigned StartUnshared(long arg, const char* poolName, unsigned poolSize);
  /// Makes and starts an unshared thread in one call (pool size 0 means 1024); stores its
  /// process id in *pid when pid is not null. Returns 0 whatever the start gave, or the error
  /// of the temporary pool made when no thread is current.
  static unsigned BackgroundThread(int (*entry)(long), long arg, const char* name,
                                   unsigned poolSize, int* pid);
  /// The functions that NuvOsThread::Launch runs in the child.
  static int SharedEntry(long arg);
  static int UnsharedEntry(long arg);

  /// Waits until the thread is dead; returns the exit status (always 0: the entry's result
  /// reaches the parent as the process's exit code, NuvOsThread::Wait). A thread never started
  /// stops at assertion 560 of "Join".
  int Join();
  /// Marks the thread dead and wakes its joiner.
  void Dead();
  /// Keeps the next started thread waiting before its entry until ReleaseRun.
  void HoldRun();
  void ReleaseRun();

  const char* GetName() const { return nameM; }
  /// Copies at most 31 characters.
  void SetName(const char* name);
  /// Sleeps ticks sixtieths of a second; a negative count returns at once.
  static void Sleep(int ticks);

  int GetId() const { return pidM; }
  int GetQueueId() const { return queueIdM; }
  unsigned GetState() const { return stateM; }
  int GetExitStatus() const { return exitStatusM; }
  NuvThreadGroup* PThreadGroup() const { return groupM; }
  /// The parent with a reference added for the caller, or null.
  NuvThread* PParent() const;
  /// Forgets the parent.
  void Emancipate() { parentM = nullptr; }
  int GetChildCount() const { return childCountM; }
  /// The serial for the next task this thread creates (0 first).
  unsigned NextTaskSerial() { return taskSerialM++; }
  /// Sets the report bit (passed to NuvOsThread::Launch).
  void traceStatus();
  bool FReport() const { return (stateM & kReport) != 0; }

  /// Asks for a command channel (a pipe from parent to child) at the next start.
  void OpenCommandChannel() { commandChannelM = 1; }
  int isOpenCommandChannel() const { return commandChannelM; }
  /// This process's end of the channel: the read end in the thread's own process, the write end
  /// in the process that started it; -1 elsewhere and when there is none.
  int GetCommandChannelReadFd() const;
  int GetCommandChannelWriteFd() const;
  void SetPreserveFds(const NuvFdSet& fds) { preserveM = fds; }
  void GetPreserveFds(NuvFdSet& fds) const { fds = preserveM; }

  /// Applies the real-time class to the thread's process and records it.
  void SetRTPriority(rtPri pri);
  /// SetRTPriority on the current thread.
  static void MakeRTThread(rtPri pri);
  rtPri GetRtPriority() const { return rtPriM; }

  /// Sleeps until another process calls unblock on this thread, releasing held (may be null)
  /// with going to sleep; results as NuvSema::psema. -1 at once (held released) for a thread
  /// that is not running.
  int block(volatile NuvLock* held, NuvTime* timeout);
  /// Wakes the thread in block, or lets its next block return at once. Before the first block
  /// stops at assertion 617 of "unblock".
  void unblock();

  /// The messenger operations of the thread's own queue (NuvMessengerResult codes).
  unsigned isend(NuvMessage& message, char flag, NuvTime* timeout);
  unsigned inext(NuvMessage& message, char noWait, NuvTime* timeout);
  unsigned SendMessage(NuvMessage& message, NuvTime* timeout);
  unsigned NextMessage(NuvMessage& message, NuvTime* timeout);
  void FlushMessageQueue();

  /// Fills out[0..count) with return addresses of the calling process's stack, skipping the
  /// first skip frames after the caller's; slots past the outermost frame are 0.
  static void GetBacktrace(int skip, int count, void** out);
  /// Ends the calling process through the fatal path with pseudo-signal 0 (uses no object state).
  void abort();

 private:
  friend struct NuvThreadLayout;
  friend class NuvOsThread;

  void AddChild();
  void RemoveFromParent();
  void WaitForChildren();
  void ReleaseOwned();

  NuvCore* referencesM[2] = {};
  unsigned taskSerialM = 0;
  NuvThreadGroup* groupM = nullptr;
  char nameM[kNameLength] = {};
  volatile NuvLock stateLockM = 0;
  unsigned stateM = 0;
  int pidM = 0;
  int queueIdM = 0;
  int exitStatusM = 0;
  int commandChannelM = 0;
  int readFdM = -1;
  int writeFdM = -1;
  int (*entryM)(long) = nullptr;
  NuvSema* holdM = nullptr;
  NuvSema* exitM = nullptr;
  NuvSema* blockM = nullptr;
  NuvFdSet preserveM;
  int childCountM = 0;
  volatile NuvLock childLockM = 0;
  NuvSema* childrenM = nullptr;
  NuvThread* parentM = nullptr;
  rtPri rtPriM = standard;
};

/// The thread that this process runs; null in a process that no library thread adopted, and
/// then the fatal report names the process by its pid.
extern NuvThread* pCurrentThreadG;

/// Sends SIGQUIT to the thread's process, which (with the fatal handler installed) reports
/// itself and restarts the device.
void _killthread_(NuvThread* thread);

#endif  // NUV_THREAD_H
