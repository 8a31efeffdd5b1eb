/// \file NuvGenericTable: unsigned long keys to counted NuvCore references, in insertion order.
#include <nuv/table.h>

#include "core/assert_at.h"

namespace {

// Unlinks the first element of the chain from head that match accepts, moving tail back to its
// predecessor when it was the tail (clearing it when the table empties). The element's next
// reference is handed over as a member pointer, since only the table may name it. Returns whether
// an element was found.
template <typename Match>
bool UnlinkFirst(ref<NuvTableElem>& head, ref<NuvTableElem>& tail,
                 ref<NuvTableElem> NuvTableElem::*next, Match match) {
  ref<NuvTableElem> previous;
  ref<NuvTableElem> elem = head;
  while (elem && !match(*elem)) {
    previous = elem;
    elem = (*elem).*next;
  }
  if (!elem) {
    return false;
  }
  (previous ? (*previous).*next : head) = (*elem).*next;
  if (tail == elem) {
    tail = previous;
  }
  return true;
}

}  // namespace

NuvTableElem::NuvTableElem(unsigned long key, NuvCore* item)
    : NuvCore(NuvMempool::nuv), keyM(key), itemM(item) {}

// Members go in reverse order: next, then item. Dropping next releases the rest of a chain that
// nothing else holds, one nested destruction per element.
NuvTableElem::~NuvTableElem() = default;

void NuvGenericTable::Add(unsigned long key, NuvCore* item) {
  NUV_ASSERT_AT(item != nullptr, 301, "Add");
  // The entry lives where its item lives, whatever pool the table's owner is in.
  const ref<NuvTableElem> elem = new (item->GetPool()) NuvTableElem(key, item);
  if (tailM) {
    tailM->nextM = elem;
  } else {
    NUV_ASSERT_AT(!headM, 302, "Add");
    headM = elem;
  }
  tailM = elem;
  cursorM = nullptr;
}

bool NuvGenericTable::FHasKey(unsigned long key) const { return static_cast<bool>(Lookup(key)); }

ref<NuvCore> NuvGenericTable::Lookup(unsigned long key) const {
  for (const NuvTableElem* elem = headM.get(); elem != nullptr; elem = elem->nextM.get()) {
    if (elem->keyM == key) {
      return elem->itemM;
    }
  }
  return nullptr;
}

bool NuvGenericTable::FEmpty() const { return !headM; }

void NuvGenericTable::Remove(NuvCore* item) {
  NUV_ASSERT_AT(headM, 303, "Remove");
  const bool found = UnlinkFirst(headM, tailM, &NuvTableElem::nextM,
                                 [item](const NuvTableElem& elem) { return elem.itemM == item; });
  NUV_ASSERT_AT(found, 304, "Remove");
  cursorM = nullptr;
}

void NuvGenericTable::RemoveKey(unsigned long key) {
  NUV_ASSERT_AT(headM, 305, "RemoveKey");
  const bool found = UnlinkFirst(headM, tailM, &NuvTableElem::nextM,
                                 [key](const NuvTableElem& elem) { return elem.keyM == key; });
  NUV_ASSERT_AT(found, 306, "RemoveKey");
  cursorM = nullptr;
}

void NuvGenericTable::Start() { cursorM = headM; }

bool NuvGenericTable::FCurrent() const { return static_cast<bool>(cursorM); }

ref<NuvCore> NuvGenericTable::Current() {
  NUV_ASSERT_AT(cursorM, 307, "Current");
  return cursorM->itemM;
}

unsigned long NuvGenericTable::CurrentKey() {
  NUV_ASSERT_AT(cursorM, 308, "CurrentKey");
  return cursorM->keyM;
}

void NuvGenericTable::Next() {
  NUV_ASSERT_AT(cursorM, 309, "Next");
  cursorM = cursorM->nextM;
}
