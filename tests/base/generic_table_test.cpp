/// \file NuvGenericTable: entries in insertion order, repeated keys, lookups, removals, where
/// entries live, and the references and pool blocks it gives back.
#include <nuv/status.h>
#include <nuv/table.h>

#include <gtest/gtest.h>

#include <initializer_list>
#include <utility>
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
using nuv::test::WordAt;

// Byte offsets of the table's head and tail references.
constexpr unsigned kHeadOffset = 0;
constexpr unsigned kTailOffset = 4;

// A key and the value of its item.
using Entry = std::pair<unsigned long, int>;

unsigned NuvBlocksOf(const NuvMempool* pool) {
  return InfoWord(pool, NuvMempoolInfo::kUserBlocks + NuvMempool::nuv);
}

unsigned WordOf(NuvGenericTable& table, unsigned offset) {
  return WordAt(reinterpret_cast<char*>(&table) + offset);
}

class GenericTable : public PrivatePoolTest {
 protected:
  ref<CoreItem> Item(int value) const { return new (Pool()) CoreItem(value); }
};

// The entries of a whole walk from Start.
std::vector<Entry> Walk(NuvGenericTable& table) {
  std::vector<Entry> entries;
  for (table.Start(); table.FCurrent(); table.Next()) {
    entries.emplace_back(table.CurrentKey(), ValueOf(table.Current()));
  }
  return entries;
}

void AddAll(NuvGenericTable& table,
            std::initializer_list<std::pair<unsigned long, NuvCore*>> entries) {
  for (const auto& [key, item] : entries) {
    table.Add(key, item);
  }
}

TEST_F(GenericTable, NewTableIsEmptyWithNothingToWalk) {
  NuvGenericTable table;
  EXPECT_TRUE(table.FEmpty());
  EXPECT_TRUE(Walk(table).empty());
}

TEST_F(GenericTable, RepeatedKeysAreWalkedInInsertionOrder) {
  const ref<CoreItem> first = Item(1);
  const ref<CoreItem> second = Item(2);
  const ref<CoreItem> third = Item(3);
  NuvGenericTable table;
  AddAll(table, {{5, first.get()}, {7, second.get()}, {5, third.get()}});
  EXPECT_FALSE(table.FEmpty());
  EXPECT_EQ(Walk(table), (std::vector<Entry>{{5, 1}, {7, 2}, {5, 3}}));
}

TEST_F(GenericTable, LookupOfARepeatedKeyGivesTheOldestItem) {
  const ref<CoreItem> first = Item(1);
  const ref<CoreItem> second = Item(2);
  const ref<CoreItem> third = Item(3);
  NuvGenericTable table;
  AddAll(table, {{5, first.get()}, {7, second.get()}, {5, third.get()}});
  EXPECT_EQ(table.Lookup(5).get(), first.get());
  EXPECT_EQ(table.Lookup(7).get(), second.get());
}

TEST_F(GenericTable, RemoveKeyOfARepeatedKeyRemovesTheOldestEntry) {
  const ref<CoreItem> first = Item(1);
  const ref<CoreItem> second = Item(2);
  const ref<CoreItem> third = Item(3);
  NuvGenericTable table;
  AddAll(table, {{5, first.get()}, {7, second.get()}, {5, third.get()}});
  table.RemoveKey(5);
  EXPECT_EQ(Walk(table), (std::vector<Entry>{{7, 2}, {5, 3}}));
  EXPECT_EQ(first->GetRefCount(), 1U);
}

TEST_F(GenericTable, LookupGivesANewReference) {
  const ref<CoreItem> item = Item(1);
  NuvGenericTable table;
  table.Add(3, item.get());
  EXPECT_EQ(item->GetRefCount(), 2U);
  const ref<NuvCore> found = table.Lookup(3);
  EXPECT_EQ(item->GetRefCount(), 3U);
}

TEST_F(GenericTable, LookupOfAnAbsentKeyGivesNull) {
  const ref<CoreItem> item = Item(1);
  NuvGenericTable table;
  EXPECT_FALSE(table.Lookup(3));
  table.Add(3, item.get());
  EXPECT_FALSE(table.Lookup(4));
}

