/// \file main() of every test program: the logger never reaches the machine's log daemon, and
/// no pool file outlives the program.
#include <gtest/gtest.h>

#include "core/log_socket.h"
#include "support/pool_prefix.h"

// A path that can never be a socket: entries fall back to standard output unless a test
// points the logger at a socket of its own.
constexpr const char* kNoLogSocket = "/dev/null/log";

int main(int argc, char** argv) {
  nuv::SetLogSocketPathsForTesting(kNoLogSocket, kNoLogSocket);
  ::testing::InitGoogleTest(&argc, argv);
  nuv::test::RemoveFilesOfEndedPrograms();
  nuv::test::UseProgramPoolPrefix();
  const int result = RUN_ALL_TESTS();
  nuv::test::RemoveProgramPoolFiles();
  return result;
}
