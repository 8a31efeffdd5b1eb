/// \file A fixture with a named pool that the children a test forks share with it.
#ifndef NUV_TESTS_SUPPORT_SHARED_POOL_H
#define NUV_TESTS_SUPPORT_SHARED_POOL_H

#include <nuv/mempool.h>
#include <nuv/semaphore.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <csignal>

#include "support/pool_prefix.h"

namespace nuv::test {

/// Allocates the named pool before each test (under a prefix of the test's own) and detaches it
/// afterwards; whatever a test leaves in it goes with it. Outside a wait the test process and
/// its children ignore the wake-up and time-out signals, as library threads do, so that a late
/// one cannot end them.
class SharedPoolTest : public ::testing::Test {
 protected:
  SharedPoolTest(const char* name, unsigned size) : nameM(name), sizeM(size) {}

  void SetUp() override {
    previousWakeM = signal(SIGUSR1, SIG_IGN);
    previousAlarmM = signal(SIGALRM, SIG_IGN);
    ASSERT_EQ(NuvMempool::Allocate(nameM, sizeM, true, nullptr, true, poolM), kNuvOk);
  }
  void TearDown() override {
    delete poolM;
    signal(SIGUSR1, previousWakeM);
    signal(SIGALRM, previousAlarmM);
  }

  NuvMempool* Pool() const { return poolM; }

  /// A process-shared semaphore in the pool, owned by the library's user.
  NuvSema* NewSema(int count) const {
    auto* sema = new (poolM) NuvSema(NuvMempool::nuv);
    sema->init(count, false);
    return sema;
  }

 private:
  const char* nameM;
  unsigned sizeM;
  ScopedPoolPrefix prefixM;
  NuvMempool* poolM = nullptr;
  sighandler_t previousWakeM = SIG_DFL;
  sighandler_t previousAlarmM = SIG_DFL;
};

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_SHARED_POOL_H
