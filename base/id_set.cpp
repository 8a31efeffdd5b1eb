/// \file NuvIdSet: identifiers in a singly linked list, the most recently added first.
#include <nuv/id_set.h>

#include <utility>

#include "core/assert_at.h"

NuvIdSetElem::NuvIdSetElem(unsigned long id) : NuvCore(NuvMempool::nuv), idM(id) {}

NuvIdSet::NuvIdSet() : NuvCore(NuvMempool::nuv) {}

// Members go in reverse order: the cursor, then the elements from head. Dropping an element's
// next releases the rest of the chain, one nested destruction per element.
NuvIdSet::~NuvIdSet() = default;

void NuvIdSet::Add(unsigned long id) {
  if (FPresent(id)) {
    return;
  }
  // The elements live in the set's own pool.
  ref<NuvIdSetElem> elem = new (GetPool()) NuvIdSetElem(id);
  elem->nextM = std::move(headM);
  headM = std::move(elem);
}

void NuvIdSet::Remove(unsigned long id) {
  ref<NuvIdSetElem> previous;
  ref<NuvIdSetElem> elem = headM;
  while (elem && elem->idM != id) {
    previous = elem;
    elem = elem->nextM;
  }
  if (!elem) {
    return;
  }
  // The removed element keeps its next reference, so a cursor standing on it can step on.
  (previous ? previous->nextM : headM) = elem->nextM;
}

bool NuvIdSet::FPresent(unsigned long id) const {
  for (const NuvIdSetElem* elem = headM.get(); elem != nullptr; elem = elem->nextM.get()) {
    if (elem->idM == id) {
      return true;
    }
  }
  return false;
}

bool NuvIdSet::FEmpty() const { return !headM; }

void NuvIdSet::Start() { cursorM = headM; }

bool NuvIdSet::FCurrent() const { return static_cast<bool>(cursorM); }

unsigned long NuvIdSet::Current() const {
  NUV_ASSERT_AT(cursorM, 320, "Current");
  return cursorM->idM;
}

void NuvIdSet::Next() {
  NUV_ASSERT_AT(cursorM, 321, "Next");
  cursorM = cursorM->nextM;
}

unsigned long NuvIdSet::Index(int i) const {
  // A negative i walks no steps.
  const NuvIdSetElem* elem = headM.get();
  for (int step = 0; step < i && elem != nullptr; ++step) {
    elem = elem->nextM.get();
  }
  NUV_ASSERT_AT(elem != nullptr, 322, "Index");
  return elem->idM;
}
