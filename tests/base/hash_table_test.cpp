/// \file NuvGenericHashTable: probing, storing and removing, growth, iteration, the power-of-two
/// check, and the references the table holds.
#include <nuv/hash_table.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/core_item.h"
#include "support/fatal_report.h"
#include "support/pool_usage.h"
#include "support/private_pool.h"

namespace {

using nuv::test::CoreItem;
using nuv::test::ExpectLibraryAssertion;
using nuv::test::FatalReport;
using nuv::test::InUse;
using nuv::test::RunToFatalReport;
using nuv::test::ValueOf;

std::string TextOf(const ref<NuvCore>& core) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-static-cast-downcast): string tables hold strings
  return static_cast<NuvString*>(core.get())->Utf8();
}

// What the item hash and comparison saw, for the tests that look at the calls themselves.
struct Calls {
  std::vector<NuvGenericHashTable*> contexts;
  int compares = 0;
  int nullSlotKeys = 0;
};
Calls calls;

// An item's home slot is its value modulo the slot count, so tests choose collisions.
// NOLINTNEXTLINE(performance-unnecessary-value-param): the table's hash type
unsigned long ItemHash(ref<NuvCore> key, NuvGenericHashTable* context) {
  calls.contexts.push_back(context);
  return static_cast<unsigned long>(ValueOf(key));
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the table's compare type
int ItemCompare(ref<NuvCore> a, ref<NuvCore> b, NuvGenericHashTable* context) {
  calls.contexts.push_back(context);
  ++calls.compares;
  if (!a) {
    ++calls.nullSlotKeys;
    return 1;
  }
  return ValueOf(a) == ValueOf(b) ? 0 : 1;
}

class HashTable : public nuv::test::PrivatePoolTest {
 protected:
  void SetUp() override {
    PrivatePoolTest::SetUp();
    calls = Calls();
  }

  ref<CoreItem> Item(int value) const { return new (Pool()) CoreItem(value); }
};

// A table of eight slots over items.
class ItemTable : public HashTable {
 protected:
  void SetUp() override {
    HashTable::SetUp();
    tableM.emplace(Pool(), ItemHash, ItemCompare, nullptr, 8);
  }
  void TearDown() override {
    tableM.reset();
    HashTable::TearDown();
  }

  NuvGenericHashTable& Table() { return *tableM; }
  // Stores a new key of the value with new data of ten times the value; returns the key.
  ref<CoreItem> StoreItem(int value) {
    ref<CoreItem> key = Item(value);
    tableM->Store(key, Item(10 * value));
    return key;
  }
  // The live keys' values in iteration order.
  std::vector<int> KeysInOrder() {
    std::vector<int> values;
    for (tableM->Start(); tableM->FCurrent(); tableM->Next()) {
      values.push_back(ValueOf(tableM->CurrentKey()));
    }
    return values;
  }
  // Data of the key of the value, or -1 when the table reports it absent.
  int LookupValue(int value) {
    const ref<NuvCore> data = tableM->Lookup(Item(value));
    return data ? ValueOf(data) : -1;
  }

 private:
  std::optional<NuvGenericHashTable> tableM;
};

TEST_F(HashTable, InitialSizeZeroStopsAtAssertion401) {
  NuvMempool* pool = Pool();
  const FatalReport report = RunToFatalReport(
      [pool] { const NuvGenericHashTable table(pool, ItemHash, ItemCompare, nullptr, 0); });
  ExpectLibraryAssertion(report, "NuvGenericHashTable", 401);
}

TEST_F(HashTable, InitialSizeTwelveStopsAtAssertion402) {
  NuvMempool* pool = Pool();
  const FatalReport report = RunToFatalReport(
      [pool] { const NuvGenericHashTable table(pool, ItemHash, ItemCompare, nullptr, 12); });
  ExpectLibraryAssertion(report, "NuvGenericHashTable", 402);
}

TEST_F(HashTable, NewTableHasItsInitialSlotsAndNoKeys) {
  const NuvGenericHashTable table(Pool(), ItemHash, ItemCompare, nullptr, 32);
  EXPECT_EQ(table.NSlots(), 32U);
  EXPECT_EQ(table.NKeys(), 0U);
  EXPECT_EQ(table.NDeleted(), 0U);
}

TEST_F(ItemTable, StoredKeyIsFoundWithAnEqualKeyObject) {
  StoreItem(3);
  EXPECT_EQ(LookupValue(3), 30);
  EXPECT_EQ(LookupValue(4), -1);
  EXPECT_EQ(Table().NKeys(), 1U);
}

TEST_F(ItemTable, StoringAnEqualKeyReplacesTheDataAndKeepsTheStoredKeyObject) {
  const ref<CoreItem> first = StoreItem(3);
  const ref<CoreItem> second = Item(3);
  const ref<CoreItem> data = Item(99);
  Table().Store(second, data);
  EXPECT_EQ(Table().Lookup(first), data.get());
  EXPECT_EQ(Table().NKeys(), 1U);
  Table().Start();
  EXPECT_EQ(Table().CurrentKey(), first.get());
}

TEST_F(ItemTable, FifthKeyOfEightSlotsIsStoredWithoutGrowing) {
  for (int value = 0; value < 5; ++value) {
    StoreItem(value);
  }
  EXPECT_EQ(Table().NSlots(), 8U);
  EXPECT_EQ(Table().NKeys(), 5U);
}

// Keys 9 and 10 sit in slots 1 and 2; with sixteen slots their home slots are 9 and 10, which
// are empty, so they are reported absent while keys 3 to 5 are still at home.
TEST_F(ItemTable, SixthStoreDoublesTheSlotsWithoutMovingTheEntries) {
  for (const int value : {9, 10, 3, 4, 5}) {
    StoreItem(value);
  }
  ASSERT_EQ(Table().NSlots(), 8U);
  StoreItem(6);
  EXPECT_EQ(Table().NSlots(), 16U);
  EXPECT_EQ(Table().NKeys(), 6U);
  EXPECT_EQ(KeysInOrder(), (std::vector<int>{9, 10, 3, 4, 5, 6}));
  EXPECT_EQ(LookupValue(9), -1);
  EXPECT_EQ(LookupValue(10), -1);
  EXPECT_EQ(LookupValue(3), 30);
  EXPECT_EQ(LookupValue(5), 50);
  EXPECT_EQ(LookupValue(6), 60);
}

TEST_F(ItemTable, StoringAKeyWhoseHomeMovedAddsASecondLiveCopyAtTheNewHome) {
  for (const int value : {9, 10, 3, 4, 5, 6}) {
    StoreItem(value);
  }
  ASSERT_EQ(Table().NSlots(), 16U);
  StoreItem(9);
  EXPECT_EQ(Table().NKeys(), 7U);
  EXPECT_EQ(KeysInOrder(), (std::vector<int>{9, 10, 3, 4, 5, 6, 9}));
  EXPECT_EQ(LookupValue(9), 90);
}

TEST_F(ItemTable, RemovedKeyIsLookedUpAsNullAndLowersTheKeyCount) {
  const ref<CoreItem> key = StoreItem(3);
  StoreItem(4);
  Table().Remove(key);
  EXPECT_EQ(LookupValue(3), -1);
  EXPECT_EQ(Table().NKeys(), 1U);
  EXPECT_EQ(Table().NDeleted(), 1U);
}

TEST_F(ItemTable, StoringARemovedKeyAgainReusesItsDeletedSlot) {
  const ref<CoreItem> key = StoreItem(3);
  const ref<NuvHashEntry> slot = Table().Find(key);
  Table().Remove(key);
  EXPECT_EQ(Table().Find(key), slot);
  StoreItem(3);
  EXPECT_EQ(Table().Find(key), slot);
  EXPECT_EQ(LookupValue(3), 30);
  EXPECT_EQ(Table().NKeys(), 1U);
  EXPECT_EQ(Table().NDeleted(), 1U);
}

TEST_F(ItemTable, RemovingAnAbsentKeyChangesNothing) {
  StoreItem(3);
  Table().Remove(Item(11));
  EXPECT_EQ(Table().NKeys(), 1U);
  EXPECT_EQ(Table().NDeleted(), 0U);
  EXPECT_EQ(LookupValue(3), 30);
}

// Key 9 collides with key 1 and lies one slot further on.
TEST_F(ItemTable, ProbeStopsAtADeletedSlot) {
  const ref<CoreItem> first = StoreItem(1);
  StoreItem(9);
  ASSERT_EQ(LookupValue(9), 90);
  Table().Remove(first);
  EXPECT_EQ(LookupValue(9), -1);
  EXPECT_EQ(Table().NKeys(), 1U);
}

TEST_F(ItemTable, StoringAKeyPastADeletedSlotAgainMakesASecondLiveCopy) {
  const ref<CoreItem> first = StoreItem(1);
  StoreItem(9);
  Table().Remove(first);
  const ref<CoreItem> data = Item(900);
  Table().Store(Item(9), data);
  EXPECT_EQ(Table().NKeys(), 2U);
  std::vector<std::pair<int, int>> live;
  for (Table().Start(); Table().FCurrent(); Table().Next()) {
    live.emplace_back(ValueOf(Table().CurrentKey()), ValueOf(Table().CurrentData()));
  }
  EXPECT_EQ(live, (std::vector<std::pair<int, int>>{{9, 900}, {9, 90}}));
  EXPECT_EQ(LookupValue(9), 900);
}

// Six stores and removals leave nkeys + ndeleted above half the slots, but no more than half
// the slots are live, so Extend leaves the size alone.
TEST_F(ItemTable, DeletedSlotsCallExtendWithoutGrowth) {
  for (int value = 0; value < 6; ++value) {
    Table().Remove(StoreItem(value));
  }
  StoreItem(7);
  EXPECT_EQ(Table().NSlots(), 8U);
  EXPECT_EQ(Table().NDeleted(), 6U);
  EXPECT_EQ(Table().NKeys(), 1U);
}

// Four live keys and one deleted slot make the next store call Extend, but only more than half
// the slots live doubles them.
TEST_F(ItemTable, HalfTheSlotsLiveDoNotDoubleTheTable) {
  for (int value = 0; value < 3; ++value) {
    StoreItem(value);
  }
  Table().Remove(StoreItem(3));
  StoreItem(4);
  ASSERT_EQ(Table().NKeys() + Table().NDeleted(), 5U);
  StoreItem(5);
  EXPECT_EQ(Table().NSlots(), 8U);
  EXPECT_EQ(Table().NKeys(), 5U);
}

TEST_F(ItemTable, ProbeWrapsFromTheLastSlotToTheFirst) {
  StoreItem(7);
  StoreItem(15);
  EXPECT_EQ(KeysInOrder(), (std::vector<int>{15, 7}));
  EXPECT_EQ(LookupValue(15), 150);
}

TEST_F(ItemTable, FullTableDropsAStoreSilently) {
  std::vector<ref<CoreItem>> keys;
  for (int value = 0; value < 8; ++value) {
    keys.push_back(Item(value));
    const ref<NuvHashEntry> entry = Table().Find(keys.back());
    ASSERT_TRUE(entry);
    entry->key = keys.back();
    entry->data = Item(10 * value);
  }
  const ref<CoreItem> extra = Item(12);
  Table().Store(extra, Item(120));
  EXPECT_EQ(Table().NKeys(), 0U);
  EXPECT_EQ(Table().NSlots(), 8U);
  EXPECT_FALSE(Table().Find(extra));
  EXPECT_FALSE(Table().Lookup(extra));
  EXPECT_EQ(KeysInOrder(), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}));
}

