/// \file External names: the kernel's naming request, the rewrite of the argument area in place
/// (in a program started for it), and reading another process's name.
#include <nuv/os_thread.h>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "core/kernel.h"
#include "support/child_process.h"
#include "support/fields.h"
#include "thread/external_name.h"

namespace {

using nuv::test::ChildOutcome;
using nuv::test::FieldOf;
using nuv::test::Fields;
using nuv::test::HelperPath;

constexpr const char* kHelper = "external_name_helper";
constexpr int kNameLength = 255;

Fields Expect(const ChildOutcome& outcome) {
  EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.out << outcome.err;
  return nuv::test::FieldsOf(outcome.out);
}

Fields RunHelper(const std::vector<std::string>& args) {
  return Expect(nuv::test::RunProgram(HelperPath(kHelper), args));
}

// The helper's start-up argument area: its path and every argument, each with its zero.
int AreaLength(const std::vector<std::string>& args) {
  size_t length = HelperPath(kHelper).size() + 1;
  for (const std::string& arg : args) {
    length += arg.size() + 1;
  }
  return static_cast<int>(length);
}

// Under a user-mode emulator the kernel's record of a process's command line is the emulator's
// own, and the emulator answers a process's reads of its own "/proc" entry from a copy made at
// start: neither shows the program's argument area. Natively another process reads the path
// that the helper was started by.
bool KernelShowsTheEmulator(const Fields& fields) {
  const std::string seen = FieldOf(fields, "seen_before");
  const std::string base = seen.substr(seen.rfind('/') + 1);
  if (base.rfind("qemu-", 0) == 0) {
    return true;
  }
  EXPECT_EQ(seen, HelperPath(kHelper));
  return false;
}

std::string ExternalNameOf(int pid, int len = kNameLength) {
  std::vector<char> name(static_cast<size_t>(len) + 1, 'X');
  NuvOsThread::GetExternalName(pid, name.data(), len);
  return name.data();
}

class NewExternalize : public ::testing::Test {
 protected:
  void TearDown() override { nuv::kernel::FailNextForTesting(nullptr, 0, 0); }
};

TEST(KernelNameRequest, NameOfTwoHundredCharactersIsCutTo119) {
  const std::string name(200, 'k');
  const nuv::KernelNameRequest request = nuv::FillKernelNameRequest(name.c_str());
  EXPECT_EQ(std::string(request.start), name.substr(0, 119));
  EXPECT_EQ(request.last, request.start + 119);
  EXPECT_EQ(*request.last, '\0');
}

TEST(KernelNameRequest, ShortNameIsHandedOverWhole) {
  const nuv::KernelNameRequest request = nuv::FillKernelNameRequest("tuner");
  EXPECT_STREQ(request.start, "tuner");
  EXPECT_EQ(request.last, request.start + 119);
}

TEST_F(NewExternalize, DeviceThatCannotBeOpenedGivesZero) {
  nuv::kernel::FailNextForTesting("open", ENOENT);
  EXPECT_EQ(newExternalize("tuner"), 0);
}

TEST_F(NewExternalize, RefusedRequestGivesZero) {
  nuv::kernel::FailNextForTesting("ioctl", ENOTTY);
  EXPECT_EQ(newExternalize("tuner"), 0);
}

// The test machines' kernels, emulated or not, are not the device's.
TEST_F(NewExternalize, KernelWithoutTheNamingRequestGivesZero) {
  EXPECT_EQ(newExternalize("tuner"), 0);
}

TEST(ExternalizeName, InPlaceNameIsFollowedByZerosUpToTheEnvironment) {
  const std::vector<std::string> args = {"once", "tuner", "1"};
  const Fields fields = RunHelper(args);
  EXPECT_EQ(FieldOf(fields, "area"), "tuner");
  EXPECT_EQ(FieldOf(fields, "area_length"), std::to_string(AreaLength(args)));
  EXPECT_EQ(FieldOf(fields, "zeros_after"), "1");
}

TEST(ExternalizeName, NameLongerThanTheAreaIsCutToTheAreaLengthMinusOne) {
  const std::vector<std::string> args = {"once", "n", "400"};
  const int length = AreaLength(args);
  ASSERT_LT(length, 400);
  const Fields fields = RunHelper(args);
  EXPECT_EQ(FieldOf(fields, "area"), std::string(static_cast<size_t>(length - 1), 'n'));
  EXPECT_EQ(FieldOf(fields, "area_length"), std::to_string(length));
}

TEST(ExternalizeName, ProgramStillReadsItsOwnArgumentsAfterTheRewrite) {
  const Fields fields = RunHelper({"once", "tuner", "1"});
  EXPECT_EQ(FieldOf(fields, "argv"), HelperPath(kHelper) + "|once|tuner|1");
  EXPECT_EQ(FieldOf(fields, "layout"), "cccc");
}

TEST(ExternalizeName, SecondNameIsWrittenOverTheFirstWithZerosAfterIt) {
  const Fields fields = RunHelper({"twice", "first", "4", "second"});
  EXPECT_EQ(FieldOf(fields, "area"), "second");
  EXPECT_EQ(FieldOf(fields, "zeros_after"), "1");
  EXPECT_EQ(FieldOf(fields, "argv"), HelperPath(kHelper) + "|twice|first|4|second");
}

TEST(ExternalizeName, ShortenedVectorIsMovedUpToItsFirstNull) {
  const Fields fields = RunHelper({"shortened", "tuner", "1"});
  EXPECT_EQ(FieldOf(fields, "area"), "tuner");
  EXPECT_EQ(FieldOf(fields, "layout"), "cnaa");
  EXPECT_EQ(FieldOf(fields, "argv"), HelperPath(kHelper));
}

TEST(ExternalizeName, NameTakenFromTheAreaItselfIsWrittenWhole) {
  const Fields fields = RunHelper({"own", "selfname", "1"});
  EXPECT_EQ(FieldOf(fields, "area"), "selfname");
  EXPECT_EQ(FieldOf(fields, "zeros_after"), "1");
}

TEST(ExternalizeName, WithoutAnEnvironmentTheNameIsUnchanged) {
  const Fields fields =
      Expect(nuv::test::RunProgramWithEnvironment(HelperPath(kHelper), {"once", "tuner", "1"}, {}));
  EXPECT_EQ(FieldOf(fields, "area"), HelperPath(kHelper));
  EXPECT_EQ(FieldOf(fields, "layout"), "aaaa");
  EXPECT_EQ(fields.count("area_length"), 0U);
}

TEST(ExternalizeName, ProcessReadsItsNewNameFromProc) {
  const Fields fields = RunHelper({"once", "tuner", "1"});
  if (KernelShowsTheEmulator(fields)) {
    GTEST_SKIP() << "under user-mode emulation a process reads the emulator's copy of its "
                    "start-up arguments, not its argument area ("
                 << FieldOf(fields, "own_cmdline") << ")";
  }
  EXPECT_EQ(FieldOf(fields, "own_cmdline"), "tuner");
}

TEST(ExternalizeName, OtherProcessesReadTheNewName) {
  const Fields fields = RunHelper({"once", "tuner", "1"});
  if (KernelShowsTheEmulator(fields)) {
    GTEST_SKIP() << "under user-mode emulation the kernel shows the emulator's command line ("
                 << FieldOf(fields, "seen_after") << "), not the program's argument area";
  }
  EXPECT_EQ(FieldOf(fields, "seen_after"), "tuner");
}

TEST(GetExternalName, RunningProcessGivesItsFirstArgument) {
  EXPECT_EQ(ExternalNameOf(getpid()), program_invocation_name);
}

TEST(GetExternalName, ZeroFollowsTheBytesReadEvenWhenTheyFillLen) {
  char name[6] = {'X', 'X', 'X', 'X', 'X', 'X'};
  NuvOsThread::GetExternalName(getpid(), name, 4);
  EXPECT_EQ(std::string(name), std::string(program_invocation_name).substr(0, 4));
  EXPECT_EQ(name[5], 'X');
}

TEST(GetExternalName, ProcessThatDoesNotExistGivesItsNumber) {
  const pid_t gone = fork();
  if (gone == 0) {
    _exit(0);
  }
  ASSERT_GT(gone, 0);
  ASSERT_EQ(waitpid(gone, nullptr, 0), gone);
  EXPECT_EQ(ExternalNameOf(gone), std::to_string(gone));
}

TEST(GetExternalName, ZombieGivesItsNumber) {
  const pid_t zombie = fork();
  if (zombie == 0) {
    _exit(0);
  }
  ASSERT_GT(zombie, 0);
  siginfo_t info{};
  // Waits until it has ended, and leaves it unreaped.
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(zombie), &info, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(ExternalNameOf(zombie), std::to_string(zombie));
  waitpid(zombie, nullptr, 0);
}

}  // namespace
