/// \file NuvMempoolRegistry: objects of a pool found by id from every process that attaches it.
#include <nuv/registry.h>

#include <cstddef>

// An item is a 12-byte block of user "nuv": id, object (one reference held), next.
struct NuvRegistryItem {
  int id;
  NuvSeed* object;
  NuvRegistryItem* next;
};
static_assert(sizeof(NuvRegistryItem) == 12, "registry item is three words");
static_assert(offsetof(NuvRegistryItem, object) == 4, "registry item: object");
static_assert(offsetof(NuvRegistryItem, next) == 8, "registry item: next");

namespace {

// Drops the registry's reference without deleting; a null object holds none.
void DropHeld(NuvSeed* object) {
  if (object != nullptr) {
    object->NuvSeed::DownRef();
  }
}

}  // namespace

NuvMempoolRegistry::NuvMempoolRegistry() : NuvSeed(NuvMempool::nuv) {}

NuvMempoolRegistry::~NuvMempoolRegistry() {
  for (NuvRegistryItem* item = headM; item != nullptr;) {
    NuvRegistryItem* next = item->next;
    DropHeld(item->object);
    GetPool()->Free(item);
    item = next;
  }
}

// Lock order: the registry's word, then the pool's (inside Malloc).
bool NuvMempoolRegistry::AddItem(int id, NuvSeed* object) {
  upsleeplock(&lockM);
  NuvRegistryItem** link = &headM;
  for (; *link != nullptr; link = &(*link)->next) {
    if ((*link)->id == id) {
      upunlock(&lockM);
      return false;
    }
  }
  auto* item =
      static_cast<NuvRegistryItem*>(GetPool()->Malloc(sizeof(NuvRegistryItem), NuvMempool::nuv));
  *item = NuvRegistryItem{id, object, nullptr};
  // A null object is registered like any other; it holds no reference.
  if (object != nullptr) {
    object->UpRef();
  }
  *link = item;
  upunlock(&lockM);
  return true;
}

NuvSeed* NuvMempoolRegistry::FindItem(int id) {
  upsleeplock(&lockM);
  NuvRegistryItem* item = headM;
  while (item != nullptr && item->id != id) {
    item = item->next;
  }
  NuvSeed* object = item != nullptr ? item->object : nullptr;
  upunlock(&lockM);
  return object;
}

// The item is freed after the registry's word is released; the caller decides the object's fate.
NuvSeed* NuvMempoolRegistry::RemoveItem(int id) {
  upsleeplock(&lockM);
  NuvRegistryItem** link = &headM;
  while (*link != nullptr && (*link)->id != id) {
    link = &(*link)->next;
  }
  NuvRegistryItem* item = *link;
  if (item != nullptr) {
    *link = item->next;
  }
  upunlock(&lockM);
  if (item == nullptr) {
    return nullptr;
  }
  NuvSeed* object = item->object;
  GetPool()->Free(item);
  DropHeld(object);
  return object;
}
