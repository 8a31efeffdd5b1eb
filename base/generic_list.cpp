/// \file NuvGenericList: counted NuvCore references in a singly linked list with one cursor.
#include <nuv/list.h>

#include "core/assert_at.h"

NuvListElem::NuvListElem(NuvCore* item) : NuvCore(NuvMempool::nuv), itemM(item) {}

// Members go in reverse order: next, then item. Dropping next releases the rest of a chain that
// nothing else holds, one nested destruction per element.
NuvListElem::~NuvListElem() = default;

void NuvGenericList::Append(NuvCore* item) {
  NUV_ASSERT_AT(item != nullptr, 200, "Append");
  // The element lives where its item lives, whatever pool the list's owner is in.
  const ref<NuvListElem> elem = new (item->GetPool()) NuvListElem(item);
  if (tailM) {
    tailM->nextM = elem;
  } else {
    NUV_ASSERT_AT(!headM, 201, "Append");
    headM = elem;
  }
  tailM = elem;
  cursorM = nullptr;
}

void NuvGenericList::Remove(NuvCore* item) {
  NUV_ASSERT_AT(headM, 202, "Remove");
  ref<NuvListElem> previous;
  ref<NuvListElem> elem = headM;
  while (elem && elem->itemM != item) {
    previous = elem;
    elem = elem->nextM;
  }
  NUV_ASSERT_AT(elem, 203, "Remove");
  if (previous) {
    previous->nextM = elem->nextM;
  } else {
    headM = elem->nextM;
  }
  if (tailM == elem) {
    tailM = previous;
  }
  cursorM = nullptr;
}

void NuvGenericList::Clear() {
  // Deliberately head only: tail and cursor keep their elements (see the header), and owners
  // rely on exactly this.
  headM = nullptr;
}

void NuvGenericList::Start() { cursorM = headM; }

bool NuvGenericList::FCurrent() const { return static_cast<bool>(cursorM); }

ref<NuvCore> NuvGenericList::Current() {
  NUV_ASSERT_AT(cursorM, 204, "Current");
  return cursorM->itemM;
}

void NuvGenericList::Next() {
  NUV_ASSERT_AT(cursorM, 205, "Next");
  cursorM = cursorM->nextM;
}
