/// \file NuvGenericArray: growth, slots with reference semantics, removal, search, sorting, and
/// the references and pool blocks it gives back.
#include <nuv/array.h>

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "support/core_item.h"
#include "support/fatal_report.h"
#include "support/pool_usage.h"
#include "support/private_pool.h"

namespace {

using nuv::test::CoreItem;
using nuv::test::ExpectLibraryAssertion;
using nuv::test::InUse;
using nuv::test::PrivatePoolTest;
using nuv::test::RunToFatalReport;

// Value shown for a null slot.
constexpr int kNull = -1;

class GenericArray : public PrivatePoolTest {
 protected:
  ref<CoreItem> Item(int value) const { return new (Pool()) CoreItem(value); }
  std::vector<ref<CoreItem>> Items(int count) const {
    std::vector<ref<CoreItem>> items;
    items.reserve(static_cast<size_t>(count));
    for (int value = 0; value < count; ++value) {
      items.push_back(Item(value));
    }
    return items;
  }
};

std::vector<int> Values(NuvGenericArray& array) {
  std::vector<int> values;
  values.reserve(static_cast<size_t>(array.Count()));
  for (int i = 0; i < array.Count(); ++i) {
    const auto* item = dynamic_cast<const CoreItem*>(array[i]);
    values.push_back(item == nullptr ? kNull : item->Value());
  }
  return values;
}

std::vector<unsigned> RefCounts(const std::vector<ref<CoreItem>>& items) {
  std::vector<unsigned> counts;
  counts.reserve(items.size());
  for (const ref<CoreItem>& item : items) {
    counts.push_back(item->GetRefCount());
  }
  return counts;
}

void AddAll(NuvGenericArray& array, const std::vector<ref<CoreItem>>& items) {
  for (const ref<CoreItem>& item : items) {
    array.Add(item.get());
  }
}

int ByValue(NuvCore** a, NuvCore** b) {
  return dynamic_cast<CoreItem*>(*a)->Value() - dynamic_cast<CoreItem*>(*b)->Value();
}

TEST_F(GenericArray, NewArrayIsEmptyAndTakesNoStorage) {
  const NuvGenericArray array(Pool());
  EXPECT_EQ(array.Count(), 0);
  EXPECT_EQ(array.Capacity(), 0);
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(GenericArray, AddTakesOneReferencePerSlot) {
  const ref<CoreItem> item = Item(1);
  NuvGenericArray array(Pool());
  array.Add(item.get());
  array.Add(item.get());
  EXPECT_EQ(item->GetRefCount(), 3U);
  EXPECT_EQ(Values(array), (std::vector<int>{1, 1}));
}

TEST_F(GenericArray, AddAcceptsNull) {
  NuvGenericArray array(Pool());
  array.Add(nullptr);
  EXPECT_EQ(Values(array), (std::vector<int>{kNull}));
}

TEST_F(GenericArray, FirstAddTakesEightSlotsInOneBlockOfTheLibrary) {
  const ref<CoreItem> item = Item(1);
  NuvGenericArray array(Pool());
  const unsigned before = NuvBlocks();
  array.Add(item.get());
  EXPECT_EQ(array.Capacity(), 8);
  EXPECT_EQ(NuvBlocks(), before + 1);
}

TEST_F(GenericArray, NineElementsLeaveCapacitySixteenAndTheSeventeenthGivesThirtyTwo) {
  NuvGenericArray array(Pool());
  array.Extend(9);
  EXPECT_EQ(array.Capacity(), 16);
  array.Extend(16);
  EXPECT_EQ(array.Capacity(), 16);
  array.Add(nullptr);
  EXPECT_EQ(array.Capacity(), 32);
}

TEST_F(GenericArray, GrowingKeepsTheOrderAndTheReferenceCounts) {
  const std::vector<ref<CoreItem>> items = Items(20);
  NuvGenericArray array(Pool());
  AddAll(array, items);
  std::vector<int> expected(20);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(Values(array), expected);
  EXPECT_EQ(RefCounts(items), std::vector<unsigned>(20, 2));
}

TEST_F(GenericArray, ExpandCopiesTheSlotsAndKeepsTheReferenceCounts) {
  const std::vector<ref<CoreItem>> items = Items(3);
  NuvGenericArray array(Pool());
  AddAll(array, items);
  array.Add(nullptr);
  const unsigned before = NuvBlocks();
  array.Expand();
  EXPECT_EQ(array.Capacity(), 16);
  EXPECT_EQ(Values(array), (std::vector<int>{0, 1, 2, kNull}));
  EXPECT_EQ(RefCounts(items), std::vector<unsigned>(3, 2));
  EXPECT_EQ(NuvBlocks(), before);
}

TEST_F(GenericArray, ExtendAddsNullSlotsUpToTheCount) {
  const ref<CoreItem> item = Item(4);
  NuvGenericArray array(Pool());
  array.Add(item.get());
  array.Extend(3);
  EXPECT_EQ(Values(array), (std::vector<int>{4, kNull, kNull}));
  array.Extend(1);
  EXPECT_EQ(array.Count(), 3);
}

TEST_F(GenericArray, IndexGivesTheSlotItselfForWritesWithReferenceSemantics) {
  const ref<CoreItem> first = Item(1);
  const ref<CoreItem> second = Item(2);
  {
    NuvGenericArray array(Pool());
    array.Add(first.get());
    NuvCore*& slot = array[0];
    second->UpRef();
    NuvCore* old = slot;
    slot = second.get();
    old->DownRef();
    EXPECT_EQ(Values(array), (std::vector<int>{2}));
    EXPECT_EQ(first->GetRefCount(), 1U);
    EXPECT_EQ(second->GetRefCount(), 2U);
  }
  EXPECT_EQ(second->GetRefCount(), 1U);
}

TEST_F(GenericArray, IndexAtCountFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           NuvGenericArray array(Pool());
                           array.Extend(2);
                           array[2] = nullptr;
                         }),
                         "__vc", 220);
}

