/// \file NuvOsMempool: pool files, their mapping at one address, and the active flag.
#include <nuv/os_mempool.h>

#include <nuv/status.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <unistd.h>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/assert_at.h"
#include "core/kernel.h"

namespace {

constexpr const char* kPoolDirectory = "/var/tmp/";
constexpr unsigned kFileHeaderSize = 8;
constexpr int kProtectAll = PROT_READ | PROT_WRITE | PROT_EXEC;
constexpr long kProtectionGranule = 4096;
constexpr unsigned kLargestPage = 65536;
const auto kAlternatePoolAddress = reinterpret_cast<char*>(0x60000000);

// The eight bytes at the start of every pool file, shared by every process that maps it.
struct PoolFileHeader {
  unsigned mappingAddress;
  unsigned mappingLength;
};
static_assert(sizeof(PoolFileHeader) == kFileHeaderSize, "pool file header is two words");
static_assert(offsetof(PoolFileHeader, mappingAddress) == 0, "word 0: mapping address");
static_assert(offsetof(PoolFileHeader, mappingLength) == 4, "word 1: mapping length");

PoolFileHeader* HeaderAt(char* mapping) { return reinterpret_cast<PoolFileHeader*>(mapping); }

using nuv::kernel::Call;
using nuv::kernel::Ignore;
using nuv::kernel::Make;
using nuv::kernel::Result;

constexpr Call kAccess{"access", -1, ENOENT, false};
constexpr Call kUnlink{"unlink", -1, ENOENT, false};
constexpr Call kOpen{"open", -1, 0, false};
constexpr Call kRead{"read", -1, 0, false};
constexpr Call kWrite{"write", -1, 0, false};
constexpr Call kMmap{"mmap", -1, 0, false};  // MAP_FAILED, the address -1
constexpr Call kMunmap{"munmap", -1, 0, false};
constexpr Call kMsync{"msync", -1, 0, false};
constexpr Call kMprotect{"mprotect", -1, 0, false};
constexpr Call kMlock{"mlock", -1, 0, false};
constexpr Call kMunlock{"munlock", -1, 0, false};
// Held by another process: the answer "active", not a failure.
constexpr Call kTryExclusiveFlock{"flock", -1, EWOULDBLOCK, false};
// The active flag must be taken: a signal that interrupts the wait for it does not end it.
constexpr Call kSharedFlock{"flock", -1, 0, true};

Result Open(const char* path, int flags, mode_t mode = 0) {
  return Make(kOpen, [=] { return open(path, flags, mode); });
}

void Close(int fd) { Ignore(nuv::kernel::Close(fd), "the descriptor is given up either way"); }

void* Map(void* wanted, unsigned length, int flags, int fd) {
  return reinterpret_cast<void*>(
      Make(kMmap, [=] { return mmap(wanted, length, kProtectAll, flags, fd, 0); }).value);
}

void Unmap(void* mapping, unsigned length) {
  Ignore(Make(kMunmap, [=] { return munmap(mapping, length); }),
         "a mapping given up after a failure that is already reported");
}

unsigned MappingLengthFor(unsigned size) {
  const auto page = static_cast<unsigned>(NuvOsMempool::SPage());
  return ((page + size + kFileHeaderSize - 1) / page) * page;
}

// Grows the new file a page at a time. Nothing reads these bytes before the arena is laid out
// over them, so they are written as zeros rather than whatever a buffer held; write failures
// are not checked, as the file has always been grown.
void GrowFile(int fd, unsigned length) {
  static const char kZeros[kLargestPage] = {};
  const auto page = static_cast<unsigned>(NuvOsMempool::SPage());
  for (unsigned written = 0; written < length; written += page) {
    for (unsigned part = 0; part < page; part += sizeof kZeros) {
      const size_t count = page - part < sizeof kZeros ? page - part : sizeof kZeros;
      Ignore(Make(kWrite, [=] { return write(fd, kZeros, count); }), "grown unchecked, as always");
    }
  }
}

unsigned OpenNewPoolFile(const char* path, bool replace, int& fd) {
  if (Make(kAccess, [path] { return access(path, F_OK); }).value == 0) {
    if (!replace) {
      return kNuvPoolExists;
    }
    Ignore(Make(kUnlink, [path] { return unlink(path); }),
           "a file that stays makes the exclusive open below fail");
  }
  const Result opened = Open(path, O_RDWR | O_CREAT | O_EXCL, 0600);
  fd = static_cast<int>(opened.value);
  return opened.Failed() ? kNuvPoolCreateFailed : kNuvOk;
}

// Maps the new pool and writes its header; a wanted address that was not granted is a failure.
unsigned MapNewPool(char* wanted, unsigned length, int fd, bool named, char*& base) {
  void* mapping = Map(wanted, length, named ? MAP_SHARED : MAP_PRIVATE, fd);
  if (mapping == MAP_FAILED || (wanted != nullptr && mapping != wanted)) {
    perror("mmap");
    if (mapping != MAP_FAILED) {
      Unmap(mapping, length);
    }
    return kNuvPoolCreateFailed;
  }
  auto* bytes = static_cast<char*>(mapping);
  HeaderAt(bytes)->mappingAddress = static_cast<unsigned>(reinterpret_cast<uintptr_t>(bytes));
  HeaderAt(bytes)->mappingLength = length;
  if (named) {
    Ignore(Make(kMsync, [=] { return msync(bytes, length, MS_ASYNC); }),
           "an early flush of the header, which the shared mapping holds already");
  }
  base = bytes + kFileHeaderSize;
  return kNuvOk;
}

void CloseIfOpen(int& fd) {
  if (fd != -1) {
    Close(fd);
    fd = -1;
  }
}

using PageCall = int (*)(void* start, size_t length);

int ProtectReadOnly(void* start, size_t length) {
  return static_cast<int>(
      Make(kMprotect, [=] { return mprotect(start, length, PROT_READ); }).value);
}
int ProtectReadWrite(void* start, size_t length) {
  return static_cast<int>(
      Make(kMprotect, [=] { return mprotect(start, length, PROT_READ | PROT_WRITE); }).value);
}
int LockPages(void* start, size_t length) {
  return static_cast<int>(Make(kMlock, [=] { return mlock(start, length); }).value);
}
int UnlockPages(void* start, size_t length) {
  return static_cast<int>(Make(kMunlock, [=] { return munlock(start, length); }).value);
}

// The start is rounded as a signed 32-bit division by 4096 rounds (towards zero), so an address
// with the top bit set rounds upward; the constant is 4096 whatever the page size. Kept as the
// device's pool code has always computed it.
int OverPoolPages(void* base, unsigned size, PageCall call, const char* what) {
  const auto address = static_cast<int32_t>(reinterpret_cast<uintptr_t>(base));
  const int32_t start = (address / kProtectionGranule) * kProtectionGranule;
  const unsigned length = size + static_cast<unsigned>(address - start);
  auto* startPointer =
      reinterpret_cast<void*>(static_cast<uintptr_t>(static_cast<uint32_t>(start)));
  const int result = call(startPointer, length);
  if (result != 0) {
    perror(what);
    fprintf(stderr, "  Base 0x%p, size %d\n", base, static_cast<int>(size));
  }
  return result;
}

}  // namespace

