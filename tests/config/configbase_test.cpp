/// \file NuvConfigbase: file names, selecting sections, lookups, changes, Release and iteration.
#include <nuv/configbase.h>

#include <sys/stat.h>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "config/config_files.h"

namespace {

using nuv::test::ReadFile;
using nuv::test::ScratchDir;
using nuv::test::VeldRootScope;
using nuv::test::WriteFile;

constexpr const char* kExample =
    "# network setup\n"
    "/Setup/Network\n"
    "  Address 10.0.0.2\n"
    "  {Host Name} set top\n"
    "/Setup/Audio\n"
    "  Volume 7\n";

// A store over a file of the given contents in a fresh directory.
class ConfigFile {
 public:
  explicit ConfigFile(const std::string& contents) : pathM(dirM.File("x.cfg")) {
    WriteFile(pathM, contents);
  }
  const std::string& Path() const { return pathM; }
  NuvConfigbase& Store() { return storeM; }

 private:
  VeldRootScope rootM{std::nullopt};
  ScratchDir dirM;
  std::string pathM;
  NuvConfigbase storeM{pathM.c_str()};
};

TEST(ConfigPath, AbsoluteNameGoesUnderVeldRootWithADoubleSlash) {
  const VeldRootScope root(std::string("/r"));
  const NuvConfigbase store("/etc/x.cfg");
  EXPECT_STREQ(store.Path(), "/r//etc/x.cfg");
}

TEST(ConfigPath, RelativeNameIgnoresVeldRoot) {
  const VeldRootScope root(std::string("/r"));
  const NuvConfigbase store("etc/x.cfg");
  EXPECT_STREQ(store.Path(), "etc/x.cfg");
}

TEST(ConfigPath, AbsoluteNameIsKeptWithoutVeldRoot) {
  const VeldRootScope root(std::nullopt);
  const NuvConfigbase store("/etc/x.cfg");
  EXPECT_STREQ(store.Path(), "/etc/x.cfg");
}

TEST(ConfigPath, StoreUnderVeldRootReadsTheJoinedFile) {
  const ScratchDir dir;
  ASSERT_EQ(mkdir(dir.File("etc").c_str(), 0700), 0);
  WriteFile(dir.File("etc/x.cfg"), kExample);
  const VeldRootScope root(dir.Path());
  NuvConfigbase store("/etc/x.cfg");
  EXPECT_EQ(store.SetKeyPath("/Setup/Audio"), 1);
  EXPECT_STREQ(store.FindValue("Volume"), "7");
}

TEST(ConfigKeyPath, MissingFileSelectsNothing) {
  const ScratchDir dir;
  NuvConfigbase store(dir.File("none.cfg").c_str());
  EXPECT_EQ(store.SetKeyPath("/Setup"), 0);
  EXPECT_EQ(store.FindValue("A"), nullptr);
}

TEST(ConfigKeyPath, MissingFileGetsTheMadeSectionOnSync) {
  const ScratchDir dir;
  const std::string path = dir.File("new.cfg");
  NuvConfigbase store(path.c_str());
  EXPECT_EQ(store.SetKeyPath("/Setup"), 0);
  EXPECT_EQ(store.MakeKeyPath("/Setup"), 1);
  EXPECT_EQ(store.SetValue("A", "1"), 1);
  store.Sync(true);
  EXPECT_EQ(ReadFile(path), "/Setup\nA 1\n");
}

TEST(ConfigKeyPath, MakeKeyPathOfAnExistingSectionReadsItsPairs) {
  ConfigFile file(kExample);
  EXPECT_EQ(file.Store().MakeKeyPath("/Setup/Audio"), 1);
  EXPECT_STREQ(file.Store().FindValue("Volume"), "7");
}

TEST(ConfigKeyPath, LeadingPartOfTheKeyPathIsTakenAsItsHeader) {
  ConfigFile file("/Setup\n  A 1\n/Setup/Network\n  B 2\n");
  EXPECT_EQ(file.Store().SetKeyPath("/Setup/Network"), 1);
  EXPECT_STREQ(file.Store().FindValue("A"), "1");
  EXPECT_EQ(file.Store().FindValue("B"), nullptr);
}

TEST(ConfigKeyPath, PairLineOfAnEarlierSectionCanBeTheHeader) {
  ConfigFile file("/First\n  Key value\n  C 3\n");
  EXPECT_EQ(file.Store().SetKeyPath("Key value"), 1);
  EXPECT_STREQ(file.Store().FindValue("C"), "3");
}

TEST(ConfigKeyPath, LongerHeaderTextIsNotALeadingPart) {
  ConfigFile file("/Setup/Network\n  A 1\n");
  EXPECT_EQ(file.Store().SetKeyPath("/Setup"), 0);
}

TEST(ConfigKeyPath, EqualKeyPathDoesNotReadTheFileAgain) {
  ConfigFile file(kExample);
  ASSERT_EQ(file.Store().SetKeyPath("/Setup/Audio"), 1);
  WriteFile(file.Path(), "/Setup/Audio\n  Volume 9\n");
  EXPECT_EQ(file.Store().SetKeyPath("/Setup/Audio"), 1);
  EXPECT_STREQ(file.Store().FindValue("Volume"), "7");
}

TEST(ConfigKeyPath, CommentAndBlankLinesInsideASectionAreSkipped) {
  ConfigFile file("/S\n  A 1\n# c\n\n  B 2\n");
  ASSERT_EQ(file.Store().SetKeyPath("/S"), 1);
  EXPECT_STREQ(file.Store().FindValue("B"), "2");
}

TEST(ConfigKeyPath, IndentedHashLineIsAPairWithKeyHash) {
  ConfigFile file("/S\n  # note\n  A 1\n");
  ASSERT_EQ(file.Store().SetKeyPath("/S"), 1);
  EXPECT_STREQ(file.Store().FindValue("#"), "note");
  EXPECT_STREQ(file.Store().FindValue("A"), "1");
}

TEST(ConfigKeyPath, SectionEndsAtTheFirstLineThatIsNotAPair) {
  ConfigFile file(kExample);
  ASSERT_EQ(file.Store().SetKeyPath("/Setup/Network"), 1);
  EXPECT_EQ(file.Store().FindValue("Volume"), nullptr);
}

TEST(ConfigKeyPath, FailedSelectionLeavesNoSectionCurrent) {
  ConfigFile file(kExample);
  ASSERT_EQ(file.Store().SetKeyPath("/Setup/Audio"), 1);
  EXPECT_EQ(file.Store().SetKeyPath("/Nothing"), 0);
  EXPECT_EQ(file.Store().FindValue("Volume"), nullptr);
  EXPECT_EQ(file.Store().Enumerate(), nullptr);
}

TEST(ConfigKeyPath, CommentLongerThanTheLineBufferGoesOnAsANewLine) {
  ConfigFile file("#" + std::string(8190, 'x') + "/Tail\n  A 1\n");
  EXPECT_EQ(file.Store().SetKeyPath("/Tail"), 1);
  EXPECT_STREQ(file.Store().FindValue("A"), "1");
}

TEST(ConfigLookup, BracedKeyWithBlanksFindsItsValue) {
  ConfigFile file(kExample);
  ASSERT_EQ(file.Store().SetKeyPath("/Setup/Network"), 1);
  EXPECT_STREQ(file.Store().FindValue("{Host Name}"), "set top");
}

TEST(ConfigLookup, FindKeyByValueGivesTheKeyOfTheValue) {
  ConfigFile file(kExample);
  ASSERT_EQ(file.Store().SetKeyPath("/Setup/Audio"), 1);
  EXPECT_STREQ(file.Store().FindKeyByValue("7"), "Volume");
  EXPECT_EQ(file.Store().FindKeyByValue("8"), nullptr);
}

TEST(ConfigLookup, FirstPairOfARepeatedKeyWins) {
  ConfigFile file("/S\n  A 1\n  A 2\n");
  ASSERT_EQ(file.Store().SetKeyPath("/S"), 1);
  EXPECT_STREQ(file.Store().FindValue("A"), "1");
}

TEST(ConfigLookup, ValueKeepsTrailingBlanksAndCarriageReturn) {
  ConfigFile file("/S\n\tA   1 2  \r\n");
  ASSERT_EQ(file.Store().SetKeyPath("/S"), 1);
  EXPECT_STREQ(file.Store().FindValue("A"), "1 2  \r");
}

TEST(ConfigLookup, NothingIsFoundWithoutASection) {
  ConfigFile file(kExample);
  EXPECT_EQ(file.Store().FindValue("Volume"), nullptr);
  EXPECT_EQ(file.Store().FindKeyByValue("7"), nullptr);
}

TEST(ConfigSetValue, ExistingKeyReturnsZeroAndStillMarksTheStoreDirty) {
  ConfigFile file(kExample);
  ASSERT_EQ(file.Store().SetKeyPath("/Setup/Audio"), 1);
  EXPECT_EQ(file.Store().SetValue("Volume", "8"), 0);
  file.Store().Sync(true);
  EXPECT_EQ(ReadFile(file.Path()),
            "# network setup\n/Setup/Network\n  Address 10.0.0.2\n  {Host Name} set top\n"
            "/Setup/Audio\nVolume 8\n");
}

TEST(ConfigSetValue, NewKeyReturnsOneAndGoesAfterTheOthers) {
  ConfigFile file(kExample);
  ASSERT_EQ(file.Store().SetKeyPath("/Setup/Audio"), 1);
  EXPECT_EQ(file.Store().SetValue("Balance", "0"), 1);
  std::unique_ptr<NuvConfigIterator> pairs(file.Store().Enumerate());
  char* key = nullptr;
  char* value = nullptr;
  pairs->Next();
  ASSERT_EQ(pairs->Current(&key, &value), 1);
  EXPECT_STREQ(key, "Balance");
  EXPECT_STREQ(value, "0");
}

TEST(ConfigSetValue, WithoutASectionReturnsZero) {
  ConfigFile file(kExample);
  EXPECT_EQ(file.Store().SetValue("A", "1"), 0);
  file.Store().Sync(true);
  EXPECT_EQ(ReadFile(file.Path()), kExample);
}

TEST(ConfigSetValue, ValueMayBeTheStoresOwnText) {
  ConfigFile file(kExample);
  ASSERT_EQ(file.Store().SetKeyPath("/Setup/Audio"), 1);
  EXPECT_EQ(file.Store().SetValue("Volume", file.Store().FindValue("Volume")), 0);
  EXPECT_STREQ(file.Store().FindValue("Volume"), "7");
}

TEST(ConfigRelease, KeepsTheSectionAndDropsTheDirtyMark) {
  ConfigFile file(kExample);
  ASSERT_EQ(file.Store().SetKeyPath("/Setup/Audio"), 1);
  file.Store().SetValue("Volume", "8");
  file.Store().Release();
  file.Store().Sync(true);
  EXPECT_EQ(ReadFile(file.Path()), kExample);
  EXPECT_STREQ(file.Store().FindValue("Volume"), "8");
}

TEST(ConfigIterator, WalksThePairsInFileOrder) {
  ConfigFile file(kExample);
  ASSERT_EQ(file.Store().SetKeyPath("/Setup/Network"), 1);
  std::unique_ptr<NuvConfigIterator> pairs(file.Store().Enumerate());
  ASSERT_NE(pairs, nullptr);
  std::string seen;
  char* key = nullptr;
  char* value = nullptr;
  for (; pairs->Current(&key, &value) == 1; pairs->Next()) {
    seen += std::string(key) + "=" + value + ";";
  }
  EXPECT_EQ(seen, "Address=10.0.0.2;{Host Name}=set top;");
}

TEST(ConfigIterator, EnumerateWithoutASectionIsNull) {
  ConfigFile file(kExample);
  EXPECT_EQ(file.Store().Enumerate(), nullptr);
}

TEST(ConfigIterator, CurrentAtTheEndReturnsZeroAndLeavesOutputsUntouched) {
  NuvConfigIterator end(nullptr);
  char keyText[] = "k";
  char valueText[] = "v";
  char* key = keyText;
  char* value = valueText;
  EXPECT_EQ(end.Current(&key, &value), 0);
  end.Next();
  EXPECT_EQ(key, keyText);
  EXPECT_EQ(value, valueText);
}

}  // namespace