TEST_F(ItemTable, IterationVisitsLiveSlotsInSlotOrderSkippingEmptyAndDeletedOnes) {
  for (const int value : {6, 1, 3, 4}) {
    StoreItem(value);
  }
  Table().Remove(Item(3));
  EXPECT_EQ(KeysInOrder(), (std::vector<int>{1, 4, 6}));
}

TEST_F(ItemTable, IterationStartsAtALiveSlotZero) {
  StoreItem(8);
  StoreItem(2);
  EXPECT_EQ(KeysInOrder(), (std::vector<int>{8, 2}));
}

TEST_F(ItemTable, IterationOfAnEmptyTableEndsAtOnce) {
  Table().Start();
  EXPECT_FALSE(Table().FCurrent());
}

TEST_F(ItemTable, NextAtTheEndStaysAtTheEnd) {
  StoreItem(2);
  Table().Start();
  Table().Next();
  ASSERT_FALSE(Table().FCurrent());
  Table().Next();
  EXPECT_FALSE(Table().FCurrent());
}

// Slots never move, so removing the current key and storing ahead of the cursor are seen, and a
// key stored behind it is not.
TEST_F(ItemTable, StoreAndRemoveDuringIterationKeepTheWalkInSlotOrder) {
  for (const int value : {2, 4}) {
    StoreItem(value);
  }
  std::vector<int> visited;
  for (Table().Start(); Table().FCurrent(); Table().Next()) {
    const int value = ValueOf(Table().CurrentKey());
    visited.push_back(value);
    if (value == 2) {
      Table().Remove(Table().CurrentKey());
      StoreItem(1);
      StoreItem(6);
    }
  }
  EXPECT_EQ(visited, (std::vector<int>{2, 4, 6}));
  EXPECT_EQ(KeysInOrder(), (std::vector<int>{1, 4, 6}));
}