TEST_F(GenericTable, FHasKeyTellsWhetherAnEntryHasTheKey) {
  const ref<CoreItem> item = Item(1);
  NuvGenericTable table;
  EXPECT_FALSE(table.FHasKey(3));
  table.Add(3, item.get());
  EXPECT_TRUE(table.FHasKey(3));
  EXPECT_FALSE(table.FHasKey(4));
  EXPECT_EQ(item->GetRefCount(), 2U);
}

TEST_F(GenericTable, RemoveUnlinksTheFirstEntryCarryingTheItem) {
  const ref<CoreItem> a = Item(1);
  const ref<CoreItem> b = Item(2);
  NuvGenericTable table;
  AddAll(table, {{10, a.get()}, {20, b.get()}, {30, a.get()}});
  table.Remove(a.get());
  EXPECT_EQ(Walk(table), (std::vector<Entry>{{20, 2}, {30, 1}}));
  EXPECT_EQ(a->GetRefCount(), 2U);
}

TEST_F(GenericTable, RemoveOfAMiddleEntryLeavesTheOthersInOrder) {
  const ref<CoreItem> a = Item(1);
  const ref<CoreItem> b = Item(2);
  const ref<CoreItem> c = Item(3);
  NuvGenericTable table;
  AddAll(table, {{10, a.get()}, {20, b.get()}, {30, c.get()}});
  table.RemoveKey(20);
  EXPECT_EQ(Walk(table), (std::vector<Entry>{{10, 1}, {30, 3}}));
}

TEST_F(GenericTable, RemovingTheTailEntryMovesTailToItsPredecessor) {
  const ref<CoreItem> a = Item(1);
  const ref<CoreItem> b = Item(2);
  const ref<CoreItem> c = Item(3);
  NuvGenericTable table;
  AddAll(table, {{10, a.get()}, {20, b.get()}});
  table.Remove(b.get());
  table.Add(30, c.get());
  EXPECT_EQ(Walk(table), (std::vector<Entry>{{10, 1}, {30, 3}}));
}

TEST_F(GenericTable, RemovingTheLastEntryClearsTailAndTheNextAddIsHeadAndTail) {
  const ref<CoreItem> a = Item(1);
  const ref<CoreItem> b = Item(2);
  NuvGenericTable table;
  table.Add(10, a.get());
  table.RemoveKey(10);
  EXPECT_TRUE(table.FEmpty());
  EXPECT_EQ(WordOf(table, kTailOffset), 0U);
  table.Add(20, b.get());
  EXPECT_NE(WordOf(table, kHeadOffset), 0U);
  EXPECT_EQ(WordOf(table, kTailOffset), WordOf(table, kHeadOffset));
  EXPECT_EQ(Walk(table), (std::vector<Entry>{{20, 2}}));
}

TEST_F(GenericTable, AddEndsAnIterationUnderWay) {
  const ref<CoreItem> a = Item(1);
  NuvGenericTable table;
  table.Add(10, a.get());
  table.Start();
  ASSERT_TRUE(table.FCurrent());
  table.Add(20, a.get());
  EXPECT_FALSE(table.FCurrent());
}

TEST_F(GenericTable, RemovalsEndAnIterationUnderWay) {
  const ref<CoreItem> a = Item(1);
  const ref<CoreItem> b = Item(2);
  NuvGenericTable table;
  AddAll(table, {{10, a.get()}, {20, b.get()}, {30, b.get()}});
  table.Start();
  table.Remove(b.get());
  EXPECT_FALSE(table.FCurrent());
  table.Start();
  table.RemoveKey(30);
  EXPECT_FALSE(table.FCurrent());
}

TEST_F(GenericTable, AddOfNullFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           NuvGenericTable table;
                           table.Add(1, nullptr);
                         }),
                         "Add", 301);
}

TEST_F(GenericTable, AddWithAnEmptyTailButAHeadFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<CoreItem> a = Item(1);
                           NuvGenericTable table;
                           table.Add(1, a.get());
                           // Forget the tail behind the table's back.
                           SetWordAt(reinterpret_cast<char*>(&table) + kTailOffset, 0);
                           table.Add(2, a.get());
                         }),
                         "Add", 302);
}

