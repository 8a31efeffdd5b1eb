/// \file yield and execCmd.
#include <nuv/assert.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <sys/time.h>
#include <chrono>
#include <csignal>
#include <string>
#include <vector>

namespace {

unsigned ExecWords(std::vector<std::string> words) {
  std::vector<char*> argv;
  argv.reserve(words.size() + 1);
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  return execCmd(argv.data());
}

volatile sig_atomic_t alarmsSeen = 0;

TEST(ExecCmd, ProgramExitingWithZeroReturnsOk) { EXPECT_EQ(ExecWords({"/bin/true"}), kNuvOk); }

TEST(ExecCmd, ProgramExitingWithOneReturnsProcessFailed) {
  EXPECT_EQ(ExecWords({"/bin/false"}), kNuvProcessFailed);
}

TEST(ExecCmd, MissingProgramReturnsProcessFailed) {
  EXPECT_EQ(ExecWords({"/nonexistent/program"}), kNuvProcessFailed);
}

TEST(ExecCmd, ProgramNameIsNotSearchedOnThePath) {
  EXPECT_EQ(ExecWords({"true"}), kNuvProcessFailed);
}

TEST(ExecCmd, ProgramKilledBySignalReturnsProcessFailed) {
  EXPECT_EQ(ExecWords({"/bin/sh", "-c", "kill -KILL $$"}), kNuvProcessFailed);
}

TEST(ExecCmd, ArgumentsReachTheProgram) {
  EXPECT_EQ(ExecWords({"/bin/sh", "-c", "test \"$0\" = word", "word"}), kNuvOk);
}

TEST(ExecCmd, SignalInterruptingTheWaitDoesNotEndIt) {
  struct sigaction count {};
  count.sa_handler = [](int) { alarmsSeen = alarmsSeen + 1; };
  sigemptyset(&count.sa_mask);
  struct sigaction previous {};
  sigaction(SIGALRM, &count, &previous);
  const itimerval soon{{0, 0}, {0, 20000}};
  setitimer(ITIMER_REAL, &soon, nullptr);
  const unsigned result = ExecWords({"/bin/sh", "-c", "sleep 0.3; exit 0"});
  sigaction(SIGALRM, &previous, nullptr);
  EXPECT_EQ(alarmsSeen, 1);
  EXPECT_EQ(result, kNuvOk);
}

TEST(Yield, SleepsFiveMillisecondsAndReturnsZero) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(yield(), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(5));
}

TEST(Status, EveryLibraryCodeHasItsOwnText) {
  const unsigned codes[] = {kNuvPoolExists,        kNuvPoolCreateFailed, kNuvPoolOpenFailed,
                            kNuvPoolAddressFailed, kNuvSocketFailed,     kNuvEndOfFile,
                            kNuvBadRecord,         kNuvProcessFailed,    kNuvNotActive};
  for (unsigned code : codes) {
    EXPECT_STRNE(NuvStatusText(code), "unknown status") << std::hex << code;
  }
  EXPECT_STREQ(NuvStatusText(0x50009), "unknown status");
}

}  // namespace