TEST_F(ItemTable, ClearEmptiesEverySlotAndResetsTheCountsButKeepsTheEntries) {
  const ref<CoreItem> key = StoreItem(3);
  const ref<NuvHashEntry> slot = Table().Find(key);
  Table().Remove(StoreItem(4));
  Table().Clear();
  EXPECT_EQ(Table().NKeys(), 0U);
  EXPECT_EQ(Table().NDeleted(), 0U);
  EXPECT_EQ(Table().NSlots(), 8U);
  EXPECT_EQ(Table().Find(key), slot);
  EXPECT_FALSE(slot->key);
  EXPECT_FALSE(slot->data);
  EXPECT_EQ(KeysInOrder(), std::vector<int>());
}

TEST_F(HashTable, ContextIsHandedUnchangedToHashAndCompare) {
  NuvGenericHashTable owner(Pool(), ItemHash, ItemCompare, nullptr, 8);
  NuvGenericHashTable table(Pool(), ItemHash, ItemCompare, &owner, 8);
  const ref<CoreItem> key = Item(1);
  table.Store(key, Item(2));
  static_cast<void>(table.Lookup(key));
  ASSERT_FALSE(calls.contexts.empty());
  EXPECT_EQ(calls.contexts, std::vector<NuvGenericHashTable*>(calls.contexts.size(), &owner));
}

