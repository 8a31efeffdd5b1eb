/// \file NuvGenericArray: counted NuvCore references in zero-filled pool storage, so that a fresh
/// slot is a valid null reference.
#include <nuv/array.h>

#include <cstdlib>

#include "core/assert_at.h"

namespace {

constexpr int kFirstCapacity = 8;

// Reference semantics of a slot: the new occupant's reference is taken before the old one's is
// dropped, so assigning a slot its own occupant is safe.
void Assign(NuvCore*& slot, NuvCore* object) {
  if (object != nullptr) {
    object->UpRef();
  }
  NuvCore* old = slot;
  slot = object;
  if (old != nullptr) {
    old->DownRef();
  }
}

// qsort hands its comparison untyped slot pointers; the caller's typed comparison is reached
// through this, saved and restored around each sort so that a comparison may sort too.
NuvGenericArray::Compare sortCompare = nullptr;

// The slots belong to the array being sorted, which is not const.
int CompareSlots(const void* a, const void* b) {
  const auto* slotA = static_cast<NuvCore* const*>(a);
  const auto* slotB = static_cast<NuvCore* const*>(b);
  return sortCompare(
      const_cast<NuvCore**>(slotA),   // NOLINT(cppcoreguidelines-pro-type-const-cast)
      const_cast<NuvCore**>(slotB));  // NOLINT(cppcoreguidelines-pro-type-const-cast)
}

constexpr size_t kSlotBytes = sizeof(NuvCore*);  // NOLINT(bugprone-sizeof-expression): a slot

}  // namespace

NuvGenericArray::NuvGenericArray(NuvMempool* pool) : poolM(pool) {}

NuvGenericArray::~NuvGenericArray() {
  if (slotsM == nullptr) {
    return;
  }
  for (int i = 0; i < countM; ++i) {
    Assign(slotsM[i], nullptr);
  }
  poolM->Free(slotsM);
}

NuvCore*& NuvGenericArray::operator[](int i) {
  NUV_ASSERT_AT(i >= 0 && i < countM, 220, "__vc");
  return slotsM[i];
}

void NuvGenericArray::Add(NuvCore* x) {
  if (countM == capacityM) {
    Expand();
  }
  Assign(slotsM[countM], x);
  ++countM;
}

void NuvGenericArray::Extend(int n) {
  while (countM < n) {
    Add(nullptr);
  }
}

void NuvGenericArray::Remove(int i, int n) {
  NUV_ASSERT_AT(i >= 0 && i <= countM - n, 221, "Remove");
  for (int j = i; j < countM - n; ++j) {
    Assign(slotsM[j], slotsM[j + n]);
  }
  for (int j = countM - n; j < countM; ++j) {
    Assign(slotsM[j], nullptr);
  }
  countM -= n;
}

void NuvGenericArray::Remove(NuvCore* x) {
  for (int j = countM - 1; j >= 0; --j) {
    if (slotsM[j] == x) {
      Remove(j, 1);
    }
  }
}

bool NuvGenericArray::FContains(NuvCore* x) const {
  for (int j = 0; j < countM; ++j) {
    if (slotsM[j] == x) {
      return true;
    }
  }
  return false;
}

void NuvGenericArray::Sort(Compare cmp) {
  if (countM == 0) {
    return;
  }
  const Compare outer = sortCompare;
  sortCompare = cmp;
  qsort(slotsM, static_cast<size_t>(countM), kSlotBytes, CompareSlots);
  sortCompare = outer;
}

void NuvGenericArray::Expand() {
  const int capacity = capacityM == 0 ? kFirstCapacity : 2 * capacityM;
  auto* slots = static_cast<NuvCore**>(
      poolM->Calloc(static_cast<unsigned>(capacity) * kSlotBytes, NuvMempool::nuv));
  if (slotsM != nullptr) {
    for (int j = 0; j < countM; ++j) {
      Assign(slots[j], slotsM[j]);
    }
    for (int j = 0; j < countM; ++j) {
      Assign(slotsM[j], nullptr);
    }
    poolM->Free(slotsM);
  }
  slotsM = slots;
  capacityM = capacity;
}
