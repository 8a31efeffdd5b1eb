/// \file NuvGenericList: appending, walking, removing, the deliberate Clear, where elements live,
/// and the references and pool blocks it gives back.
#include <nuv/list.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

#include "support/core_item.h"
#include "support/fatal_report.h"
#include "support/pool_usage.h"
#include "support/private_pool.h"
#include "support/raw_words.h"

namespace {

using nuv::test::CoreItem;
using nuv::test::ExpectLibraryAssertion;
using nuv::test::InfoWord;
using nuv::test::InUse;
using nuv::test::PrivatePoolTest;
using nuv::test::RunToFatalReport;
using nuv::test::SetWordAt;
using nuv::test::ValueOf;

// Byte offset of the list's tail reference (after head).
constexpr unsigned kTailOffset = 4;

unsigned NuvBlocksOf(const NuvMempool* pool) {
  return InfoWord(pool, NuvMempoolInfo::kUserBlocks + NuvMempool::nuv);
}

class GenericList : public PrivatePoolTest {
 protected:
  ref<CoreItem> Item(int value) const { return new (Pool()) CoreItem(value); }
};

// The values of a whole walk from Start.
std::vector<int> Walk(NuvGenericList& list) {
  std::vector<int> values;
  for (list.Start(); list.FCurrent(); list.Next()) {
    values.push_back(ValueOf(list.Current()));
  }
  return values;
}

void AppendAll(NuvGenericList& list, std::initializer_list<NuvCore*> items) {
  for (NuvCore* item : items) {
    list.Append(item);
  }
}

// A list's first item; the list must not be empty.
int FirstOf(NuvGenericList& list) {
  list.Start();
  return ValueOf(list.Current());
}

TEST_F(GenericList, NewListHasNothingToWalk) {
  NuvGenericList list;
  list.Start();
  EXPECT_FALSE(list.FCurrent());
}

TEST_F(GenericList, WalkVisitsTheItemsInAppendOrder) {
  const ref<CoreItem> a = Item(1);
  const ref<CoreItem> b = Item(2);
  const ref<CoreItem> c = Item(3);
  NuvGenericList list;
  AppendAll(list, {a.get(), b.get(), c.get()});
  EXPECT_EQ(Walk(list), (std::vector<int>{1, 2, 3}));
}

TEST_F(GenericList, AppendTakesOneReferenceAndCurrentGivesANewOne) {
  const ref<CoreItem> item = Item(1);
  NuvGenericList list;
  list.Append(item.get());
  EXPECT_EQ(item->GetRefCount(), 2U);
  list.Start();
  const ref<NuvCore> current = list.Current();
  EXPECT_EQ(current.get(), item.get());
  EXPECT_EQ(item->GetRefCount(), 3U);
}

TEST_F(GenericList, TheSameItemCanBeAppendedTwice) {
  const ref<CoreItem> item = Item(4);
  NuvGenericList list;
  AppendAll(list, {item.get(), item.get()});
  EXPECT_EQ(Walk(list), (std::vector<int>{4, 4}));
  EXPECT_EQ(item->GetRefCount(), 3U);
}

TEST_F(GenericList, AppendEndsAnIterationUnderWay) {
  const ref<CoreItem> a = Item(1);
  const ref<CoreItem> b = Item(2);
  NuvGenericList list;
  AppendAll(list, {a.get(), b.get()});
  list.Start();
  ASSERT_TRUE(list.FCurrent());
  list.Append(a.get());
  EXPECT_FALSE(list.FCurrent());
}

TEST_F(GenericList, RemoveEndsAnIterationUnderWay) {
  const ref<CoreItem> a = Item(1);
  const ref<CoreItem> b = Item(2);
  NuvGenericList list;
  AppendAll(list, {a.get(), b.get()});
  list.Start();
  list.Remove(b.get());
  EXPECT_FALSE(list.FCurrent());
}

TEST_F(GenericList, RemoveOfTheHeadLeavesTheRest) {
  const ref<CoreItem> a = Item(1);
  const ref<CoreItem> b = Item(2);
  const ref<CoreItem> c = Item(3);
  NuvGenericList list;
  AppendAll(list, {a.get(), b.get(), c.get()});
  list.Remove(a.get());
  EXPECT_EQ(Walk(list), (std::vector<int>{2, 3}));
}

TEST_F(GenericList, RemoveOfAMiddleItemLeavesTheOthersInOrder) {
  const ref<CoreItem> a = Item(1);
  const ref<CoreItem> b = Item(2);
  const ref<CoreItem> c = Item(3);
  NuvGenericList list;
  AppendAll(list, {a.get(), b.get(), c.get()});
  list.Remove(b.get());
  EXPECT_EQ(Walk(list), (std::vector<int>{1, 3}));
}

TEST_F(GenericList, RemovingTheTailMovesTailToItsPredecessorAndTheNextAppendLinksAfterIt) {
  const ref<CoreItem> a = Item(1);
  const ref<CoreItem> b = Item(2);
  const ref<CoreItem> c = Item(3);
  const ref<CoreItem> d = Item(4);
  NuvGenericList list;
  AppendAll(list, {a.get(), b.get(), c.get()});
  list.Remove(c.get());
  list.Append(d.get());
  EXPECT_EQ(Walk(list), (std::vector<int>{1, 2, 4}));
}

TEST_F(GenericList, RemovingTheOnlyItemEmptiesTheListAndTheNextAppendStartsIt) {
  const ref<CoreItem> a = Item(1);
  const ref<CoreItem> b = Item(2);
  NuvGenericList list;
  list.Append(a.get());
  list.Remove(a.get());
  EXPECT_TRUE(Walk(list).empty());
  list.Append(b.get());
  EXPECT_EQ(Walk(list), (std::vector<int>{2}));
}

TEST_F(GenericList, RemoveTakesOnlyTheFirstElementCarryingTheItem) {
  const ref<CoreItem> a = Item(1);
  const ref<CoreItem> b = Item(2);
  NuvGenericList list;
  AppendAll(list, {a.get(), b.get(), a.get()});
  list.Remove(a.get());
  EXPECT_EQ(Walk(list), (std::vector<int>{2, 1}));
  EXPECT_EQ(a->GetRefCount(), 2U);
}

TEST_F(GenericList, RemoveDropsTheItemsReference) {
  const ref<CoreItem> a = Item(1);
  NuvGenericList list;
  list.Append(a.get());
  list.Remove(a.get());
  EXPECT_EQ(a->GetRefCount(), 1U);
}

TEST_F(GenericList, RemoveOfAnItemNotInTheListFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<CoreItem> a = Item(1);
                           const ref<CoreItem> twin = Item(1);
                           NuvGenericList list;
                           list.Append(a.get());
                           list.Remove(twin.get());
                         }),
                         "Remove", 203);
}

