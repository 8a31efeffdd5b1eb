/// \file NuvConfigbase on bad input: odd bytes, odd lines, and directories and files that are not
/// as expected. Nothing may crash, read past a buffer, or lose the file.
#include <nuv/configbase.h>

#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "config/config_files.h"
#include "core/kernel.h"
#include "support/child_process.h"

namespace {

using nuv::test::FExists;
using nuv::test::ReadFile;
using nuv::test::ScratchDir;
using nuv::test::VeldRootScope;
using nuv::test::WriteFile;

constexpr const char* kSection = "/Setup\n  A 1\n";

class ConfigBadInput : public ::testing::Test {
 protected:
  const ScratchDir& Dir() const { return dirM; }

 private:
  VeldRootScope rootM{std::nullopt};
  ScratchDir dirM;
};

// Pseudo-random bytes from a fixed seed, so that every run sees the same file.
std::string BinaryBytes(std::size_t count) {
  std::string bytes(count, '\0');
  uint32_t state = 12345;
  for (char& byte : bytes) {
    state = state * 1103515245U + 12345U;
    byte = static_cast<char>(state >> 24);
  }
  return bytes;
}

TEST_F(ConfigBadInput, NulBytesEndALinesTextButTheLineIsCopiedWhole) {
  const std::string path = Dir().File("x.cfg");
  constexpr char kHead[] = "# a\0b\n/Other x\0y\n";
  constexpr char kSectionWithNul[] = "/Setup\n  A 1\0hidden\n  B 2\n";
  const std::string head(kHead, sizeof kHead - 1);
  WriteFile(path, head + std::string(kSectionWithNul, sizeof kSectionWithNul - 1));
  NuvConfigbase store(path.c_str());
  ASSERT_EQ(store.SetKeyPath("/Setup"), 1);
  EXPECT_STREQ(store.FindValue("A"), "1");
  EXPECT_STREQ(store.FindValue("B"), "2");
  store.SetValue("B", "3");
  store.Sync(true);
  EXPECT_EQ(ReadFile(path), head + "/Setup\nA 1\nB 3\n");
}

TEST_F(ConfigBadInput, LineOfAHundredThousandCharactersIsReadInPieces) {
  const std::string path = Dir().File("x.cfg");
  const std::string longLine = std::string(100000, 'x') + "\n";
  WriteFile(path, "/Setup\n  A 1\n" + longLine + "/Next\n  B 2\n");
  NuvConfigbase store(path.c_str());
  ASSERT_EQ(store.SetKeyPath("/Setup"), 1);
  EXPECT_STREQ(store.FindValue("A"), "1");
  ASSERT_EQ(store.SetKeyPath("/Next"), 1);
  store.SetValue("B", "3");
  store.Sync(true);
  EXPECT_EQ(ReadFile(path), "/Setup\n  A 1\n" + longLine + "/Next\nB 3\n");
}

TEST_F(ConfigBadInput, LongPairLineGivesAValueOfOneBufferAtMost) {
  const std::string path = Dir().File("x.cfg");
  WriteFile(path, "/Setup\n  A " + std::string(100000, 'v') + "\n");
  NuvConfigbase store(path.c_str());
  ASSERT_EQ(store.SetKeyPath("/Setup"), 1);
  EXPECT_EQ(std::string(store.FindValue("A")), std::string(8191 - 4, 'v'));
}

TEST_F(ConfigBadInput, BinaryFileGetsANewSectionAppendedAfterEveryByte) {
  const std::string path = Dir().File("x.bin");
  const std::string bytes = BinaryBytes(64 * 1024);
  WriteFile(path, bytes);
  NuvConfigbase store(path.c_str());
  EXPECT_EQ(store.SetKeyPath("/Setup"), 0);
  EXPECT_EQ(store.MakeKeyPath("/Setup"), 1);
  EXPECT_EQ(store.SetValue("A", "1"), 1);
  store.Sync(true);
  EXPECT_EQ(ReadFile(path), bytes + "/Setup\nA 1\n");
}

TEST_F(ConfigBadInput, MissingDirectorySelectsNothingAndSyncCreatesNothing) {
  const std::string path = Dir().File("none/x.cfg");
  NuvConfigbase store(path.c_str());
  EXPECT_EQ(store.SetKeyPath("/Setup"), 0);
  EXPECT_EQ(store.MakeKeyPath("/Setup"), 1);
  EXPECT_EQ(store.SetValue("A", "1"), 1);
  store.Sync(true);
  EXPECT_FALSE(FExists(Dir().File("none")));
  EXPECT_STREQ(store.FindValue("A"), "1");
}

TEST_F(ConfigBadInput, DirectoryInPlaceOfTheFileSelectsNothing) {
  NuvConfigbase store(Dir().Path().c_str());
  EXPECT_EQ(store.SetKeyPath("/Setup"), 0);
}

// The directory is made read-only; root ignores that, so the store runs as "nobody" in a child.
TEST_F(ConfigBadInput, UnwritableDirectoryLeavesTheFileAsItWas) {
  const std::string path = Dir().File("x.cfg");
  WriteFile(path, kSection);
  ASSERT_EQ(chmod(path.c_str(), 0644), 0);
  ASSERT_EQ(chmod(Dir().Path().c_str(), 0555), 0);
  const nuv::test::ChildOutcome outcome = nuv::test::RunInChild([&path] {
    if (geteuid() == 0 && setuid(65534) != 0) {
      _exit(2);
    }
    NuvConfigbase store(path.c_str());
    const bool changed = store.SetKeyPath("/Setup") == 1 && store.SetValue("A", "2") == 0;
    store.Sync(true);
    _exit(changed ? 0 : 3);
  });
  EXPECT_EQ(outcome.ExitCode(), 0);
  EXPECT_EQ(ReadFile(path), kSection);
  EXPECT_FALSE(FExists(path + ".cbup"));
}

TEST_F(ConfigBadInput, FileRemovedAfterSelectionIsWrittenAgainBySync) {
  const std::string path = Dir().File("x.cfg");
  WriteFile(path, "# kept\n" + std::string(kSection) + "/Next\n  B 2\n");
  NuvConfigbase store(path.c_str());
  ASSERT_EQ(store.SetKeyPath("/Setup"), 1);
  ASSERT_EQ(unlink(path.c_str()), 0);
  store.SetValue("A", "2");
  store.Sync(true);
  EXPECT_EQ(ReadFile(path), "# kept\n/Setup\nA 2\n/Next\n  B 2\n");
}

TEST_F(ConfigBadInput, TemporaryThatCannotBeWrittenLeavesTheFileInPlace) {
  const std::string path = Dir().File("x.cfg");
  WriteFile(path, kSection);
  ASSERT_EQ(symlink("/dev/full", (path + ".cbup").c_str()), 0);
  NuvConfigbase store(path.c_str());
  ASSERT_EQ(store.SetKeyPath("/Setup"), 1);
  store.SetValue("A", "2");
  store.Sync(true);
  EXPECT_EQ(ReadFile(path), kSection);
  EXPECT_FALSE(FExists(path + ".cbup"));
  EXPECT_STREQ(store.FindValue("A"), "2");
}

TEST_F(ConfigBadInput, ChangesSurviveAFailedTemporaryForTheNextSync) {
  const std::string path = Dir().File("x.cfg");
  WriteFile(path, kSection);
  ASSERT_EQ(symlink("/dev/full", (path + ".cbup").c_str()), 0);
  NuvConfigbase store(path.c_str());
  ASSERT_EQ(store.SetKeyPath("/Setup"), 1);
  store.SetValue("A", "2");
  store.Sync(true);
  store.Sync(true);
  EXPECT_EQ(ReadFile(path), "/Setup\nA 2\n");
}

TEST_F(ConfigBadInput, FailedLinkKeepsTheTemporaryAsTheOnlyCopy) {
  const std::string path = Dir().File("x.cfg");
  WriteFile(path, kSection);
  NuvConfigbase store(path.c_str());
  ASSERT_EQ(store.SetKeyPath("/Setup"), 1);
  store.SetValue("A", "2");
  nuv::kernel::FailNextForTesting("link", EXDEV);
  store.Sync(true);
  nuv::kernel::FailNextForTesting(nullptr, 0);
  EXPECT_EQ(ReadFile(path + ".cbup"), "/Setup\nA 2\n");
}

}  // namespace
