/// \file The shared format of thread objects, their groups and mapping records, checked at
/// compile time: the process that starts a thread and the thread itself read the same object.
#include <nuv/os_thread.h>
#include <nuv/thread.h>

#include <cstddef>

// Thread objects derive from NuvCore, which makes them formally non-standard-layout; the offsets
// below are exactly what these checks are there to pin down.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
struct NuvThreadLayout {
  static_assert(sizeof(NuvThreadGroup) == 60, "group: core and twelve words");
  static_assert(offsetof(NuvThreadGroup, tracerM) == 12, "group tracer");
  static_assert(offsetof(NuvThreadGroup, tracerLockM) == 16, "group tracer lock word");
  static_assert(offsetof(NuvThreadGroup, reservedM) == 20, "group reserved words");

  static_assert(sizeof(NuvThread) == 260, "thread object");
  static_assert(offsetof(NuvThread, referencesM) == 12, "thread references");
  static_assert(offsetof(NuvThread, taskSerialM) == 20, "thread task serial counter");
  static_assert(offsetof(NuvThread, groupM) == 24, "thread group");
  static_assert(offsetof(NuvThread, nameM) == 28, "thread name");
  static_assert(offsetof(NuvThread, stateLockM) == 60, "thread state lock word");
  static_assert(offsetof(NuvThread, stateM) == 64, "thread state");
  static_assert(offsetof(NuvThread, pidM) == 68, "thread process id");
  static_assert(offsetof(NuvThread, queueIdM) == 72, "thread queue id");
  static_assert(offsetof(NuvThread, exitStatusM) == 76, "thread exit status");
  static_assert(offsetof(NuvThread, commandChannelM) == 80, "thread command-channel word");
  static_assert(offsetof(NuvThread, readFdM) == 84, "thread channel read end");
  static_assert(offsetof(NuvThread, writeFdM) == 88, "thread channel write end");
  static_assert(offsetof(NuvThread, entryM) == 92, "thread entry");
  static_assert(offsetof(NuvThread, holdM) == 96, "thread hold semaphore");
  static_assert(offsetof(NuvThread, exitM) == 100, "thread exit semaphore");
  static_assert(offsetof(NuvThread, blockM) == 104, "thread block semaphore");
  static_assert(offsetof(NuvThread, preserveM) == 108, "thread preserved descriptors");
  static_assert(offsetof(NuvThread, childCountM) == 240, "thread child count");
  static_assert(offsetof(NuvThread, childLockM) == 244, "thread child-count lock word");
  static_assert(offsetof(NuvThread, childrenM) == 248, "thread children semaphore");
  static_assert(offsetof(NuvThread, parentM) == 252, "thread parent");
  static_assert(offsetof(NuvThread, rtPriM) == 256, "thread real-time class");
  static_assert(sizeof(NuvThread::rtPri) == 4, "real-time class: one word");

  static_assert(sizeof(NuvPrivateMapping) == 12, "private mapping record");
  static_assert(offsetof(NuvPrivateMapping, start) == 0, "mapping start");
  static_assert(offsetof(NuvPrivateMapping, end) == 4, "mapping end");
  static_assert(offsetof(NuvPrivateMapping, next) == 8, "mapping next");
};
#pragma GCC diagnostic pop