char* MakePoolName(const char* name) {
  // No name, no path: the callers report it as a path that could not be built.
  if (name == nullptr) {
    return nullptr;
  }
  const char* prefix = getenv("NUV_POOL_PREFIX");
  if (prefix == nullptr) {
    prefix = "";
  }
  const size_t size = strlen(name) + strlen(kPoolDirectory) + strlen(prefix) + 1;
  char* path = static_cast<char*>(malloc(size));
  if (path != nullptr) {
    snprintf(path, size, "%s%s%s", kPoolDirectory, prefix, name);
  }
  return path;
}

unsigned NuvOsMempool::Allocate(const char* name, unsigned size, bool replace, char*& base,
                                unsigned& length, int& fd, bool named) {
  fd = -1;
  const unsigned mappingLength = MappingLengthFor(size);
  char* path = nullptr;
  unsigned result = kNuvOk;
  if (named) {
    path = MakePoolName(name);
    result = path == nullptr ? kNuvPoolAddressFailed : OpenNewPoolFile(path, replace, fd);
    if (result == kNuvOk) {
      GrowFile(fd, mappingLength);
    }
  } else {
    const Result opened = Open("/dev/zero", O_RDWR);
    fd = static_cast<int>(opened.value);
    result = opened.Failed() ? kNuvPoolCreateFailed : kNuvOk;
  }
  if (result == kNuvOk) {
    result = MapNewPool(base, mappingLength, fd, named, base);
  }
  if (result == kNuvOk) {
    ResetActiveFlag(fd);
    length = mappingLength - kFileHeaderSize;
  } else {
    CloseIfOpen(fd);
  }
  free(path);
  return result;
}

unsigned NuvOsMempool::Attach(const char* name, char*& base, unsigned& length, int& fd) {
  fd = -1;
  char* path = MakePoolName(name);
  if (path == nullptr) {
    return kNuvPoolAddressFailed;
  }
  fd = static_cast<int>(Open(path, O_RDWR).value);
  unsigned result = fd < 0 ? kNuvPoolOpenFailed : MapFd(fd, base, length, false);
  if (result != kNuvOk) {
    CloseIfOpen(fd);
  }
  free(path);
  return result;
}

