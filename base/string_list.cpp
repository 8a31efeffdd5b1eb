/// \file NuvStringList: counted string references in pool slots that double when full.
#include <nuv/string.h>
#include <nuv/unistring.h>

#include <cstdlib>

#include "core/assert_at.h"

namespace {

constexpr int kFirstCapacity = 10;
constexpr size_t kSlotBytes = sizeof(NuvString*);  // NOLINT(bugprone-sizeof-expression): a slot

NuvString** NewSlots(NuvMempool* pool, int capacity) {
  return static_cast<NuvString**>(
      pool->Malloc(static_cast<unsigned>(capacity) * kSlotBytes, NuvMempool::nuv));
}

// Order of 16-bit units; qsort hands over the addresses of two slots.
int CompareSlots(const void* a, const void* b) {
  NuvString* first = *static_cast<NuvString* const*>(a);
  NuvString* second = *static_cast<NuvString* const*>(b);
  return unistrcmp(first->String(), second->String());
}

}  // namespace

NuvStringList::NuvStringList()
    : NuvCore(NuvMempool::nuv),
      itemsM(NewSlots(GetPool(), kFirstCapacity)),
      capacityM(kFirstCapacity) {}

NuvStringList::~NuvStringList() {
  for (int i = 0; i < countM; ++i) {
    itemsM[i]->DownRef();
  }
  GetPool()->Free(itemsM);
}

void NuvStringList::Add(NuvString* s) {
  NUV_ASSERT_AT(s != nullptr, 130, "Add");
  if (countM == capacityM) {
    NuvString** items = NewSlots(GetPool(), 2 * capacityM);
    for (int i = 0; i < countM; ++i) {
      items[i] = itemsM[i];
    }
    GetPool()->Free(itemsM);
    itemsM = items;
    capacityM *= 2;
  }
  s->UpRef();
  itemsM[countM++] = s;
}

bool NuvStringList::FContains(NuvString* s) {
  for (int i = 0; i < countM; ++i) {
    if (itemsM[i]->FEqual(s)) {
      return true;
    }
  }
  return false;
}

void NuvStringList::Remove(NuvString* s) {
  // The list may hold the only references to s itself: those are dropped after the scan, so
  // that the comparisons still to come never read a freed string.
  int dropsOfS = 0;
  for (int i = 0; i < countM; ++i) {
    if (itemsM[i]->FEqual(s)) {
      if (itemsM[i] == s) {
        ++dropsOfS;
      } else {
        itemsM[i]->DownRef();
      }
      for (int j = i + 1; j < countM; ++j) {
        itemsM[j - 1] = itemsM[j];
      }
      --countM;
      // The element now at i is not examined (the loop moves on): a deliberate quirk that
      // callers rely on, removing one of two equal neighbours per call.
    }
  }
  for (; dropsOfS > 0; --dropsOfS) {
    s->DownRef();
  }
}

void NuvStringList::Start() { cursorM = 0; }

bool NuvStringList::FCurrent() const { return cursorM < countM; }

void NuvStringList::Next() {
  NUV_ASSERT_AT(cursorM < countM, 131, "Next");
  ++cursorM;
}

ref<NuvString> NuvStringList::Current() {
  NUV_ASSERT_AT(cursorM >= 0 && cursorM < countM, 132, "Current");
  return itemsM[cursorM];
}

void NuvStringList::Sort() { qsort(itemsM, static_cast<size_t>(countM), kSlotBytes, CompareSlots); }

int NuvStringList::Length() const { return countM; }

ref<NuvString> NuvStringList::Index(int i) {
  NUV_ASSERT_AT(i >= 0 && i < countM, 133, "Index");
  return itemsM[i];
}
