/// \file main() of every test program: the logger never reaches the machine's log daemon.
#include <gtest/gtest.h>

#include "diag/log_socket.h"

// A path that can never be a socket: entries fall back to standard output unless a test
// points the logger at a socket of its own.
constexpr const char* kNoLogSocket = "/dev/null/log";

int main(int argc, char** argv) {
  nuv::SetLogSocketPathsForTesting(kNoLogSocket, kNoLogSocket);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
