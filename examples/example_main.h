/// \file What the example programs share: pool files of the run's own, log entries on standard
/// output, and a main process that adopts itself as a library thread in a pool of the example's.
#ifndef NUV_EXAMPLES_EXAMPLE_MAIN_H
#define NUV_EXAMPLES_EXAMPLE_MAIN_H

#include <nuv/logger.h>
#include <nuv/mempool.h>
#include <nuv/status.h>
#include <nuv/thread.h>

#include <unistd.h>
#include <cstdlib>
#include <string>

namespace example {

/// Unless NUV_POOL_PREFIX says otherwise, this run's pool files are "nuv_example_<pid>_<name>",
/// and every log entry goes to standard output.
inline void StartExample() {
  if (getenv("NUV_POOL_PREFIX") == nullptr) {
    setenv("NUV_POOL_PREFIX", ("nuv_example_" + std::to_string(getpid()) + "_").c_str(), 1);
  }
  NuvLogger::LogTty(true);
}

/// Starts the example, makes the named pool and adopts this process as the thread "main" in it,
/// runs body(pool), then gives back the thread, the pool and its file; with NUV_EXAMPLE_KEEP_POOL
/// set, the file stays for nuvpool to read. EXIT_SUCCESS, or EXIT_FAILURE after logging why the
/// pool could not be made.
template <typename Body>
int RunAsMainThread(const char* poolName, unsigned poolSize, const char* tag, Body body) {
  StartExample();
  NuvMempool* pool = nullptr;
  const unsigned made = NuvMempool::Allocate(poolName, poolSize, true, nullptr, true, pool);
  if (made != kNuvOk) {
    NuvLogger::Log(NuvLogger::facnuv, NuvLogger::prierr, tag, "pool: %s", NuvStatusText(made));
    return EXIT_FAILURE;
  }
  auto* self = new (pool) NuvThread("main");
  self->UpRef();
  pCurrentThreadG = self;
  body(pool);
  pCurrentThreadG = nullptr;
  self->DownRef();
  delete pool;
  if (getenv("NUV_EXAMPLE_KEEP_POOL") == nullptr) {
    NuvMempool::Clean(poolName);
  }
  return EXIT_SUCCESS;
}

}  // namespace example

#endif  // NUV_EXAMPLES_EXAMPLE_MAIN_H
