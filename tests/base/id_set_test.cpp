/// \file NuvIdSet: identifiers newest first, duplicates ignored, removal under a cursor, the
/// checked cursor and index, and the pool blocks it gives back.
#include <nuv/id_set.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <vector>

#include "support/fatal_report.h"
#include "support/pool_usage.h"
#include "support/private_pool.h"

namespace {

using nuv::test::ExpectLibraryAssertion;
using nuv::test::InfoWord;
using nuv::test::InUse;
using nuv::test::PrivatePoolTest;
using nuv::test::RunToFatalReport;

unsigned NuvBlocksOf(const NuvMempool* pool) {
  return InfoWord(pool, NuvMempoolInfo::kUserBlocks + NuvMempool::nuv);
}

class IdSet : public PrivatePoolTest {
 protected:
  // A new set holding ids, added in their order.
  ref<NuvIdSet> Set(const std::vector<unsigned long>& ids) const {
    ref<NuvIdSet> set = new (Pool()) NuvIdSet();
    for (const unsigned long id : ids) {
      set->Add(id);
    }
    return set;
  }
};

// The identifiers of a whole walk from Start.
std::vector<unsigned long> Walk(NuvIdSet& set) {
  std::vector<unsigned long> ids;
  for (set.Start(); set.FCurrent(); set.Next()) {
    ids.push_back(set.Current());
  }
  return ids;
}

TEST_F(IdSet, NewSetIsEmptyWithNothingToWalk) {
  const ref<NuvIdSet> set = Set({});
  EXPECT_TRUE(set->FEmpty());
  EXPECT_TRUE(Walk(*set).empty());
}

TEST_F(IdSet, WalkRunsFromTheNewestIdToTheOldest) {
  const ref<NuvIdSet> set = Set({4, 9, 2, 7});
  EXPECT_FALSE(set->FEmpty());
  EXPECT_EQ(Walk(*set), (std::vector<unsigned long>{7, 2, 9, 4}));
}

TEST_F(IdSet, IndexCountsFromTheNewestId) {
  const ref<NuvIdSet> set = Set({1, 2, 3});
  EXPECT_EQ(set->Index(0), 3UL);
  EXPECT_EQ(set->Index(1), 2UL);
  EXPECT_EQ(set->Index(2), 1UL);
}

TEST_F(IdSet, AddingAPresentIdChangesNothing) {
  const ref<NuvIdSet> set = Set({1, 2, 3});
  const std::vector<unsigned> before = InUse(Pool());
  set->Add(2);
  EXPECT_EQ(Walk(*set), (std::vector<unsigned long>{3, 2, 1}));
  EXPECT_EQ(set->Index(0), 3UL);
  EXPECT_EQ(InUse(Pool()), before);
}

TEST_F(IdSet, FPresentTellsWhetherTheIdIsInTheSet) {
  const ref<NuvIdSet> set = Set({1, 2, 3});
  EXPECT_TRUE(set->FPresent(1));
  EXPECT_TRUE(set->FPresent(3));
  EXPECT_FALSE(set->FPresent(4));
  set->Remove(3);
  EXPECT_FALSE(set->FPresent(3));
}

TEST_F(IdSet, RemoveOfTheNewestIdLeavesTheRest) {
  const ref<NuvIdSet> set = Set({1, 2, 3});
  set->Remove(3);
  EXPECT_EQ(Walk(*set), (std::vector<unsigned long>{2, 1}));
}

TEST_F(IdSet, RemoveOfAMiddleIdLeavesTheOthersInOrder) {
  const ref<NuvIdSet> set = Set({1, 2, 3});
  set->Remove(2);
  EXPECT_EQ(Walk(*set), (std::vector<unsigned long>{3, 1}));
}

TEST_F(IdSet, RemoveOfTheOldestIdLeavesTheRest) {
  const ref<NuvIdSet> set = Set({1, 2, 3});
  set->Remove(1);
  EXPECT_EQ(Walk(*set), (std::vector<unsigned long>{3, 2}));
  set->Add(1);
  EXPECT_EQ(Walk(*set), (std::vector<unsigned long>{1, 3, 2}));
}

TEST_F(IdSet, RemoveOfAnAbsentIdChangesNothing) {
  const ref<NuvIdSet> set = Set({1, 2});
  const std::vector<unsigned> before = InUse(Pool());
  set->Remove(5);
  EXPECT_EQ(Walk(*set), (std::vector<unsigned long>{2, 1}));
  EXPECT_EQ(InUse(Pool()), before);
}

TEST_F(IdSet, RemoveOfTheOnlyIdEmptiesTheSet) {
  const ref<NuvIdSet> set = Set({8});
  set->Remove(8);
  EXPECT_TRUE(set->FEmpty());
}

TEST_F(IdSet, RemoveOnAnEmptySetDoesNothing) {
  const ref<NuvIdSet> set = Set({});
  set->Remove(1);
  EXPECT_TRUE(set->FEmpty());
}

TEST_F(IdSet, AddAndRemoveLeaveTheCursorAlone) {
  const ref<NuvIdSet> set = Set({1, 2, 3});
  set->Start();
  set->Next();
  set->Add(4);
  set->Remove(1);
  ASSERT_TRUE(set->FCurrent());
  EXPECT_EQ(set->Current(), 2UL);
}

TEST_F(IdSet, ACursorOnARemovedIdKeepsItAndStepsOn) {
  const ref<NuvIdSet> set = Set({1, 2, 3});
  set->Start();
  set->Next();
  const unsigned blocks = NuvBlocksOf(Pool());
  set->Remove(2);
  EXPECT_EQ(NuvBlocksOf(Pool()), blocks);
  EXPECT_EQ(set->Current(), 2UL);
  set->Next();
  EXPECT_EQ(NuvBlocksOf(Pool()), blocks - 1);
  ASSERT_TRUE(set->FCurrent());
  EXPECT_EQ(set->Current(), 1UL);
  EXPECT_EQ(Walk(*set), (std::vector<unsigned long>{3, 1}));
}

TEST_F(IdSet, IndexWithANegativeStepCountGivesTheNewestId) {
  const ref<NuvIdSet> set = Set({1, 2, 3});
  EXPECT_EQ(set->Index(-2), 3UL);
}

TEST_F(IdSet, CurrentWithoutACursorFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<NuvIdSet> set = Set({});
                           set->Start();
                           set->Add(set->Current());
                         }),
                         "Current", 320);
}