TEST_F(GenericTable, RemoveOnAnEmptyTableFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<CoreItem> a = Item(1);
                           NuvGenericTable table;
                           table.Remove(a.get());
                         }),
                         "Remove", 303);
}

TEST_F(GenericTable, RemoveOfAnItemNotInTheTableFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<CoreItem> a = Item(1);
                           const ref<CoreItem> twin = Item(1);
                           NuvGenericTable table;
                           table.Add(1, a.get());
                           table.Remove(twin.get());
                         }),
                         "Remove", 304);
}

TEST_F(GenericTable, RemoveKeyOnAnEmptyTableFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           NuvGenericTable table;
                           table.RemoveKey(1);
                         }),
                         "RemoveKey", 305);
}

TEST_F(GenericTable, RemoveKeyOfAnAbsentKeyFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<CoreItem> a = Item(1);
                           NuvGenericTable table;
                           table.Add(1, a.get());
                           table.RemoveKey(2);
                         }),
                         "RemoveKey", 306);
}

TEST_F(GenericTable, CurrentWithoutACursorFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           NuvGenericTable table;
                           table.Start();
                           table.Current();
                         }),
                         "Current", 307);
}

TEST_F(GenericTable, CurrentKeyWithoutACursorFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<CoreItem> a = Item(1);
                           NuvGenericTable table;
                           table.Add(1, a.get());
                           table.Start();
                           table.Next();
                           table.Add(table.CurrentKey(), a.get());
                         }),
                         "CurrentKey", 308);
}

TEST_F(GenericTable, NextWithoutACursorFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           NuvGenericTable table;
                           table.Next();
                         }),
                         "Next", 309);
}

TEST_F(GenericTable, EntriesLiveInThePoolOfTheirItem) {
  NuvMempool* other = nullptr;
  ASSERT_EQ(NuvMempool::Allocate("other", kPoolSize, false, nullptr, false, other), kNuvOk);
  const std::vector<unsigned> otherStart = InUse(other);
  {
    const ref<CoreItem> here = Item(1);
    const ref<CoreItem> there = new (other) CoreItem(2);
    const unsigned hereBefore = NuvBlocksOf(Pool());
    const unsigned thereBefore = NuvBlocksOf(other);
    NuvGenericTable table;
    AddAll(table, {{1, there.get()}, {2, here.get()}, {3, there.get()}});
    EXPECT_EQ(NuvBlocksOf(Pool()), hereBefore + 1);
    EXPECT_EQ(NuvBlocksOf(other), thereBefore + 2);
    table.RemoveKey(3);
    EXPECT_EQ(NuvBlocksOf(other), thereBefore + 1);
    EXPECT_EQ(Walk(table), (std::vector<Entry>{{1, 2}, {2, 1}}));
  }
  EXPECT_EQ(InUse(other), otherStart);
  EXPECT_EQ(InUse(Pool()), Start());
  delete other;
}

TEST_F(GenericTable, FillingAndEmptyingGivesBackEveryBlockAndReference) {
  {
    std::vector<ref<CoreItem>> items;
    items.reserve(10);
    for (int value = 0; value < 10; ++value) {
      items.push_back(Item(value));
    }
    NuvGenericTable table;
    for (const ref<CoreItem>& item : items) {
      table.Add(static_cast<unsigned long>(item->Value()), item.get());
    }
    for (int value = 0; value < 10; value += 2) {
      table.RemoveKey(static_cast<unsigned long>(value));
    }
    for (int value = 1; value < 10; value += 2) {
      table.Remove(items[static_cast<size_t>(value)].get());
    }
    EXPECT_TRUE(table.FEmpty());
    for (const ref<CoreItem>& item : items) {
      EXPECT_EQ(item->GetRefCount(), 1U);
    }
  }
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(GenericTable, DestroyingAFullTableGivesBackEveryBlockAndReference) {
  {
    const ref<CoreItem> a = Item(1);
    const ref<CoreItem> b = Item(2);
    {
      NuvGenericTable table;
      AddAll(table, {{1, a.get()}, {2, b.get()}, {1, b.get()}});
      table.Start();
    }
    EXPECT_EQ(a->GetRefCount(), 1U);
    EXPECT_EQ(b->GetRefCount(), 1U);
  }
  EXPECT_EQ(InUse(Pool()), Start());
}

}  // namespace
