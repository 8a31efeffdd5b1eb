/// \file The life cycle of pools in a process, and its list of attached pools.
#include <nuv/mempool.h>

#include <nuv/os_mempool.h>
#include <nuv/registry.h>
#include <nuv/status.h>

#include <new>

#include "core/assert_at.h"

NuvMempoolLocal* pAllMempoolsG = nullptr;

NuvMempoolLocal* AddMempoolLocal(NuvMempool* pool, int fd) {
  auto* entry = new (std::nothrow) NuvMempoolLocal{pool, fd, pAllMempoolsG};
  NUV_ASSERT_AT(entry != nullptr, 283, "AddMempoolLocal");
  pAllMempoolsG = entry;
  return entry;
}

NuvMempoolLocal* FindMempoolLocal(NuvMempool* pool) {
  NuvMempoolLocal* entry = pAllMempoolsG;
  while (entry != nullptr && entry->pool != pool) {
    entry = entry->next;
  }
  return entry;
}

void RemoveMempoolLocal(NuvMempoolLocal* entry) {
  NuvMempoolLocal** link = &pAllMempoolsG;
  while (*link != nullptr && *link != entry) {
    link = &(*link)->next;
  }
  if (*link != nullptr) {
    *link = entry->next;
    delete entry;
  }
}

unsigned NuvMempool::Allocate(const char* name, unsigned size, bool replace, char* base, bool named,
                              NuvMempool*& pool) {
  unsigned length = 0;
  int fd = -1;
  const unsigned result = NuvOsMempool::Allocate(name, size, replace, base, length, fd, named);
  if (result != kNuvOk) {
    return result;
  }
  pool = reinterpret_cast<NuvMempool*>(base);
  pool->SetName(name);
  pool->InitArena(length);
  // An anonymous pool is private to the process: it has no entry, and its descriptor stays.
  if (named) {
    AddMempoolLocal(pool, fd);
  }
  return kNuvOk;
}

unsigned NuvMempool::Attach(const char* name, NuvMempool*& pool) {
  return Attach(name, nullptr, pool);
}

// The header is taken as it is: no magic or name test.
unsigned NuvMempool::Attach(const char* name, char* base, NuvMempool*& pool) {
  unsigned length = 0;
  int fd = -1;
  const unsigned result = NuvOsMempool::Attach(name, base, length, fd);
  if (result != kNuvOk) {
    return result;
  }
  pool = reinterpret_cast<NuvMempool*>(base);
  AddMempoolLocal(pool, fd);
  return kNuvOk;
}

unsigned NuvMempool::AutoAttach(const char* name, unsigned size, char*& base, NuvMempool*& pool,
                                bool& attached) {
  unsigned length = 0;
  int fd = -1;
  const unsigned result = NuvOsMempool::AutoAttach(name, size, base, length, attached, fd);
  if (result != kNuvOk) {
    return result;
  }
  pool = reinterpret_cast<NuvMempool*>(base);
  if (!attached) {
    pool->SetName(name);
    pool->InitArena(length);
  }
  AddMempoolLocal(pool, fd);
  return kNuvOk;
}

unsigned NuvMempool::Clean(const char* name) {
  NuvOsMempool::Clean(name);
  return kNuvOk;
}

NuvMempool::~NuvMempool() {
  NuvMempoolLocal* entry = FindMempoolLocal(this);
  const unsigned size = sizeM;
  if (entry != nullptr) {
    NuvOsMempool::Free(reinterpret_cast<char*>(this), size, entry->fd);
    RemoveMempoolLocal(entry);
  } else {
    NuvOsMempool::Free(reinterpret_cast<char*>(this), size, 0);
  }
}

void NuvMempool::DetachAll() {
  while (pAllMempoolsG != nullptr) {
    delete pAllMempoolsG->pool;
  }
}

void NuvMempool::ActivateMempoolLocal() {
  for (NuvMempoolLocal* entry = pAllMempoolsG; entry != nullptr; entry = entry->next) {
    NuvOsMempool::SetMempoolActiveFlag(entry->fd);
  }
}
