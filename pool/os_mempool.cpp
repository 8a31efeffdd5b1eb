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
      write(fd, kZeros, page - part < sizeof kZeros ? page - part : sizeof kZeros);
    }
  }
}

unsigned OpenNewPoolFile(const char* path, bool replace, int& fd) {
  if (access(path, F_OK) == 0) {
    if (!replace) {
      return kNuvPoolExists;
    }
    unlink(path);
  }
  fd = open(path, O_RDWR | O_CREAT | O_EXCL, 0600);
  return fd < 0 ? kNuvPoolCreateFailed : kNuvOk;
}

// Maps the new pool and writes its header; a wanted address that was not granted is a failure.
unsigned MapNewPool(char* wanted, unsigned length, int fd, bool named, char*& base) {
  void* mapping = mmap(wanted, length, kProtectAll, named ? MAP_SHARED : MAP_PRIVATE, fd, 0);
  if (mapping == MAP_FAILED || (wanted != nullptr && mapping != wanted)) {
    perror("mmap");
    if (mapping != MAP_FAILED) {
      munmap(mapping, length);
    }
    return kNuvPoolCreateFailed;
  }
  auto* bytes = static_cast<char*>(mapping);
  HeaderAt(bytes)->mappingAddress = static_cast<unsigned>(reinterpret_cast<uintptr_t>(bytes));
  HeaderAt(bytes)->mappingLength = length;
  if (named) {
    msync(bytes, length, MS_ASYNC);
  }
  base = bytes + kFileHeaderSize;
  return kNuvOk;
}

void CloseIfOpen(int& fd) {
  if (fd != -1) {
    close(fd);
    fd = -1;
  }
}

using PageCall = int (*)(void* start, size_t length);

int ProtectReadOnly(void* start, size_t length) { return mprotect(start, length, PROT_READ); }
int ProtectReadWrite(void* start, size_t length) {
  return mprotect(start, length, PROT_READ | PROT_WRITE);
}
int LockPages(void* start, size_t length) { return mlock(start, length); }
int UnlockPages(void* start, size_t length) { return munlock(start, length); }

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
    fd = open("/dev/zero", O_RDWR);
    result = fd < 0 ? kNuvPoolCreateFailed : kNuvOk;
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
  fd = open(path, O_RDWR);
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
  fd = open(path, O_RDWR);
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
  if (read(fd, &header, sizeof header) != static_cast<ssize_t>(sizeof header)) {
    return kNuvPoolOpenFailed;
  }
  char* address = base != nullptr ? base : reinterpret_cast<char*>(header.mappingAddress);
  if (CheckActiveFlag(fd) == 0 && requireActive) {
    return kNuvNotActive;
  }
  // No fixed-placement flag: the address is a hint, and landing anywhere else is a failure.
  void* mapping = mmap(address, header.mappingLength, kProtectAll, MAP_SHARED, fd, 0);
  if (mapping != address) {
    if (mapping != MAP_FAILED) {
      munmap(mapping, header.mappingLength);
    }
    return kNuvPoolAddressFailed;
  }
  base = address + kFileHeaderSize;
  length = header.mappingLength - kFileHeaderSize;
  return kNuvOk;
}

int NuvOsMempool::CheckActiveFlag(int fd) {
  if (flock(fd, LOCK_EX | LOCK_NB) == 0) {
    return 0;
  }
  flock(fd, LOCK_SH);
  return 1;
}

int NuvOsMempool::SetMempoolActiveFlag(int fd) { return flock(fd, LOCK_SH); }

int NuvOsMempool::ResetActiveFlag(int fd) { return flock(fd, LOCK_SH); }

int NuvOsMempool::ClearActiveFlag(int /*fd*/) { return 0; }

void NuvOsMempool::Clean(const char* name) {
  char* path = MakePoolName(name);
  if (path != nullptr) {
    unlink(path);
    free(path);
  }
}

int NuvOsMempool::Free(char* base, unsigned length, int fd) {
  char* mapping = base - kFileHeaderSize;
  const unsigned mappingLength = length + kFileHeaderSize;
  const PoolFileHeader* header = HeaderAt(mapping);
  NUV_ASSERT_AT(header->mappingAddress == reinterpret_cast<uintptr_t>(mapping), 586, "Free");
  NUV_ASSERT_AT(header->mappingLength == mappingLength, 587, "Free");
  NUV_ASSERT_AT(msync(mapping, mappingLength, MS_SYNC) == 0, 594, "Free");
  NUV_ASSERT_AT(munmap(mapping, mappingLength) == 0, 597, "Free");
  // Descriptor 0 is deliberately left open: the test has always been "less than 1".
  if (fd >= 1) {
    ClearActiveFlag(fd);
    close(fd);
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
