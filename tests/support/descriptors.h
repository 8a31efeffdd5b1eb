/// \file The process's open descriptors, for tests that check what a call leaves open.
#ifndef NUV_TESTS_SUPPORT_DESCRIPTORS_H
#define NUV_TESTS_SUPPORT_DESCRIPTORS_H

#include <dirent.h>
#include <fcntl.h>

namespace nuv::test {

/// Whether fd is an open descriptor of this process.
inline bool IsOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

/// The descriptors this process has open, counted in /proc/self/fd (the directory's own
/// descriptor left out); -1 when the directory cannot be read.
inline int OpenDescriptors() {
  DIR* directory = opendir("/proc/self/fd");
  if (directory == nullptr) {
    return -1;
  }
  int count = 0;
  while (const dirent* entry = readdir(directory)) {
    count += entry->d_name[0] != '.' ? 1 : 0;
  }
  closedir(directory);
  return count - 1;
}

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_DESCRIPTORS_H
