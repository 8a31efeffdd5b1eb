/// \file Uses the installed library: a lock word, the status texts, a private pool holding a
/// string-keyed hash table, and a framed record over a socket pair.
#include <nuv/nuv.h>

#include <sys/socket.h>

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

bool RecordTravels() {
  NuvMempool* pool = nullptr;
  int ends[2];
  if (NuvMempool::Allocate("consumer", 64 * 1024, false, nullptr, false, pool) != kNuvOk ||
      socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
    return false;
  }
  unsigned got = 0;
  {
    const ref<NuvSocket> writer(new (pool) NuvSocket(ends[0]));
    const ref<NuvSocket> reader(new (pool) NuvSocket(ends[1]));
    const unsigned sent = 42;
    if (writer->Send(&sent, sizeof sent) != static_cast<int>(kNuvOk) ||
        reader->Receive(&got, sizeof got) != static_cast<int>(kNuvOk)) {
      got = 0;
    }
  }
  delete pool;
  return got == 42;
}

}  // namespace

int main() {
  if (!LockWordWorks() || !StringTableWorks() || !RecordTravels()) {
    return 1;
  }
  std::printf("installed Nuv works: %s\n", NuvStatusText(kNuvOk));
  return 0;
}
