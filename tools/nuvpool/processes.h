/// \file Which processes hold a pool file, read from the kernel's table of file locks, and which
/// of the processes that a pool names are still alive. Nothing here takes a lock.
#ifndef NUV_TOOLS_NUVPOOL_PROCESSES_H
#define NUV_TOOLS_NUVPOOL_PROCESSES_H

#include "pool_model.h"

#include <sys/types.h>

#include <set>
#include <vector>

namespace nuvpool {

/// What is known of the processes around one pool.
struct Processes {
  std::vector<int> attached;  // holders of a flock on the pool file, as the kernel lists them
  std::set<int> alive;        // the processes among those named anywhere that still run

  bool Alive(int pid) const { return alive.count(pid) != 0; }
  /// True when some process holds the file: the pool is active.
  bool Active() const { return !attached.empty(); }
  /// True when an attached process still runs and could release a lock word.
  bool AnyAttachedAlive() const;
};

/// The processes that hold a flock on the file with this device and inode ("/proc/locks").
std::vector<int> FlockHolders(dev_t device, ino_t inode);
/// True when pid names a process that runs (a zombie does not).
bool ProcessAlive(int pid);
/// The attached processes of the file and the liveness of every process that model names.
Processes LookAtProcesses(const PoolModel& model, dev_t device, ino_t inode);

}  // namespace nuvpool

#endif  // NUV_TOOLS_NUVPOOL_PROCESSES_H