TEST_F(ItemTable, CompareIsCalledWithTheNullKeyOfAnEmptySlot) {
  static_cast<void>(Table().Lookup(Item(5)));
  EXPECT_EQ(calls.compares, 1);
  EXPECT_EQ(calls.nullSlotKeys, 1);
}

TEST_F(ItemTable, CompareIsCalledForEverySlotProbed) {
  StoreItem(1);
  StoreItem(9);
  calls = Calls();
  static_cast<void>(Table().Lookup(Item(17)));
  EXPECT_EQ(calls.compares, 3);
  EXPECT_EQ(calls.nullSlotKeys, 1);
}

TEST_F(HashTable, StoredKeyAndDataHoldOneReferenceEach) {
  NuvGenericHashTable table(Pool(), ItemHash, ItemCompare, nullptr, 8);
  const ref<CoreItem> key = Item(1);
  const ref<CoreItem> data = Item(2);
  table.Store(key, data);
  EXPECT_EQ(key->GetRefCount(), 2U);
  EXPECT_EQ(data->GetRefCount(), 2U);
  table.Remove(key);
  EXPECT_EQ(key->GetRefCount(), 2U);
  EXPECT_EQ(data->GetRefCount(), 1U);
}

TEST_F(HashTable, ClearingAndDestroyingGiveBackEveryReferenceAndBlock) {
  std::vector<ref<CoreItem>> items;
  items.reserve(12);
  for (int value = 0; value < 12; ++value) {
    items.push_back(Item(value));
  }
  const std::vector<unsigned> start = InUse(Pool());
  {
    NuvGenericHashTable table(Pool(), ItemHash, ItemCompare, nullptr, 8);
    for (int i = 0; i < 12; i += 2) {
      table.Store(items[i], items[i + 1]);
    }
    table.Remove(items[2]);
    table.Clear();
    for (const ref<CoreItem>& item : items) {
      EXPECT_EQ(item->GetRefCount(), 1U);
    }
    table.Store(items[0], items[1]);
    table.Store(items[4], items[5]);
    table.Start();
  }
  for (const ref<CoreItem>& item : items) {
    EXPECT_EQ(item->GetRefCount(), 1U);
  }
  EXPECT_EQ(InUse(Pool()), start);
}