unsigned NuvOsMempool::AutoAttach(const char* name, unsigned size, char*& base, unsigned& length,
                                  bool& attached, int& fd) {
  fd = -1;
  char* path = MakePoolName(name);
  if (path == nullptr) {
    return kNuvPoolAddressFailed;
  }
  unsigned result = kNuvOk;
  fd = static_cast<int>(Open(path, O_RDWR).value);
  if (fd >= 0) {
    length = size;
    result = MapFd(fd, base, length, true);
    attached = result != kNuvNotActive;
    if (!attached) {
      // Every process that held the pool has gone: the file is stale, so make the pool anew.
      CloseIfOpen(fd);
    }
  } else {
    attached = false;
  }
  if (!attached) {
    result = Allocate(name, size, true, base, length, fd, true);
  }
  if (result != kNuvOk) {
    CloseIfOpen(fd);
  }
  free(path);
  return result;
}

unsigned NuvOsMempool::MapFd(int fd, char*& base, unsigned& length, bool requireActive) {
  PoolFileHeader header{};
  if (Make(kRead, [fd, &header] { return read(fd, &header, sizeof header); }).value !=
      static_cast<long>(sizeof header)) {
    return kNuvPoolOpenFailed;
  }
  char* address = base != nullptr ? base : reinterpret_cast<char*>(header.mappingAddress);
  if (CheckActiveFlag(fd) == 0 && requireActive) {
    return kNuvNotActive;
  }
  // No fixed-placement flag: the address is a hint, and landing anywhere else is a failure.
  void* mapping = Map(address, header.mappingLength, MAP_SHARED, fd);
  if (mapping != address) {
    if (mapping != MAP_FAILED) {
      Unmap(mapping, header.mappingLength);
    }
    return kNuvPoolAddressFailed;
  }
  base = address + kFileHeaderSize;
  length = header.mappingLength - kFileHeaderSize;
  return kNuvOk;
}

namespace {

int TakeSharedFlag(int fd) {
  return static_cast<int>(Make(kSharedFlock, [fd] { return flock(fd, LOCK_SH); }).value);
}

}  // namespace

int NuvOsMempool::CheckActiveFlag(int fd) {
  if (Make(kTryExclusiveFlock, [fd] { return flock(fd, LOCK_EX | LOCK_NB); }).value == 0) {
    return 0;
  }
  Ignore(Make(kSharedFlock, [fd] { return flock(fd, LOCK_SH); }),
         "the answer is given; the next check of another process takes it again");
  return 1;
}

int NuvOsMempool::SetMempoolActiveFlag(int fd) { return TakeSharedFlag(fd); }

int NuvOsMempool::ResetActiveFlag(int fd) { return TakeSharedFlag(fd); }

int NuvOsMempool::ClearActiveFlag(int /*fd*/) { return 0; }

void NuvOsMempool::Clean(const char* name) {
  char* path = MakePoolName(name);
  if (path != nullptr) {
    Ignore(Make(kUnlink, [path] { return unlink(path); }), "nothing to clean is clean");
    free(path);
  }
}

int NuvOsMempool::Free(char* base, unsigned length, int fd) {
  char* mapping = base - kFileHeaderSize;
  const unsigned mappingLength = length + kFileHeaderSize;
  const PoolFileHeader* header = HeaderAt(mapping);
  NUV_ASSERT_AT(header->mappingAddress == reinterpret_cast<uintptr_t>(mapping), 586, "Free");
  NUV_ASSERT_AT(header->mappingLength == mappingLength, 587, "Free");
  NUV_ASSERT_AT(!Make(kMsync, [=] { return msync(mapping, mappingLength, MS_SYNC); }).Failed(), 594,
                "Free");
  NUV_ASSERT_AT(!Make(kMunmap, [=] { return munmap(mapping, mappingLength); }).Failed(), 597,
                "Free");
  // Descriptor 0 is deliberately left open: the test has always been "less than 1".
  if (fd >= 1) {
    ClearActiveFlag(fd);
    Close(fd);
  }
  return 0;
}

int NuvOsMempool::SPage() { return getpagesize(); }

char* NuvOsMempool::GetAlternatePoolAddress() { return kAlternatePoolAddress; }

int NuvOsMempool::Protect(void* base, unsigned size) {
  return OverPoolPages(base, size, ProtectReadOnly, "mprotect set read-only");
}

int NuvOsMempool::Unprotect(void* base, unsigned size) {
  return OverPoolPages(base, size, ProtectReadWrite, "mprotect set read-write");
}

int NuvOsMempool::MLock(void* base, unsigned size) {
  return OverPoolPages(base, size, LockPages, "mlock");
}

int NuvOsMempool::MUnlock(void* base, unsigned size) {
  return OverPoolPages(base, size, UnlockPages, "munlock");
}
