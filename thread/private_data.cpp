/// \file Locking a process's private memory: the list of its private mappings, and the lock.
#include <nuv/mempool.h>
#include <nuv/os_thread.h>

#include <sys/mman.h>
#include <cstdio>

#include "core/kernel.h"
#include "core/log.h"

namespace {

// The flag word with which the device's kernel locks a process's memory; other kernels refuse it.
constexpr int kDeviceLockFlags = 0x10000;
constexpr int kPermissionsSize = 5;
constexpr int kPrivateMark = 3;  // "rw-p": the fourth permission character

using nuv::kernel::Call;
using nuv::kernel::Ignore;
using nuv::kernel::Make;
using nuv::kernel::Result;

constexpr Call kFopen{"fopen", 0, 0, false};  // a null stream
constexpr Call kFclose{"fclose", EOF, 0, false};
constexpr Call kMlockall{"mlockall", -1, 0, false};
constexpr Call kMlock{"mlock", -1, 0, false};

struct MapsLine {
  unsigned long start;
  unsigned long end;
  char permissions[kPermissionsSize];
};

// The start, end and permissions of the next line of the maps file; the rest of it is skipped.
bool ReadMapsLine(FILE* maps, MapsLine* line) {
  if (fscanf(maps, "%lx-%lx %4s", &line->start, &line->end, line->permissions) != 3) {
    return false;
  }
  int next = 0;
  while (next != '\n' && next != EOF) {
    next = getc(maps);
  }
  return true;
}

NuvPrivateMapping* NewMapping(NuvMempool* pool, const MapsLine& line) {
  auto* mapping =
      static_cast<NuvPrivateMapping*>(pool->Malloc(sizeof(NuvPrivateMapping), NuvMempool::nuv));
  mapping->start = static_cast<unsigned>(line.start);
  mapping->end = static_cast<unsigned>(line.end);
  mapping->next = nullptr;
  return mapping;
}

// Where the kernel refuses the device's flag word, current and future mappings are locked.
bool LockAll() {
  const Result device = Make(kMlockall, [] { return mlockall(kDeviceLockFlags); });
  if (device.error != EINVAL) {
    return !device.Failed();
  }
  return !Make(kMlockall, [] { return mlockall(MCL_CURRENT | MCL_FUTURE); }).Failed();
}

}  // namespace

NuvPrivateMapping* buildmap(NuvMempool* pool) {
  auto* maps =
      reinterpret_cast<FILE*>(Make(kFopen, [] { return fopen("/proc/self/maps", "r"); }).value);
  if (maps == nullptr) {
    return nullptr;
  }
  NuvPrivateMapping* head = nullptr;
  NuvPrivateMapping** tail = &head;
  MapsLine line{};
  while (ReadMapsLine(maps, &line)) {
    if (line.permissions[kPrivateMark] == 'p') {
      *tail = NewMapping(pool, line);
      tail = &(*tail)->next;
    }
  }
  Ignore(Make(kFclose, [maps] { return fclose(maps); }), "a file that was only read");
  return head;
}

// Nothing is returned: a process that cannot lock its memory runs on unlocked.
void NuvOsThread::LockPrivateData(NuvMempool* pool) {
  NuvPrivateMapping* mapping = buildmap(pool);
  if (mapping == nullptr) {
    nuv::log::Entry(nuv::log::kFacilityNuv, nuv::log::kPriorityInfo, "NuvOsThread::LockPrivateData",
                    "Can't build map for locking private data");
    return;
  }
  // A refused lock leaves the list in the pool, as it always has.
  if (!LockAll()) {
    return;
  }
  while (mapping != nullptr) {
    NuvPrivateMapping* next = mapping->next;
    const unsigned start = mapping->start;
    const unsigned length = mapping->end - start;
    Ignore(Make(kMlock, [start, length] { return mlock(reinterpret_cast<void*>(start), length); }),
           "unchecked, as always: mlockall has locked them");
    pool->Free(mapping);
    mapping = next;
  }
}
