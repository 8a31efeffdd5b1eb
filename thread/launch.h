/// \file The launch record: what Launch hands from the parent to the child it forks.
#ifndef NUV_THREAD_LAUNCH_H
#define NUV_THREAD_LAUNCH_H

#include <nuv/fd_set.h>

class NuvSema;

namespace nuv {

/// One per process, written by Launch just before fork; the child reads its inherited copy.
struct LaunchRecord {
  static constexpr int kNameSize = 32;

  int (*entry)(long) = nullptr;
  long arg = 0;
  unsigned shared = 0;  // a bool kept in a word
  unsigned report = 0;  // a bool kept in a word; carried, not consulted by the child
  NuvSema* startSema = nullptr;
  NuvFdSet preserve;
  char name[kNameSize] = {};
};

/// This process's record: the one its parent filled when this process is a thread, or the
/// last one this process filled for a child.
const LaunchRecord& CurrentLaunchRecord();

}  // namespace nuv

#endif  // NUV_THREAD_LAUNCH_H
