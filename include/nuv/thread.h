/// \file NuvThread: the library's thread, one process.
#ifndef NUV_THREAD_H
#define NUV_THREAD_H

#include <nuv/current_thread.h>

class NuvThread {
 public:
  /// Adopts the calling process under the given name (cut to 31 characters).
  explicit NuvThread(const char* name);

  const char* GetName() const { return nameM; }
  void SetName(const char* name);
  /// The process id.
  int GetId() const { return pidM; }

  /// Fills out[0..count) with return addresses of the calling process's stack, skipping the
  /// first skip frames after the caller's; slots past the outermost frame are 0.
  static void GetBacktrace(int skip, int count, void** out);
  /// Ends the calling process through the fatal path with pseudo-signal 0 (uses no object state).
  void abort();

 private:
  static constexpr int kNameLength = 32;
  char nameM[kNameLength] = {};
  int pidM;
};

/// The thread that this process runs; null in a process that no library thread adopted, and
/// then the fatal report names the process by its pid.
extern NuvThread* pCurrentThreadG;

/// Sends SIGQUIT to the thread's process, which (with the fatal handler installed) reports
/// itself and restarts the device.
void _killthread_(NuvThread* thread);

#endif  // NUV_THREAD_H