TEST_F(GenericList, RemoveOnAnEmptyListFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<CoreItem> a = Item(1);
                           NuvGenericList list;
                           list.Remove(a.get());
                         }),
                         "Remove", 202);
}

TEST_F(GenericList, CurrentWithoutACursorFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           NuvGenericList list;
                           list.Start();
                           list.Current();
                         }),
                         "Current", 204);
}

TEST_F(GenericList, NextPastTheLastItemFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<CoreItem> a = Item(1);
                           NuvGenericList list;
                           list.Append(a.get());
                           list.Start();
                           list.Next();
                           list.Next();
                         }),
                         "Next", 205);
}

TEST_F(GenericList, AppendOfNullFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([] {
                           NuvGenericList list;
                           list.Append(nullptr);
                         }),
                         "Append", 200);
}

TEST_F(GenericList, AppendWithAnEmptyTailButAHeadFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<CoreItem> a = Item(1);
                           NuvGenericList list;
                           list.Append(a.get());
                           // Forget the tail behind the list's back.
                           SetWordAt(reinterpret_cast<char*>(&list) + kTailOffset, 0);
                           list.Append(a.get());
                         }),
                         "Append", 201);
}

TEST_F(GenericList, ClearMakesTheListReadAsEmpty) {
  const ref<CoreItem> a = Item(1);
  const ref<CoreItem> b = Item(2);
  NuvGenericList list;
  AppendAll(list, {a.get(), b.get()});
  list.Clear();
  EXPECT_TRUE(Walk(list).empty());
}