TEST_F(IdSet, NextPastTheOldestIdFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<NuvIdSet> set = Set({1});
                           set->Start();
                           set->Next();
                           set->Next();
                         }),
                         "Next", 321);
}

TEST_F(IdSet, IndexPastTheOldestIdFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<NuvIdSet> set = Set({1, 2, 3});
                           set->Add(set->Index(3));
                         }),
                         "Index", 322);
}

TEST_F(IdSet, IndexOfAnEmptySetFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<NuvIdSet> set = Set({});
                           set->Add(set->Index(0));
                         }),
                         "Index", 322);
}

TEST_F(IdSet, ElementsLiveInTheSetsOwnPool) {
  NuvMempool* other = nullptr;
  ASSERT_EQ(NuvMempool::Allocate("other", kPoolSize, false, nullptr, false, other), kNuvOk);
  const std::vector<unsigned> otherStart = InUse(other);
  {
    const ref<NuvIdSet> set = new (other) NuvIdSet();
    EXPECT_EQ(set->GetPool(), other);
    const unsigned blocks = NuvBlocksOf(other);
    set->Add(1);
    set->Add(2);
    EXPECT_EQ(NuvBlocksOf(other), blocks + 2);
    EXPECT_EQ(InUse(Pool()), Start());
  }
  EXPECT_EQ(InUse(other), otherStart);
  delete other;
}

TEST_F(IdSet, FillingAndEmptyingGivesBackEveryBlock) {
  {
    const ref<NuvIdSet> set = Set({});
    for (unsigned long id = 0; id < 20; ++id) {
      set->Add(id);
    }
    for (unsigned long id = 0; id < 20; ++id) {
      set->Remove(id);
    }
    EXPECT_TRUE(set->FEmpty());
    EXPECT_EQ(set->GetRefCount(), 1U);
  }
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(IdSet, ReleasingAFullSetGivesBackEveryBlockIncludingTheCursors) {
  {
    const ref<NuvIdSet> set = Set({1, 2, 3, 4});
    set->Start();
    set->Next();
    set->Remove(3);
  }
  EXPECT_EQ(InUse(Pool()), Start());
}

}  // namespace
