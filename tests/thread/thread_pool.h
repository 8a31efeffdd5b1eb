/// \file A fixture for tests of library threads: a shared pool, and the test process adopted as
/// the current thread, the parent of the threads a test starts.
#ifndef NUV_TESTS_THREAD_THREAD_POOL_H
#define NUV_TESTS_THREAD_THREAD_POOL_H

#include <nuv/mempool.h>
#include <nuv/status.h>
#include <nuv/thread.h>

#include <gtest/gtest.h>

#include <new>

#include "support/pool_prefix.h"
#include "thread/restart.h"

namespace nuv::test {

class ThreadPoolTest : public ::testing::Test {
 protected:
  static constexpr unsigned kPoolSize = 256 * 1024;

  void SetUp() override {
    // A fatal report in a thread process ends it at once instead of after the device's wait.
    nuv::SetRestartDelayForTesting(0);
    ASSERT_EQ(NuvMempool::Allocate("threads", kPoolSize, true, nullptr, true, poolM), kNuvOk);
    testerM = new (poolM) NuvThread("tester");
    testerM->UpRef();
    pCurrentThreadG = testerM;
  }

  void TearDown() override {
    ReleaseTester();
    delete poolM;
  }

  /// Drops the test process's own thread object (its destructor waits for its children).
  void ReleaseTester() {
    pCurrentThreadG = nullptr;
    if (testerM != nullptr) {
      testerM->DownRef();
      testerM = nullptr;
    }
  }

  NuvMempool* Pool() const { return poolM; }
  NuvThread* Tester() const { return testerM; }

  /// A T in the shared pool, value-initialised: seen by every thread of the test.
  template <typename T>
  T* Shared() {
    return new (poolM->Malloc(sizeof(T), NuvMempool::unknown)) T();
  }

  /// A thread object in the shared pool, with one reference held for the test.
  NuvThread* MakeThread(int (*entry)(long), const char* name) {
    auto* thread = new (poolM) NuvThread(entry, name);
    thread->UpRef();
    return thread;
  }

 private:
  ScopedPoolPrefix prefixM;
  NuvMempool* poolM = nullptr;
  NuvThread* testerM = nullptr;
};

/// The length of an unshared pool allocated with the size given: what a thread's own pool of
/// that size must measure.
inline unsigned SizeOfAPoolAskedFor(unsigned size) {
  NuvMempool* pool = nullptr;
  if (NuvMempool::Allocate("probe", size, true, nullptr, false, pool) != kNuvOk) {
    return 0;
  }
  const unsigned length = pool->GetSize();
  delete pool;
  return length;
}

}  // namespace nuv::test

#endif  // NUV_TESTS_THREAD_THREAD_POOL_H
