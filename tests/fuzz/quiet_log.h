/// \file What a fuzz harness of the library does first: its log entries reach neither the
/// machine's log daemon nor the fuzzer's own output.
#ifndef NUV_TESTS_FUZZ_QUIET_LOG_H
#define NUV_TESTS_FUZZ_QUIET_LOG_H

#include <fcntl.h>
#include <unistd.h>

#include "core/log_socket.h"

namespace nuv::fuzz {

/// Points the logger at a socket that cannot exist, so that it falls back to standard output,
/// and sends standard output to /dev/null. The fuzzer reports on standard error.
inline void QuietLog() {
  constexpr const char* kNoLogSocket = "/dev/null/log";
  nuv::SetLogSocketPathsForTesting(kNoLogSocket, kNoLogSocket);
  const int null = open("/dev/null", O_WRONLY);
  if (null >= 0) {
    dup2(null, STDOUT_FILENO);
    close(null);
  }
}

}  // namespace nuv::fuzz

#endif  // NUV_TESTS_FUZZ_QUIET_LOG_H
