/// \file NuvSeed, NuvVirtualSeed and NuvCore: pool objects and their reference counts.
#include <nuv/seed.h>

#include <cstdint>

#include "core/assert_at.h"

namespace {

// The compiler may treat whatever operator new writes into the storage as dead once the
// constructor begins (the object's life starts there), and whatever the destructor leaves as
// dead before operator delete runs. So neither hand-over goes through the object's storage:
// operator new records the pool beside the storage's address for the constructor, and the
// destructor records the pool and count for operator delete. One thread of control runs per
// process, and constructions nest last-in first-out, so a short stack is enough.
struct PendingObject {
  char* storage;
  size_t size;
  NuvMempool* pool;
};

constexpr int kMaxPendingObjects = 32;
PendingObject pendingObjects[kMaxPendingObjects];
int pendingCount = 0;

struct ReleasedObject {
  NuvMempool* pool;
  unsigned count;
  bool valid;
};
ReleasedObject releasedObject = {nullptr, 0, false};

// The newest pending allocation that picks chooses, taken off the stack; all null when none.
template <typename Picks>
PendingObject TakePending(Picks picks) {
  for (int i = pendingCount - 1; i >= 0; --i) {
    const PendingObject& pending = pendingObjects[i];
    if (picks(pending)) {
      const PendingObject found = pending;
      for (int j = i; j + 1 < pendingCount; ++j) {
        pendingObjects[j] = pendingObjects[j + 1];
      }
      --pendingCount;
      return found;
    }
  }
  return PendingObject{nullptr, 0, nullptr};
}

// The pending allocation whose storage holds this seed (a seed may sit after a table pointer).
PendingObject TakePendingObject(const void* seed) {
  const auto address = reinterpret_cast<uintptr_t>(seed);
  return TakePending([address](const PendingObject& pending) {
    const auto start = reinterpret_cast<uintptr_t>(pending.storage);
    return start <= address && address < start + pending.size;
  });
}

// The compiler may assume that a member function's object is not null: hide that from it, so
// that the documented null checks stay.
template <typename T>
bool IsNull(T* object) {
  __asm__("" : "+r"(object));
  return object == nullptr;
}

}  // namespace

void* NuvSeed::operator new(size_t size, NuvMempool* pool) {
  // No pool, no storage: the same check as for storage that the pool did not give.
  NUV_ASSERT_AT(pool != nullptr, 2464, "__nw");
  void* storage = pool->Malloc(static_cast<unsigned>(size), NuvMempool::unassigned);
  NUV_ASSERT_AT(storage != nullptr && pendingCount < kMaxPendingObjects, 2464, "__nw");
  pendingObjects[pendingCount++] = PendingObject{static_cast<char*>(storage), size, pool};
  return storage;
}

// NOLINTNEXTLINE(cert-dcl54-cpp,misc-new-delete-overloads): paired with the pool form.
void NuvSeed::operator delete(void* p) {
  if (p == nullptr) {
    return;
  }
  const ReleasedObject released = releasedObject;
  releasedObject.valid = false;
  if (!released.valid) {
    // Storage that operator new handed out and no constructor took: its count is still the 0
    // that operator new gave it, so it goes back to its pool.
    const PendingObject unused = TakePending(
        [p](const PendingObject& pending) { return pending.storage == static_cast<char*>(p); });
    if (unused.pool != nullptr) {
      unused.pool->Free(p);
      return;
    }
  }
  NUV_ASSERT_AT(released.valid && released.count == 0, 2475, "__dl");
  released.pool->Free(p);
}

void NuvSeed::operator delete(void* p, NuvMempool* pool) {
  TakePendingObject(p);
  pool->Free(p);
}

NuvSeed::NuvSeed(NuvMempool::User user) {
  const PendingObject pending = TakePendingObject(this);
  poolM = pending.pool;
  NUV_ASSERT_AT(poolM != nullptr, 2456, "NuvSeed");
  poolM->AssignNuvCoreUser(pending.storage, user);
}

NuvSeed::~NuvSeed() { releasedObject = ReleasedObject{poolM, countM, true}; }

NuvSeed* NuvSeed::UpRef() {
  if (!IsNull(this)) {
    fadd(&countM, 1);
  }
  return this;
}

void NuvSeed::DownRef() {
  if (!IsNull(this)) {
    fadd(&countM, -1);
  }
}

unsigned NuvSeed::DropReference() { return static_cast<unsigned>(fadd(&countM, -1)); }

NuvVirtualSeed* NuvVirtualSeed::DeleteThis() {
  if (!IsNull(this)) {
    delete this;
  }
  return nullptr;
}

void NuvCore::DownRef() {
  if (!IsNull(this) && DropReference() == 1) {
    DeleteThis();
  }
}
