/// \file NuvConfigbase::Sync: the exact bytes of the file after each kind of rewrite.
#include <nuv/configbase.h>

#include <string>

#include <gtest/gtest.h>

#include "config/config_files.h"

namespace {

using nuv::test::FExists;
using nuv::test::ReadFile;
using nuv::test::ScratchDir;
using nuv::test::VeldRootScope;
using nuv::test::WriteFile;

constexpr const char* kThreeSections =
    "# devices\n"
    "/A\n"
    "  a 1\n"
    "/B\n"
    "  b 2\n"
    "  c 3\n"
    "/C\n"
    "  d 4\n";

// The middle section /B holds a comment and a blank line before its last pair.
constexpr const char* kCommentInSection =
    "/A\n"
    "  a 1\n"
    "/B\n"
    "  b 2\n"
    "# note\n"
    "\n"
    "  c 3\n"
    "/C\n"
    "  d 4\n";

class ConfigSync : public ::testing::Test {
 protected:
  void Write(const std::string& contents) { WriteFile(pathM, contents); }
  std::string Contents() const { return ReadFile(pathM).value_or("<missing>"); }
  const std::string& Path() const { return pathM; }
  NuvConfigbase& Store() { return storeM; }

 private:
  VeldRootScope rootM{std::nullopt};
  ScratchDir dirM;
  std::string pathM{dirM.File("x.cfg")};
  NuvConfigbase storeM{pathM.c_str()};
};

TEST_F(ConfigSync, ChangedSectionInTheMiddleIsRewrittenInPlace) {
  Write(kThreeSections);
  ASSERT_EQ(Store().SetKeyPath("/B"), 1);
  Store().SetValue("c", "9");
  Store().Sync(true);
  EXPECT_EQ(Contents(), "# devices\n/A\n  a 1\n/B\nb 2\nc 9\n/C\n  d 4\n");
}

TEST_F(ConfigSync, NewSectionIsWrittenAtTheEnd) {
  Write(kThreeSections);
  ASSERT_EQ(Store().MakeKeyPath("/D"), 1);
  Store().SetValue("e", "5");
  Store().Sync(true);
  EXPECT_EQ(Contents(), std::string(kThreeSections) + "/D\ne 5\n");
}

TEST_F(ConfigSync, LinesAfterCommentsInASectionAreCopiedAgain) {
  Write(kCommentInSection);
  ASSERT_EQ(Store().SetKeyPath("/B"), 1);
  Store().SetValue("c", "9");
  Store().Sync(true);
  EXPECT_EQ(Contents(), "/A\n  a 1\n/B\nb 2\nc 9\n\n  c 3\n/C\n  d 4\n");
}

TEST_F(ConfigSync, CopiedAgainPairLinesStayInTheSectionBehindTheNewValue) {
  Write(kCommentInSection);
  ASSERT_EQ(Store().SetKeyPath("/B"), 1);
  Store().SetValue("c", "9");
  Store().Sync(true);
  NuvConfigbase reread(Path().c_str());
  ASSERT_EQ(reread.SetKeyPath("/B"), 1);
  EXPECT_STREQ(reread.FindValue("c"), "9");
  ASSERT_EQ(reread.SetKeyPath("/C"), 1);
  EXPECT_STREQ(reread.FindValue("d"), "4");
}

TEST_F(ConfigSync, SyncWithoutClosingThenMoreChangesRewritesTheSameSection) {
  Write(kThreeSections);
  ASSERT_EQ(Store().SetKeyPath("/B"), 1);
  Store().SetValue("c", "9");
  Store().Sync(false);
  EXPECT_EQ(Contents(), "# devices\n/A\n  a 1\n/B\nb 2\nc 9\n/C\n  d 4\n");
  Store().SetValue("b", "7");
  Store().SetValue("n", "1");
  Store().Sync(false);
  EXPECT_EQ(Contents(), "# devices\n/A\n  a 1\n/B\nb 7\nc 9\nn 1\n/C\n  d 4\n");
  Store().SetValue("n", "2");
  Store().Sync(true);
  EXPECT_EQ(Contents(), "# devices\n/A\n  a 1\n/B\nb 7\nc 9\nn 2\n/C\n  d 4\n");
}

TEST_F(ConfigSync, SyncWithoutClosingKeepsCopiedAgainLinesFromMultiplying) {
  Write(kCommentInSection);
  ASSERT_EQ(Store().SetKeyPath("/B"), 1);
  Store().SetValue("c", "9");
  Store().Sync(false);
  Store().SetValue("b", "8");
  Store().Sync(true);
  EXPECT_EQ(Contents(), "/A\n  a 1\n/B\nb 8\nc 9\n\n  c 3\n/C\n  d 4\n");
}

TEST_F(ConfigSync, SyncWithoutClosingLeavesTheRewrittenFileReadable) {
  Write(kThreeSections);
  ASSERT_EQ(Store().SetKeyPath("/B"), 1);
  Store().SetValue("c", "9");
  Store().Sync(false);
  ASSERT_EQ(Store().SetKeyPath("/C"), 1);
  EXPECT_STREQ(Store().FindValue("d"), "4");
  ASSERT_EQ(Store().SetKeyPath("/B"), 1);
  EXPECT_STREQ(Store().FindValue("c"), "9");
}

TEST_F(ConfigSync, ChangeAfterSyncAndCloseWritesAFileOfThatSectionAlone) {
  Write(kThreeSections);
  ASSERT_EQ(Store().SetKeyPath("/B"), 1);
  Store().SetValue("c", "9");
  Store().Sync(true);
  Store().SetValue("x", "1");
  Store().Sync(true);
  EXPECT_EQ(Contents(), "/B\nb 2\nc 9\nx 1\n");
}

TEST_F(ConfigSync, NothingIsWrittenWhenNotDirty) {
  Write(kThreeSections);
  ASSERT_EQ(Store().SetKeyPath("/B"), 1);
  Store().Sync(true);
  EXPECT_EQ(Contents(), kThreeSections);
}

TEST_F(ConfigSync, EmptySectionIsNotWrittenEvenWhenDirty) {
  Write("/A\n  a 1\n/Empty\n");
  ASSERT_EQ(Store().SetKeyPath("/A"), 1);
  Store().SetValue("a", "2");
  ASSERT_EQ(Store().SetKeyPath("/Empty"), 1);
  Store().Sync(true);
  EXPECT_EQ(Contents(), "/A\n  a 1\n/Empty\n");
}

TEST_F(ConfigSync, NoTemporaryIsLeftBehind) {
  Write(kThreeSections);
  ASSERT_EQ(Store().SetKeyPath("/A"), 1);
  Store().SetValue("a", "2");
  Store().Sync(true);
  EXPECT_FALSE(FExists(Path() + ".cbup"));
}

TEST_F(ConfigSync, FileWithoutAFinalNewlineRunsIntoTheNewHeader) {
  Write("/A\n  a 1");
  ASSERT_EQ(Store().MakeKeyPath("/D"), 1);
  Store().SetValue("e", "5");
  Store().Sync(true);
  EXPECT_EQ(Contents(), "/A\n  a 1/D\ne 5\n");
}

}  // namespace
