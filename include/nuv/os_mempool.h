/// \file NuvOsMempool: named pool files mapped at one agreed address in every process.
///
/// A pool file starts with two native 32-bit words shared by every process:
///   offset 0: the address at which the creator mapped the file (later processes map it there)
///   offset 4: the mapping length in bytes, header included, a whole number of pages
/// The pool handed upward is (mapping + 8, length - 8). Pool files live at
/// "/var/tmp/" + $NUV_POOL_PREFIX + name. A process that has a pool attached keeps the file open
/// with a shared flock on it: the pool's active flag.
#ifndef NUV_OS_MEMPOOL_H
#define NUV_OS_MEMPOOL_H

/// "/var/tmp/" + prefix + name in a malloc'd buffer that the caller frees; null when malloc fails
/// or name is null.
char* MakePoolName(const char* name);

class NuvOsMempool {
 public:
  NuvOsMempool() = delete;

  /// Creates a pool of at least size usable bytes, named (a file under /var/tmp) or anonymous
  /// (private, copy-on-write across fork). base: on entry the wanted address or 0; on success
  /// the mapping + 8, with length the mapping length - 8 and fd the open file (kept; it holds the
  /// active flag). Results: kNuvOk; kNuvPoolExists (file exists, replace false, file untouched);
  /// kNuvPoolCreateFailed (open or mmap failed, or the mapping landed elsewhere);
  /// kNuvPoolAddressFailed (no memory for the path, or a null name).
  static unsigned Allocate(const char* name, unsigned size, bool replace, char*& base,
                           unsigned& length, int& fd, bool named);
  /// Maps an existing pool file at the address in its header (or at base when non-zero).
  /// Results: kNuvOk; kNuvPoolOpenFailed (no file, or fewer than 8 header bytes);
  /// kNuvPoolAddressFailed (no memory for the path, a null name, or the mapping landed elsewhere).
  static unsigned Attach(const char* name, char*& base, unsigned& length, int& fd);
  /// Attaches the pool if a process still holds it (attached = true), else creates it anew,
  /// replacing a stale file (attached = false: the caller lays out the arena).
  static unsigned AutoAttach(const char* name, unsigned size, char*& base, unsigned& length,
                             bool& attached, int& fd);
  /// Reads the header from fd and maps the file. With requireActive, kNuvNotActive when no
  /// process holds the pool.
  static unsigned MapFd(int fd, char*& base, unsigned& length, bool requireActive);

  /// 1 when another process holds the pool (and this one now holds a shared lock), 0 when none
  /// does (and this process now holds the exclusive lock).
  static int CheckActiveFlag(int fd);
  static int SetMempoolActiveFlag(int fd);
  static int ResetActiveFlag(int fd);
  /// Does nothing: the flag goes when the descriptor is closed.
  static int ClearActiveFlag(int fd);

  /// Removes the pool file; failures are ignored.
  static void Clean(const char* name);
  /// Unmaps a pool given its (mapping + 8, length - 8) pair and closes fd when it is 1 or more.
  /// A header that does not match, or a failing msync or munmap, fails an assertion.
  static int Free(char* base, unsigned length, int fd);

  /// The system page size.
  static int SPage();
  /// 0x60000000: where a freshly started unshared thread makes its own pool.
  static char* GetAlternatePoolAddress();

  /// Page protection and locking over [base, base + size), widened down to a 4096-byte
  /// boundary. Failures are reported on standard error and returned; 0 on success.
  static int Protect(void* base, unsigned size);
  static int Unprotect(void* base, unsigned size);
  static int MLock(void* base, unsigned size);
  static int MUnlock(void* base, unsigned size);
};

#endif  // NUV_OS_MEMPOOL_H
