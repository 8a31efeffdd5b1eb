/// \file NuvIdArray: growth, indexing, extension, removal and the pool blocks it uses.
#include <nuv/array.h>

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "support/fatal_report.h"
#include "support/pool_usage.h"
#include "support/private_pool.h"

namespace {

using nuv::test::ExpectLibraryAssertion;
using nuv::test::InUse;
using nuv::test::PrivatePoolTest;
using nuv::test::RunToFatalReport;

class IdArray : public PrivatePoolTest {};

std::vector<unsigned long> Elements(const NuvIdArray& ids) {
  std::vector<unsigned long> elements;
  elements.reserve(static_cast<size_t>(ids.Count()));
  for (int i = 0; i < ids.Count(); ++i) {
    elements.push_back(ids[i]);
  }
  return elements;
}

void AddRange(NuvIdArray& ids, unsigned long first, unsigned long last) {
  for (unsigned long id = first; id <= last; ++id) {
    ids.Add(id);
  }
}

TEST_F(IdArray, NewArrayIsEmptyAndTakesNoStorage) {
  const NuvIdArray ids(Pool());
  EXPECT_EQ(ids.Count(), 0);
  EXPECT_EQ(ids.Capacity(), 0);
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(IdArray, FirstAddTakesEightSlotsInOneBlockOfTheLibrary) {
  NuvIdArray ids(Pool());
  const unsigned before = NuvBlocks();
  ids.Add(42);
  EXPECT_EQ(ids.Capacity(), 8);
  EXPECT_EQ(ids.Count(), 1);
  EXPECT_EQ(NuvBlocks(), before + 1);
}

TEST_F(IdArray, NineIdentifiersLeaveCapacitySixteenAndTheSeventeenthGivesThirtyTwo) {
  NuvIdArray ids(Pool());
  AddRange(ids, 1, 9);
  EXPECT_EQ(ids.Capacity(), 16);
  AddRange(ids, 10, 16);
  EXPECT_EQ(ids.Capacity(), 16);
  ids.Add(17);
  EXPECT_EQ(ids.Capacity(), 32);
  EXPECT_EQ(ids.Count(), 17);
}

TEST_F(IdArray, GrowingKeepsTheIdentifiersInOrderAndOneBlock) {
  NuvIdArray ids(Pool());
  const unsigned before = NuvBlocks();
  AddRange(ids, 100, 119);
  std::vector<unsigned long> expected(20);
  std::iota(expected.begin(), expected.end(), 100UL);
  EXPECT_EQ(Elements(ids), expected);
  EXPECT_EQ(NuvBlocks(), before + 1);
}

TEST_F(IdArray, ExpandDoublesTheCapacityAndCopiesTheElements) {
  NuvIdArray ids(Pool());
  AddRange(ids, 1, 3);
  ids.Expand();
  EXPECT_EQ(ids.Capacity(), 16);
  ids.Expand();
  EXPECT_EQ(ids.Capacity(), 32);
  EXPECT_EQ(ids.Count(), 3);
  EXPECT_EQ(Elements(ids), (std::vector<unsigned long>{1, 2, 3}));
}

TEST_F(IdArray, ExpandOfAnEmptyArrayGivesEightSlotsAndNoElements) {
  NuvIdArray ids(Pool());
  ids.Expand();
  EXPECT_EQ(ids.Capacity(), 8);
  EXPECT_EQ(ids.Count(), 0);
}

TEST_F(IdArray, IndexWritesIntoTheElement) {
  NuvIdArray ids(Pool());
  AddRange(ids, 1, 3);
  ids[1] = 77;
  EXPECT_EQ(Elements(ids), (std::vector<unsigned long>{1, 77, 3}));
}

TEST_F(IdArray, ConstIndexReadsTheElement) {
  NuvIdArray ids(Pool());
  AddRange(ids, 5, 7);
  const NuvIdArray& view = ids;
  EXPECT_EQ(view[0], 5UL);
  EXPECT_EQ(view[2], 7UL);
}

TEST_F(IdArray, IndexAtCountFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           NuvIdArray ids(Pool());
                           AddRange(ids, 1, 3);
                           ids[3] = 0;
                         }),
                         "__vc", 210);
}

TEST_F(IdArray, NegativeIndexFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           NuvIdArray ids(Pool());
                           AddRange(ids, 1, 3);
                           ids[-1] = 0;
                         }),
                         "__vc", 210);
}

TEST_F(IdArray, ConstIndexAtCountFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           NuvIdArray ids(Pool());
                           ids.Expand();
                           const NuvIdArray& view = ids;
                           ids.Add(view[0]);
                         }),
                         "__vc", 210);
}

TEST_F(IdArray, ExtendAddsZerosUpToTheCount) {
  NuvIdArray ids(Pool());
  ids.Add(9);
  ids.Extend(4);
  EXPECT_EQ(Elements(ids), (std::vector<unsigned long>{9, 0, 0, 0}));
}

TEST_F(IdArray, ExtendNeverShrinks) {
  NuvIdArray ids(Pool());
  AddRange(ids, 1, 5);
  ids.Extend(2);
  EXPECT_EQ(ids.Count(), 5);
}

TEST_F(IdArray, RemoveShiftsTheFollowingElementsDown) {
  NuvIdArray ids(Pool());
  AddRange(ids, 1, 6);
  ids.Remove(1, 2);
  EXPECT_EQ(Elements(ids), (std::vector<unsigned long>{1, 4, 5, 6}));
}

TEST_F(IdArray, RemoveOfTheLastElementsLeavesTheFirst) {
  NuvIdArray ids(Pool());
  AddRange(ids, 1, 4);
  ids.Remove(2, 2);
  EXPECT_EQ(Elements(ids), (std::vector<unsigned long>{1, 2}));
}

TEST_F(IdArray, RemoveKeepsTheCapacity) {
  NuvIdArray ids(Pool());
  AddRange(ids, 1, 9);
  ids.Remove(0, 9);
  EXPECT_EQ(ids.Count(), 0);
  EXPECT_EQ(ids.Capacity(), 16);
}

TEST_F(IdArray, RemoveOfNoneAtTheCountIsAcceptedAndChangesNothing) {
  NuvIdArray ids(Pool());
  AddRange(ids, 1, 3);
  ids.Remove(ids.Count(), 0);
  EXPECT_EQ(Elements(ids), (std::vector<unsigned long>{1, 2, 3}));
}

TEST_F(IdArray, RemovingMoreThanTheCountFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           NuvIdArray ids(Pool());
                           AddRange(ids, 1, 3);
                           ids.Remove(0, ids.Count() + 1);
                         }),
                         "Remove", 211);
}

TEST_F(IdArray, RemoveAtANegativeIndexFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           NuvIdArray ids(Pool());
                           AddRange(ids, 1, 3);
                           ids.Remove(-1, 1);
                         }),
                         "Remove", 211);
}

TEST_F(IdArray, FillingAndDestroyingGivesBackEveryBlock) {
  {
    NuvIdArray ids(Pool());
    AddRange(ids, 1, 40);
    ids.Extend(70);
    ids.Remove(3, 50);
    ids.Expand();
  }
  EXPECT_EQ(InUse(Pool()), Start());
}

}  // namespace