TEST_F(HashTable, DroppingTheLastOutsideReferencesFreesStoredItemsWithTheTable) {
  const std::vector<unsigned> start = InUse(Pool());
  {
    NuvGenericHashTable table(Pool(), ItemHash, ItemCompare, nullptr, 16);
    for (int value = 0; value < 6; ++value) {
      table.Store(Item(value), Item(100 + value));
    }
    table.Remove(Item(3));
  }
  EXPECT_EQ(InUse(Pool()), start);
}

TEST_F(HashTable, StringKeyedTableFindsKeysByTheirText) {
  NuvGenericHashTable table(Pool(), NuvGenericHashTable::HashNuvStringCore,
                            NuvGenericHashTable::CmpNuvStringCore, nullptr, 16);
  const ref<CoreItem> red = Item(1);
  const ref<CoreItem> green = Item(2);
  table.Store(new (Pool()) NuvString("red"), red);
  table.Store(new (Pool()) NuvString("green"), green);
  EXPECT_EQ(table.Lookup(new (Pool()) NuvString("red")), red.get());
  EXPECT_EQ(table.Lookup(new (Pool()) NuvString("green")), green.get());
  EXPECT_FALSE(table.Lookup(new (Pool()) NuvString("blue")));
  table.Remove(new (Pool()) NuvString("red"));
  EXPECT_FALSE(table.Lookup(new (Pool()) NuvString("red")));
  EXPECT_EQ(table.NKeys(), 1U);
}

// Numeral n has home slot 5n modulo the slot count: "0" slot 0, "1" slot 5, "3" slot 7, "2" slot
// 2 of eight.
TEST_F(HashTable, NumeralKeyedTablePlacesKeysAtFiveTimesTheirValue) {
  NuvGenericHashTable table(Pool(), NuvGenericHashTable::HashNuvStringAtoiCore,
                            NuvGenericHashTable::CmpNuvStringCore, nullptr, 8);
  for (const char* numeral : {"3", "1", "0", "2"}) {
    table.Store(new (Pool()) NuvString(numeral), Item(0));
  }
  std::vector<std::string> order;
  for (table.Start(); table.FCurrent(); table.Next()) {
    order.emplace_back(TextOf(table.CurrentKey()));
  }
  EXPECT_EQ(order, (std::vector<std::string>{"0", "2", "1", "3"}));
  EXPECT_TRUE(table.Lookup(new (Pool()) NuvString("2")));
}

}  // namespace
