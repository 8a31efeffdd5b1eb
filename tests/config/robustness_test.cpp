/// \file Bad input to the config entry points: each gets a documented result or a documented
/// assertion (docs/robustness.md).
#include <nuv/cbase.h>
#include <nuv/configbase.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "config/cbase_state.h"
#include "config/config_files.h"
#include "support/child_process.h"
#include "support/polling.h"
#include "support/process_state.h"

namespace {

using nuv::test::ChildOutcome;
using nuv::test::ReadFile;
using nuv::test::ScratchDir;
using nuv::test::VeldRootScope;
using nuv::test::WriteFile;

constexpr const char* kSection = "/Setup\n  A 1\n";

class ConfigRobustness : public ::testing::Test {
 protected:
  const ScratchDir& Dir() const { return dirM; }
  // The test's file, holding kSection.
  std::string SectionFile() const {
    std::string path = dirM.File("x.cfg");
    WriteFile(path, kSection);
    return path;
  }

 private:
  VeldRootScope rootM{std::nullopt};
  ScratchDir dirM;
};

// --- File names

TEST_F(ConfigRobustness, NullFileNameIsTheEmptyNameAndSelectsNothing) {
  NuvConfigbase store(nullptr);
  EXPECT_STREQ(store.Path(), "");
  EXPECT_EQ(store.SetKeyPath("/Setup"), 0);
  EXPECT_EQ(store.FindValue("A"), nullptr);
}

// The temporary of the empty name is ".cbup" in the working directory, and linking it to the
// empty name fails: it stays, the only copy of what was synced.
TEST_F(ConfigRobustness, EmptyFileNameLeavesTheSyncedSectionInDotCbupOfTheWorkingDirectory) {
  const std::string directory = Dir().Path();
  const ChildOutcome outcome = nuv::test::RunInChild([&directory] {
    if (chdir(directory.c_str()) != 0) {
      _exit(2);
    }
    NuvConfigbase store("");
    const bool made = store.SetKeyPath("/Setup") == 0 && store.MakeKeyPath("/Setup") == 1 &&
                      store.SetValue("A", "1") == 1;
    store.Sync(true);
    _exit(made ? 0 : 1);
  });
  EXPECT_EQ(outcome.ExitCode(), 0) << outcome.status;
  EXPECT_EQ(ReadFile(Dir().File(".cbup")), "/Setup\nA 1\n");
}

TEST_F(ConfigRobustness, EmptyFileSelectsNothingAndGetsTheMadeSection) {
  const std::string path = Dir().File("x.cfg");
  WriteFile(path, "");
  NuvConfigbase store(path.c_str());
  EXPECT_EQ(store.SetKeyPath("/Setup"), 0);
  ASSERT_EQ(store.MakeKeyPath("/Setup"), 1);
  EXPECT_EQ(store.SetValue("A", "1"), 1);
  store.Sync(true);
  EXPECT_EQ(ReadFile(path), "/Setup\nA 1\n");
}

// Each 8,191 NUL bytes are a line whose text is empty: no header. The section made is appended
// to the last of those lines, which has no newline, so a new store does not find it either.
TEST_F(ConfigRobustness, FileOfNulBytesSelectsNothingAndItsMadeSectionIsNotFoundAgain) {
  const std::string path = Dir().File("x.cfg");
  const std::string zeros(10000, '\0');
  WriteFile(path, zeros);
  {
    NuvConfigbase store(path.c_str());
    EXPECT_EQ(store.SetKeyPath("/Setup"), 0);
    ASSERT_EQ(store.MakeKeyPath("/Setup"), 1);
    EXPECT_EQ(store.SetValue("A", "1"), 1);
    store.Sync(true);
  }
  EXPECT_EQ(ReadFile(path), zeros + "/Setup\nA 1\n");
  NuvConfigbase again(path.c_str());
  EXPECT_EQ(again.SetKeyPath("/Setup"), 0);
}

TEST_F(ConfigRobustness, LastPairWithoutANewlineIsRead) {
  const std::string path = Dir().File("x.cfg");
  WriteFile(path, "/Setup\n  A 1");
  NuvConfigbase store(path.c_str());
  ASSERT_EQ(store.SetKeyPath("/Setup"), 1);
  EXPECT_STREQ(store.FindValue("A"), "1");
  EXPECT_EQ(store.SetValue("B", "2"), 1);
  store.Sync(true);
  EXPECT_EQ(ReadFile(path), "/Setup\nA 1\nB 2\n");
}

// The directory opens for reading but gives no line; the rewritten file cannot take its place,
// so the temporary stays beside it.
TEST_F(ConfigRobustness, DirectoryInPlaceOfTheFileKeepsTheSyncedSectionInTheTemporary) {
  const std::string path = Dir().File("d");
  ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
  NuvConfigbase store(path.c_str());
  EXPECT_EQ(store.SetKeyPath("/Setup"), 0);
  ASSERT_EQ(store.MakeKeyPath("/Setup"), 1);
  EXPECT_EQ(store.SetValue("A", "1"), 1);
  store.Sync(true);
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_TRUE(S_ISDIR(status.st_mode));
  EXPECT_EQ(ReadFile(path + ".cbup"), "/Setup\nA 1\n");
}

// Root reads any file, so the store runs as "nobody" in a child. The file cannot be read, but
// the directory lets it be replaced: Sync writes the made section in place of the whole file.
TEST_F(ConfigRobustness, UnreadableFileSelectsNothingAndSyncReplacesItWithTheMadeSection) {
  const std::string path = Dir().File("x.cfg");
  WriteFile(path, "/Other\n  B 2\n");
  ASSERT_EQ(chmod(path.c_str(), 0), 0);
  ASSERT_EQ(chmod(Dir().Path().c_str(), 0777), 0);
  const ChildOutcome outcome = nuv::test::RunInChild([&path] {
    if (geteuid() == 0 && setuid(65534) != 0) {
      _exit(2);
    }
    NuvConfigbase store(path.c_str());
    const bool unread = store.SetKeyPath("/Other") == 0;
    store.MakeKeyPath("/Setup");
    store.SetValue("A", "1");
    store.Sync(true);
    _exit(unread ? 0 : 1);
  });
  EXPECT_EQ(outcome.ExitCode(), 0) << outcome.status;
  EXPECT_EQ(ReadFile(path), "/Setup\nA 1\n");
}

// Opening a FIFO for reading waits for a writer, as for any reader of one; what the writer sends
// is then read as the file.
TEST_F(ConfigRobustness, FifoInPlaceOfTheFileWaitsForAWriterAndReadsWhatItSends) {
  const std::string path = Dir().File("fifo");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  nuv::test::ChildProcess reader([&path] {
    NuvConfigbase store(path.c_str());
    const char* value = store.SetKeyPath("/Setup") == 1 ? store.FindValue("A") : nullptr;
    _exit(value != nullptr && std::string(value) == "1" ? 0 : 1);
  });
  const int pid = reader.Pid();
  ASSERT_TRUE(nuv::test::WaitUntil([pid] { return nuv::test::ProcessState(pid) == 'S'; }));
  EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), 0) << "the store did not wait for a writer";
  const int writer = open(path.c_str(), O_WRONLY);
  ASSERT_GE(writer, 0);
  const std::string text = kSection;
  EXPECT_EQ(write(writer, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  close(writer);
  const ChildOutcome outcome = reader.Finish();
  EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.status;
}

// --- Key paths

TEST_F(ConfigRobustness, NullKeyPathSelectsNothingAndDropsTheSection) {
  NuvConfigbase store(SectionFile().c_str());
  ASSERT_EQ(store.SetKeyPath("/Setup"), 1);
  EXPECT_EQ(store.SetKeyPath(nullptr), 0);
  EXPECT_EQ(store.FindValue("A"), nullptr);
  EXPECT_EQ(store.Enumerate(), nullptr);
}

TEST_F(ConfigRobustness, MakeKeyPathOfNullReturnsZeroAndMakesNoSection) {
  const std::string path = SectionFile();
  NuvConfigbase store(path.c_str());
  EXPECT_EQ(store.MakeKeyPath(nullptr), 0);
  EXPECT_EQ(store.SetValue("A", "2"), 0);
  EXPECT_EQ(store.Enumerate(), nullptr);
  store.Sync(true);
  EXPECT_EQ(ReadFile(path), kSection);
}

// No header text is empty, and "" is a leading part of none, blank-only lines included.
TEST_F(ConfigRobustness, EmptyKeyPathSelectsNothing) {
  const std::string path = Dir().File("x.cfg");
  WriteFile(path, "  \n" + std::string(kSection));
  NuvConfigbase store(path.c_str());
  EXPECT_EQ(store.SetKeyPath(""), 0);
  EXPECT_EQ(store.FindValue("A"), nullptr);
}

// The made section's header is written as a blank line, which the parser skips: its pairs read
// back as pairs of the section before it.
TEST_F(ConfigRobustness, EmptyKeyPathMadeAndSyncedJoinsItsPairsToTheSectionBefore) {
  const std::string path = SectionFile();
  {
    NuvConfigbase store(path.c_str());
    ASSERT_EQ(store.MakeKeyPath(""), 1);
    EXPECT_EQ(store.SetValue("B", "2"), 1);
    store.Sync(true);
  }
  EXPECT_EQ(ReadFile(path), std::string(kSection) + "\nB 2\n");
  NuvConfigbase again(path.c_str());
  ASSERT_EQ(again.SetKeyPath("/Setup"), 1);
  EXPECT_STREQ(again.FindValue("B"), "2");
}

// --- Keys and values

TEST_F(ConfigRobustness, NullKeyOrValueIsFoundNowhere) {
  NuvConfigbase store(SectionFile().c_str());
  ASSERT_EQ(store.SetKeyPath("/Setup"), 1);
  EXPECT_EQ(store.FindValue(nullptr), nullptr);
  EXPECT_EQ(store.FindKeyByValue(nullptr), nullptr);
  EXPECT_STREQ(store.FindValue("A"), "1");
}

TEST_F(ConfigRobustness, SetValueWithANullKeyOrValueChangesNothing) {
  const std::string path = SectionFile();
  NuvConfigbase store(path.c_str());
  ASSERT_EQ(store.SetKeyPath("/Setup"), 1);
  EXPECT_EQ(store.SetValue(nullptr, "2"), 0);
  EXPECT_EQ(store.SetValue("A", nullptr), 0);
  EXPECT_EQ(store.SetValue(nullptr, nullptr), 0);
  EXPECT_STREQ(store.FindValue("A"), "1");
  // Not marked dirty: nothing is written.
  store.Sync(true);
  EXPECT_EQ(ReadFile(path), kSection);
}

// No pair read from a file has an empty key. One that is set is written as " value", a line
// that is not a pair: the section read back ends before it.
TEST_F(ConfigRobustness, EmptyKeyIsFoundNowhereAndWhenSetEndsTheSectionInTheFile) {
  const std::string path = SectionFile();
  {
    NuvConfigbase store(path.c_str());
    ASSERT_EQ(store.SetKeyPath("/Setup"), 1);
    EXPECT_EQ(store.FindValue(""), nullptr);
    EXPECT_EQ(store.SetValue("", "v"), 1);
    EXPECT_EQ(store.SetValue("B", "2"), 1);
    store.Sync(true);
  }
  EXPECT_EQ(ReadFile(path), "/Setup\nA 1\n v\nB 2\n");
  NuvConfigbase again(path.c_str());
  ASSERT_EQ(again.SetKeyPath("/Setup"), 1);
  EXPECT_STREQ(again.FindValue("A"), "1");
  EXPECT_EQ(again.FindValue("B"), nullptr);
}

// An empty value is written as "A ", which is not a pair line when read back.
TEST_F(ConfigRobustness, EmptyValueIsWrittenButNotReadBack) {
  const std::string path = SectionFile();
  {
    NuvConfigbase store(path.c_str());
    ASSERT_EQ(store.SetKeyPath("/Setup"), 1);
    EXPECT_EQ(store.SetValue("A", ""), 0);
    EXPECT_STREQ(store.FindValue("A"), "");
    store.Sync(true);
  }
  EXPECT_EQ(ReadFile(path), "/Setup\nA \n");
  NuvConfigbase again(path.c_str());
  ASSERT_EQ(again.SetKeyPath("/Setup"), 1);
  EXPECT_EQ(again.FindValue("A"), nullptr);
}

// Keys and values are written as given: a blank in a key moves the rest into the value, and a
// newline in a value starts a line of its own.
TEST_F(ConfigRobustness, BlankInAKeyAndNewlineInAValueAreWrittenAsGiven) {
  const std::string path = SectionFile();
  {
    NuvConfigbase store(path.c_str());
    ASSERT_EQ(store.SetKeyPath("/Setup"), 1);
    EXPECT_EQ(store.SetValue("K L", "3"), 1);
    EXPECT_EQ(store.SetValue("A", "1\n/Other"), 0);
    store.Sync(true);
  }
  EXPECT_EQ(ReadFile(path), "/Setup\nA 1\n/Other\nK L 3\n");
  NuvConfigbase again(path.c_str());
  ASSERT_EQ(again.SetKeyPath("/Other"), 1);
  EXPECT_STREQ(again.FindValue("K"), "L 3");
}

TEST_F(ConfigRobustness, IteratorWithNullOutputsDeliversThePairWithoutWriting) {
  const std::string path = Dir().File("x.cfg");
  WriteFile(path, "/Setup\n  A 1\n  B 2\n");
  NuvConfigbase store(path.c_str());
  ASSERT_EQ(store.SetKeyPath("/Setup"), 1);
  const std::unique_ptr<NuvConfigIterator> iterator(store.Enumerate());
  ASSERT_NE(iterator, nullptr);
  char* key = nullptr;
  EXPECT_EQ(iterator->Current(nullptr, nullptr), 1);
  EXPECT_EQ(iterator->Current(&key, nullptr), 1);
  EXPECT_STREQ(key, "A");
  iterator->Next();
  char* value = nullptr;
  EXPECT_EQ(iterator->Current(nullptr, &value), 1);
  EXPECT_STREQ(value, "2");
}

// --- The C interface

// Every test starts as a fresh process does, with neither store nor iterator.
class ConfigCRobustness : public ConfigRobustness {
 protected:
  void SetUp() override { Reset(); }
  void TearDown() override { Reset(); }
  static void Reset() {
    delete CBIterator;
    CBIterator = nullptr;
    delete CBase;
    CBase = nullptr;
  }
};

TEST_F(ConfigCRobustness, SetFileOfNullMakesAStoreOfTheEmptyName) {
  const std::string path = SectionFile();
  CBaseSetFile(path.c_str());
  ASSERT_EQ(CBaseSetKeyPath("/Setup"), 1);
  CBaseSetFile(nullptr);
  ASSERT_NE(CBase, nullptr);
  EXPECT_STREQ(CBase->Path(), "");
  EXPECT_EQ(CBaseFindValue("A"), nullptr);
  EXPECT_EQ(CBaseSetKeyPath("/Setup"), 0);
  // The same name again keeps the store.
  const NuvConfigbase* store = CBase;
  CBaseSetFile("");
  CBaseSetFile(nullptr);
  EXPECT_EQ(CBase, store);
}

TEST_F(ConfigCRobustness, NullArgumentsFailQuietly) {
  const std::string path = SectionFile();
  CBaseSetFile(path.c_str());
  ASSERT_EQ(CBaseSetKeyPath("/Setup"), 1);
  EXPECT_EQ(CBaseFindValue(nullptr), nullptr);
  EXPECT_EQ(CBaseFindKeyByValue(nullptr), nullptr);
  EXPECT_EQ(CBaseSetValue(nullptr, "2"), 0);
  EXPECT_EQ(CBaseSetValue("A", nullptr), 0);
  EXPECT_STREQ(CBaseFindValue("A"), "1");
  CBaseSync();
  EXPECT_EQ(ReadFile(path), kSection);
  EXPECT_EQ(CBaseSetKeyPath(nullptr), 0);
  EXPECT_EQ(CBaseFindValue("A"), nullptr);
}

TEST_F(ConfigCRobustness, EmptyKeyPathIsNotFound) {
  CBaseSetFile(SectionFile().c_str());
  EXPECT_EQ(CBaseSetKeyPath(""), 0);
  CBaseIterate();
  char* key = nullptr;
  char* value = nullptr;
  EXPECT_EQ(CBaseNext(&key, &value), 0);
}

TEST_F(ConfigCRobustness, NextWithNullOutputsSkipsAPairWithoutWriting) {
  const std::string path = Dir().File("x.cfg");
  WriteFile(path, "/Setup\n  A 1\n  B 2\n");
  CBaseSetFile(path.c_str());
  ASSERT_EQ(CBaseSetKeyPath("/Setup"), 1);
  CBaseIterate();
  char* key = nullptr;
  char* value = nullptr;
  EXPECT_EQ(CBaseNext(nullptr, nullptr), 1);
  EXPECT_EQ(CBaseNext(&key, &value), 1);
  EXPECT_STREQ(key, "B");
  EXPECT_STREQ(value, "2");
  EXPECT_EQ(CBaseNext(nullptr, nullptr), 0);
}

}  // namespace
