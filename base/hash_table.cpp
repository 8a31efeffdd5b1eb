/// \file NuvGenericHashTable: linear probing over a slot array of reusable entries.
#include <nuv/hash_table.h>

#include <utility>

#include "core/assert_at.h"

namespace {

// Every slot holds the NuvHashEntry that Extend placed there, and slots never move.
NuvHashEntry* EntryAt(NuvGenericArray& slots, int i) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-static-cast-downcast): Extend fills every slot
  return static_cast<NuvHashEntry*>(slots[i]);
}

}  // namespace

NuvHashEntry::NuvHashEntry() : NuvCore(NuvMempool::nuv) {}

NuvGenericHashTable::NuvGenericHashTable(NuvMempool* pool, Hash hash, Compare compare,
                                         NuvGenericHashTable* context, unsigned long initialSize)
    : poolM(pool),
      hashM(hash),
      compareM(compare),
      slotsM(pool),
      contextM(context),
      initialSizeM(initialSize) {
  NUV_ASSERT_AT(initialSize != 0, 401, "NuvGenericHashTable");
  NUV_ASSERT_AT((initialSize & (initialSize - 1)) == 0, 402, "NuvGenericHashTable");
  Extend();
  Clear();
}

// The members then drop the cursor and the slots, in that order.
NuvGenericHashTable::~NuvGenericHashTable() { Clear(); }

void NuvGenericHashTable::Clear() {
  for (int i = 0; i < slotsM.Count(); ++i) {
    NuvHashEntry* entry = EntryAt(slotsM, i);
    entry->key = nullptr;
    entry->data = nullptr;
  }
  nkeysM = 0;
  ndeletedM = 0;
}

// Stopping at a deleted slot, rather than probing on past it, is the table's kept behaviour.
// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is the exported one.
ref<NuvHashEntry> NuvGenericHashTable::Find(ref<NuvCore> key) {
  const unsigned size = NSlots();
  unsigned i = static_cast<unsigned>(hashM(key, contextM)) & (size - 1);
  bool wrapped = false;
  for (;;) {
    NuvHashEntry* entry = EntryAt(slotsM, static_cast<int>(i));
    const int order = compareM(entry->key, key, contextM);
    if (!entry->data || order == 0) {
      return entry;
    }
    if (++i == size) {
      if (wrapped) {
        return nullptr;
      }
      wrapped = true;
      i = 0;
    }
  }
}

ref<NuvCore> NuvGenericHashTable::Lookup(ref<NuvCore> key) {
  const ref<NuvHashEntry> entry = Find(std::move(key));
  return entry ? entry->data : nullptr;
}

void NuvGenericHashTable::Store(ref<NuvCore> key, ref<NuvCore> data) {
  if (nkeysM + ndeletedM > NSlots() / 2) {
    Extend();
  }
  const ref<NuvHashEntry> entry = Find(key);
  if (entry && entry->data) {
    if (data) {
      entry->data = std::move(data);
    } else {
      entry->data = nullptr;
      --nkeysM;
      ++ndeletedM;
    }
    return;
  }
  // A full table drops the store without a word; a deleted slot reused stays counted in ndeleted.
  if (!data || !entry) {
    return;
  }
  entry->key = std::move(key);
  entry->data = std::move(data);
  ++nkeysM;
}

void NuvGenericHashTable::Remove(ref<NuvCore> key) { Store(std::move(key), nullptr); }

// Entries stay where they are: after a doubling, keys whose home slot moved into the upper half
// are no longer found. Tables are sized never to grow.
void NuvGenericHashTable::Extend() {
  const unsigned size = NSlots();
  unsigned newSize = size;
  if (size == 0) {
    newSize = static_cast<unsigned>(initialSizeM);
  } else if (size / 2 < nkeysM) {
    newSize = 2 * size;
  }
  while (NSlots() < newSize) {
    slotsM.Add(new (poolM) NuvHashEntry());
  }
}

void NuvGenericHashTable::Start() {
  indexM = 0;
  cursorM = EntryAt(slotsM, 0);
  if (!cursorM->data) {
    Next();
  }
}

bool NuvGenericHashTable::FCurrent() const { return indexM < slotsM.Count(); }

ref<NuvCore> NuvGenericHashTable::CurrentKey() { return cursorM->key; }

ref<NuvCore> NuvGenericHashTable::CurrentData() { return cursorM->data; }

// Stops at the end also when called there again, rather than walking past the slots.
void NuvGenericHashTable::Next() {
  do {
    ++indexM;
    if (indexM >= slotsM.Count()) {
      indexM = slotsM.Count();
      return;
    }
    cursorM = EntryAt(slotsM, indexM);
  } while (!cursorM->data);
}