TEST_F(GenericList, ClearReleasesTheElementsThatTheTailAndCursorDoNotHold) {
  const ref<CoreItem> a = Item(1);
  const ref<CoreItem> b = Item(2);
  const ref<CoreItem> c = Item(3);
  {
    NuvGenericList list;
    AppendAll(list, {a.get(), b.get(), c.get()});
    list.Start();
    list.Next();
    list.Clear();
    EXPECT_EQ(a->GetRefCount(), 1U);
    EXPECT_EQ(b->GetRefCount(), 2U);
    EXPECT_EQ(c->GetRefCount(), 2U);
    EXPECT_TRUE(list.FCurrent());
    EXPECT_EQ(ValueOf(list.Current()), 2);
  }
  EXPECT_EQ(b->GetRefCount(), 1U);
  EXPECT_EQ(c->GetRefCount(), 1U);
}

TEST_F(GenericList, AppendAfterClearLinksBehindTheStaleTailAndTheListStillReadsAsEmpty) {
  const ref<CoreItem> a = Item(1);
  const ref<CoreItem> b = Item(2);
  {
    NuvGenericList list;
    list.Append(a.get());
    list.Clear();
    list.Append(b.get());
    EXPECT_TRUE(Walk(list).empty());
    // The stale tail's element went once the tail moved on to the new one.
    EXPECT_EQ(a->GetRefCount(), 1U);
    EXPECT_EQ(b->GetRefCount(), 2U);
  }
  EXPECT_EQ(b->GetRefCount(), 1U);
}

TEST_F(GenericList, ElementsLiveInThePoolOfTheirItem) {
  NuvMempool* other = nullptr;
  ASSERT_EQ(NuvMempool::Allocate("other", kPoolSize, false, nullptr, false, other), kNuvOk);
  const std::vector<unsigned> otherStart = InUse(other);
  {
    const ref<CoreItem> here = Item(1);
    const ref<CoreItem> there = new (other) CoreItem(2);
    const unsigned hereBefore = NuvBlocksOf(Pool());
    const unsigned thereBefore = NuvBlocksOf(other);
    NuvGenericList list;
    AppendAll(list, {there.get(), there.get(), here.get()});
    EXPECT_EQ(NuvBlocksOf(Pool()), hereBefore + 1);
    EXPECT_EQ(NuvBlocksOf(other), thereBefore + 2);
    list.Remove(there.get());
    EXPECT_EQ(NuvBlocksOf(other), thereBefore + 1);
    EXPECT_EQ(FirstOf(list), 2);
  }
  EXPECT_EQ(InUse(other), otherStart);
  EXPECT_EQ(InUse(Pool()), Start());
  delete other;
}

TEST_F(GenericList, FillingAndEmptyingGivesBackEveryBlockAndReference) {
  {
    std::vector<ref<CoreItem>> items;
    items.reserve(10);
    for (int value = 0; value < 10; ++value) {
      items.push_back(Item(value));
    }
    NuvGenericList list;
    for (const ref<CoreItem>& item : items) {
      list.Append(item.get());
    }
    for (const ref<CoreItem>& item : items) {
      list.Remove(item.get());
    }
    for (const ref<CoreItem>& item : items) {
      EXPECT_EQ(item->GetRefCount(), 1U);
    }
  }
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(GenericList, DestroyingAFullListGivesBackEveryBlockAndReference) {
  {
    const ref<CoreItem> a = Item(1);
    const ref<CoreItem> b = Item(2);
    {
      NuvGenericList list;
      AppendAll(list, {a.get(), b.get(), a.get()});
      list.Start();
    }
    EXPECT_EQ(a->GetRefCount(), 1U);
    EXPECT_EQ(b->GetRefCount(), 1U);
  }
  EXPECT_EQ(InUse(Pool()), Start());
}

}  // namespace
