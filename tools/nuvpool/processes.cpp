/// \file "/proc/locks" and "/proc/<pid>/stat".
#include "processes.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

namespace nuvpool {

namespace {

// One line of "/proc/locks": "3: FLOCK  ADVISORY  READ  1234 08:02:131 0 EOF". A line with "->"
// after the number is a process waiting for the lock, which it does not hold yet.
// Gives the holder's process id, or 0 for a line of another file or another kind of lock.
int HolderOf(const std::string& line, dev_t device, ino_t inode) {
  std::istringstream fields(line);
  std::string number;
  std::string kind;
  std::string mode;
  std::string access;
  std::string file;
  int pid = 0;
  fields >> number >> kind;
  if (kind != "FLOCK" || !(fields >> mode >> access >> pid >> file)) {
    return 0;
  }
  unsigned fileMajor = 0;
  unsigned fileMinor = 0;
  unsigned long long node = 0;
  if (std::sscanf(file.c_str(), "%x:%x:%llu", &fileMajor, &fileMinor, &node) != 3) {
    return 0;
  }
  const bool same = fileMajor == major(device) && fileMinor == minor(device) && node == inode;
  return same ? pid : 0;
}

}  // namespace

bool Processes::AnyAttachedAlive() const {
  return std::any_of(attached.begin(), attached.end(), [this](int pid) { return Alive(pid); });
}

std::vector<int> FlockHolders(dev_t device, ino_t inode) {
  std::vector<int> holders;
  std::ifstream locks("/proc/locks");
  std::string line;
  while (std::getline(locks, line)) {
    const int pid = HolderOf(line, device, inode);
    if (pid > 0 && std::find(holders.begin(), holders.end(), pid) == holders.end()) {
      holders.push_back(pid);
    }
  }
  std::sort(holders.begin(), holders.end());
  return holders;
}

bool ProcessAlive(int pid) {
  if (pid <= 0) {
    return false;
  }
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  std::getline(stat, text);
  // The state follows the command name, which is in parentheses and may hold anything.
  const std::size_t close = text.rfind(')');
  if (close == std::string::npos || close + 2 >= text.size()) {
    return false;
  }
  const char state = text[close + 2];
  return state != 'Z' && state != 'X';
}

Processes LookAtProcesses(const PoolModel& model, dev_t device, ino_t inode) {
  Processes processes;
  processes.attached = FlockHolders(device, inode);
  std::set<int> named(processes.attached.begin(), processes.attached.end());
  for (const Waiter& waiter : model.queueBlocks.waiting) {
    named.insert(waiter.pid);
  }
  for (const Semaphore& sema : model.semaphores) {
    for (const Waiter& waiter : sema.waiters) {
      named.insert(waiter.pid);
    }
  }
  for (int pid : named) {
    if (ProcessAlive(pid)) {
      processes.alive.insert(pid);
    }
  }
  return processes;
}

}  // namespace nuvpool