TEST_F(GenericArray, NegativeIndexFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           NuvGenericArray array(Pool());
                           array.Extend(2);
                           array[-1] = nullptr;
                         }),
                         "__vc", 220);
}

TEST_F(GenericArray, RemoveShiftsTheFollowingSlotsDownAndDropsOneReferencePerRemovedElement) {
  const std::vector<ref<CoreItem>> items = Items(5);
  NuvGenericArray array(Pool());
  AddAll(array, items);
  array.Remove(1, 2);
  EXPECT_EQ(Values(array), (std::vector<int>{0, 3, 4}));
  EXPECT_EQ(RefCounts(items), (std::vector<unsigned>{2, 1, 1, 2, 2}));
}

TEST_F(GenericArray, RemoveOfNullSlotsKeepsTheOthersCounts) {
  const std::vector<ref<CoreItem>> items = Items(2);
  NuvGenericArray array(Pool());
  array.Add(items[0].get());
  array.Extend(3);
  array.Add(items[1].get());
  array.Remove(1, 2);
  EXPECT_EQ(Values(array), (std::vector<int>{0, 1}));
  EXPECT_EQ(RefCounts(items), (std::vector<unsigned>{2, 2}));
}

TEST_F(GenericArray, RemoveOfNoneAtTheCountIsAcceptedAndChangesNothing) {
  const std::vector<ref<CoreItem>> items = Items(3);
  NuvGenericArray array(Pool());
  AddAll(array, items);
  array.Remove(array.Count(), 0);
  EXPECT_EQ(Values(array), (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(RefCounts(items), std::vector<unsigned>(3, 2));
}

TEST_F(GenericArray, RemovingMoreThanTheCountFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           NuvGenericArray array(Pool());
                           array.Extend(3);
                           array.Remove(0, array.Count() + 1);
                         }),
                         "Remove", 221);
}

