/// \file Uses the installed library: a lock word, the status texts, and a private pool holding a
/// string-keyed hash table.
#include <nuv/nuv.h>

#include <cstdio>
#include <cstring>

namespace {

bool LockWordWorks() {
  volatile NuvLock word = 0;
  if (uptrylock(&word) != 1 || uptrylock(&word) != 0) {
    return false;
  }
  upunlock(&word);
  return true;
}

bool StringTableWorks() {
  NuvMempool* pool = nullptr;
  if (NuvMempool::Allocate("consumer", 64 * 1024, false, nullptr, false, pool) != kNuvOk) {
    return false;
  }
  bool found = false;
  {
    NuvGenericHashTable names(pool, NuvGenericHashTable::HashNuvStringCore,
                              NuvGenericHashTable::CmpNuvStringCore, nullptr, 16);
    const ref<NuvString> key = NuvString::Format(pool, "panel %d", 3);
    names.Store(key, new (pool) NuvString("front"));
    const ref<NuvCore> value = names.Lookup(new (pool) NuvString("panel 3"));
    found = value && strcmp(static_cast<NuvString*>(value.get())->Utf8(), "front") == 0;
  }
  delete pool;
  return found;
}

}  // namespace

int main() {
  if (!LockWordWorks() || !StringTableWorks()) {
    return 1;
  }
  std::printf("installed Nuv works: %s\n", NuvStatusText(kNuvOk));
  return 0;
}
