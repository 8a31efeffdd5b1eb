/// \file NuvMempoolRegistry: the directory of shared objects inside a pool, by integer id; and
/// the per-process list of attached pools.
#ifndef NUV_REGISTRY_H
#define NUV_REGISTRY_H

#include <nuv/lockword.h>
#include <nuv/seed.h>

struct NuvRegistryItem;

/// Lives in its pool (user "nuv"): head of the items, then the lock word.
/// Layout (checked in pool/layout.cpp): 0 seed, 8 head, 12 lock word. Items (checked in
/// pool/registry.cpp, which alone defines them): 0 id, 4 object, 8 next.
class NuvMempoolRegistry : public NuvSeed {
 public:
  NuvMempoolRegistry();
  /// Drops the reference held on each object and frees the items.
  ~NuvMempoolRegistry();
  NuvMempoolRegistry(const NuvMempoolRegistry&) = delete;
  NuvMempoolRegistry& operator=(const NuvMempoolRegistry&) = delete;
  NuvMempoolRegistry(NuvMempoolRegistry&&) = delete;
  NuvMempoolRegistry& operator=(NuvMempoolRegistry&&) = delete;

  /// Adds the object under id, taking one reference on it; false (nothing changed) when the id
  /// is already present.
  bool AddItem(int id, NuvSeed* object);
  /// The object registered under id, or null; adds no reference for the caller.
  NuvSeed* FindItem(int id);
  /// Removes the item and drops its reference without deleting; returns the object, or null.
  NuvSeed* RemoveItem(int id);

 private:
  friend struct NuvMempoolLayout;
  NuvRegistryItem* headM = nullptr;
  volatile NuvLock lockM = 0;
};

/// An entry of this process's list of attached pools.
struct NuvMempoolLocal {
  NuvMempool* pool;
  int fd;  // holds the pool's active flag
  NuvMempoolLocal* next;
};

/// This process's attached pools, newest first.
extern NuvMempoolLocal* pAllMempoolsG;

NuvMempoolLocal* AddMempoolLocal(NuvMempool* pool, int fd);
NuvMempoolLocal* FindMempoolLocal(NuvMempool* pool);
void RemoveMempoolLocal(NuvMempoolLocal* entry);

#endif  // NUV_REGISTRY_H
