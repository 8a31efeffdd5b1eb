/// \file The configuration store's C interface, driven from C++ with its process-wide state
/// reset around each test.
#include <nuv/cbase.h>

#include <string>

#include <gtest/gtest.h>

#include "config/cbase_state.h"
#include "config/config_files.h"

namespace {

using nuv::test::ReadFile;
using nuv::test::ScratchDir;
using nuv::test::VeldRootScope;
using nuv::test::WriteFile;

constexpr const char* kExample =
    "/Setup/Network\n"
    "  Address 10.0.0.2\n"
    "/Setup/Audio\n"
    "  Volume 7\n"
    "  Balance 0\n";

// Every test starts as a fresh process does, with neither store nor iterator.
class ConfigCInterface : public ::testing::Test {
 protected:
  void SetUp() override {
    Reset();
    WriteFile(pathM, kExample);
  }
  void TearDown() override { Reset(); }
  static void Reset() {
    delete CBIterator;
    CBIterator = nullptr;
    delete CBase;
    CBase = nullptr;
  }
  const std::string& Path() const { return pathM; }
  const ScratchDir& Dir() const { return dirM; }

 private:
  VeldRootScope rootM{std::nullopt};
  ScratchDir dirM;
  std::string pathM{dirM.File("x.cfg")};
};

TEST_F(ConfigCInterface, EverythingFailsQuietlyWithoutAStore) {
  char* key = nullptr;
  char* value = nullptr;
  EXPECT_EQ(CBaseSetKeyPath("/Setup/Audio"), 0);
  EXPECT_EQ(CBaseSetValue("Volume", "8"), 0);
  EXPECT_EQ(CBaseFindValue("Volume"), nullptr);
  EXPECT_EQ(CBaseFindKeyByValue("7"), nullptr);
  CBaseSync();
  CBaseRelease();
  CBaseIterate();
  EXPECT_EQ(CBaseNext(&key, &value), 0);
  EXPECT_EQ(CBase, nullptr);
  EXPECT_EQ(ReadFile(Path()), kExample);
}

TEST_F(ConfigCInterface, NextAfterTheLastPairReturnsZeroAndLeavesOutputsUntouched) {
  CBaseSetFile(Path().c_str());
  ASSERT_EQ(CBaseSetKeyPath("/Setup/Audio"), 1);
  CBaseIterate();
  char* key = nullptr;
  char* value = nullptr;
  ASSERT_EQ(CBaseNext(&key, &value), 1);
  EXPECT_STREQ(key, "Volume");
  EXPECT_STREQ(value, "7");
  ASSERT_EQ(CBaseNext(&key, &value), 1);
  EXPECT_STREQ(key, "Balance");
  char* const lastKey = key;
  char* const lastValue = value;
  EXPECT_EQ(CBaseNext(&key, &value), 0);
  EXPECT_EQ(key, lastKey);
  EXPECT_EQ(value, lastValue);
}

TEST_F(ConfigCInterface, SameFileNameKeepsTheStoreAndItsChanges) {
  CBaseSetFile(Path().c_str());
  NuvConfigbase* const store = CBase;
  ASSERT_EQ(CBaseSetKeyPath("/Setup/Audio"), 1);
  CBaseSetValue("Volume", "8");
  CBaseSetFile(Path().c_str());
  EXPECT_EQ(CBase, store);
  EXPECT_STREQ(CBaseFindValue("Volume"), "8");
}

TEST_F(ConfigCInterface, OtherFileNameReplacesTheStoreAndDropsTheIteration) {
  CBaseSetFile(Path().c_str());
  ASSERT_EQ(CBaseSetKeyPath("/Setup/Audio"), 1);
  CBaseIterate();
  ASSERT_NE(CBIterator, nullptr);
  const std::string other = Dir().File("other.cfg");
  CBaseSetFile(other.c_str());
  EXPECT_EQ(CBIterator, nullptr);
  EXPECT_STREQ(CBase->Path(), other.c_str());
  EXPECT_EQ(CBaseFindValue("Volume"), nullptr);
}

TEST_F(ConfigCInterface, AbsoluteNameUnderVeldRootRebuildsTheStoreAndLosesChanges) {
  const VeldRootScope root(Dir().Path());
  CBaseSetFile("/x.cfg");
  ASSERT_EQ(CBaseSetKeyPath("/Setup/Audio"), 1);
  CBaseSetValue("Volume", "8");
  CBaseSetFile("/x.cfg");
  EXPECT_EQ(CBaseFindValue("Volume"), nullptr);
  ASSERT_EQ(CBaseSetKeyPath("/Setup/Audio"), 1);
  EXPECT_STREQ(CBaseFindValue("Volume"), "7");
}

TEST_F(ConfigCInterface, SetKeyPathDropsTheIteration) {
  CBaseSetFile(Path().c_str());
  ASSERT_EQ(CBaseSetKeyPath("/Setup/Audio"), 1);
  CBaseIterate();
  EXPECT_EQ(CBaseSetKeyPath("/Setup/Audio"), 1);
  char* key = nullptr;
  char* value = nullptr;
  EXPECT_EQ(CBaseNext(&key, &value), 0);
  EXPECT_EQ(CBaseSetKeyPath("/Missing"), 0);
}

TEST_F(ConfigCInterface, SetValueReportsOnlyAnAddedKey) {
  CBaseSetFile(Path().c_str());
  ASSERT_EQ(CBaseSetKeyPath("/Setup/Audio"), 1);
  EXPECT_EQ(CBaseSetValue("Volume", "8"), 0);
  EXPECT_EQ(CBaseSetValue("Treble", "2"), 1);
  EXPECT_STREQ(CBaseFindKeyByValue("8"), "Volume");
}

TEST_F(ConfigCInterface, SyncWritesTheSectionAndClosesTheFile) {
  CBaseSetFile(Path().c_str());
  ASSERT_EQ(CBaseSetKeyPath("/Setup/Network"), 1);
  CBaseSetValue("Address", "10.0.0.3");
  CBaseSync();
  EXPECT_EQ(ReadFile(Path()),
            "/Setup/Network\nAddress 10.0.0.3\n/Setup/Audio\n  Volume 7\n  Balance 0\n");
  CBaseSetValue("Gateway", "10.0.0.1");
  CBaseSync();
  EXPECT_EQ(ReadFile(Path()), "/Setup/Network\nAddress 10.0.0.3\nGateway 10.0.0.1\n");
}

TEST_F(ConfigCInterface, ReleaseDropsTheChangesFromTheNextSync) {
  CBaseSetFile(Path().c_str());
  ASSERT_EQ(CBaseSetKeyPath("/Setup/Audio"), 1);
  CBaseSetValue("Volume", "8");
  CBaseRelease();
  CBaseSync();
  EXPECT_EQ(ReadFile(Path()), kExample);
}

TEST_F(ConfigCInterface, IterateWithoutASectionGivesNoIteration) {
  CBaseSetFile(Path().c_str());
  CBaseIterate();
  EXPECT_EQ(CBIterator, nullptr);
}

TEST_F(ConfigCInterface, CloseLeavesBothVariablesAsTheyAre) {
  CBaseSetFile(Path().c_str());
  ASSERT_EQ(CBaseSetKeyPath("/Setup/Audio"), 1);
  CBaseIterate();
  NuvConfigbase* const store = CBase;
  NuvConfigIterator* const iterator = CBIterator;
  CBaseClose();
  EXPECT_EQ(CBase, store);
  EXPECT_EQ(CBIterator, iterator);
  CBase = nullptr;  // destroyed by CBaseClose; TearDown must not destroy it again
}

TEST_F(ConfigCInterface, CloseWithoutAStoreDropsTheIteration) {
  CBIterator = new NuvConfigIterator(nullptr);
  CBaseClose();
  EXPECT_EQ(CBIterator, nullptr);
}

}  // namespace
