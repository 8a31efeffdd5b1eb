/// \file The scheduler's view of another process, for tests that wait until it sleeps.
#ifndef NUV_TESTS_SUPPORT_PROCESS_STATE_H
#define NUV_TESTS_SUPPORT_PROCESS_STATE_H

#include <fstream>
#include <string>

namespace nuv::test {

/// The state letter of /proc/<pid>/stat ('S' while it sleeps), or '?' when it cannot be read.
inline char ProcessState(int pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(stat, line);
  const std::string::size_type nameEnd = line.rfind(')');
  return nameEnd != std::string::npos && nameEnd + 2 < line.size() ? line[nameEnd + 2] : '?';
}

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_PROCESS_STATE_H