TEST_F(GenericArray, RemoveAtANegativeIndexFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           NuvGenericArray array(Pool());
                           array.Extend(3);
                           array.Remove(-1, 1);
                         }),
                         "Remove", 221);
}

TEST_F(GenericArray, RemoveOfAnItemRemovesEveryOccurrenceAndKeepsTheOthersInOrder) {
  const std::vector<ref<CoreItem>> items = Items(4);
  const ref<CoreItem>& x = items[3];
  NuvGenericArray array(Pool());
  array.Add(items[0].get());
  array.Add(x.get());
  array.Add(items[1].get());
  array.Add(x.get());
  array.Add(items[2].get());
  array.Remove(x.get());
  EXPECT_EQ(Values(array), (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(RefCounts(items), (std::vector<unsigned>{2, 2, 2, 1}));
}

TEST_F(GenericArray, RemoveOfAnItemGoesByIdentityNotByValue) {
  const ref<CoreItem> item = Item(7);
  const ref<CoreItem> twin = Item(7);
  NuvGenericArray array(Pool());
  array.Add(item.get());
  array.Remove(twin.get());
  EXPECT_EQ(array.Count(), 1);
  EXPECT_EQ(item->GetRefCount(), 2U);
}

TEST_F(GenericArray, RemoveOfNullRemovesTheNullSlots) {
  const ref<CoreItem> item = Item(7);
  NuvGenericArray array(Pool());
  array.Extend(2);
  array.Add(item.get());
  array.Add(nullptr);
  array.Remove(nullptr);
  EXPECT_EQ(Values(array), (std::vector<int>{7}));
}

TEST_F(GenericArray, FContainsFindsTheSameObjectOnly) {
  const ref<CoreItem> item = Item(7);
  const ref<CoreItem> twin = Item(7);
  NuvGenericArray array(Pool());
  EXPECT_FALSE(array.FContains(item.get()));
  array.Add(nullptr);
  array.Add(item.get());
  EXPECT_TRUE(array.FContains(item.get()));
  EXPECT_FALSE(array.FContains(twin.get()));
}

TEST_F(GenericArray, SortOrdersTheSlotsByTheComparisonAndKeepsTheCounts) {
  std::vector<ref<CoreItem>> items;
  for (const int value : {5, 3, 9, 1, 3, 7}) {
    items.push_back(Item(value));
  }
  NuvGenericArray array(Pool());
  AddAll(array, items);
  array.Sort(ByValue);
  EXPECT_EQ(Values(array), (std::vector<int>{1, 3, 3, 5, 7, 9}));
  EXPECT_EQ(RefCounts(items), std::vector<unsigned>(6, 2));
}

TEST_F(GenericArray, SortOfAnEmptyArrayDoesNothing) {
  NuvGenericArray array(Pool());
  array.Sort(ByValue);
  EXPECT_EQ(array.Count(), 0);
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(GenericArray, DestroyingDropsEveryElementsReference) {
  const std::vector<ref<CoreItem>> items = Items(3);
  {
    NuvGenericArray array(Pool());
    AddAll(array, items);
    AddAll(array, items);
  }
  EXPECT_EQ(RefCounts(items), std::vector<unsigned>(3, 1));
}

TEST_F(GenericArray, FillingAndEmptyingGivesBackEveryBlockAndReference) {
  {
    const std::vector<ref<CoreItem>> items = Items(12);
    {
      NuvGenericArray array(Pool());
      AddAll(array, items);
      array.Extend(30);
      array.Expand();
      AddAll(array, items);
      array.Remove(items[4].get());
      array.Remove(2, 20);
      array.Remove(0, array.Count());
    }
    EXPECT_EQ(RefCounts(items), std::vector<unsigned>(12, 1));
  }
  EXPECT_EQ(InUse(Pool()), Start());
}

}  // namespace
